#include "tests/faults/steps.h"

#include "tests/support/most_per_call.h"

#include <algorithm>
#include <stdexcept>

namespace Pavex {

namespace {

constexpr std::size_t kRecordBytes = 72;

// Every caller that receives a failed status prints a line and returns it. Four do not print:
// the public Update and Scatter for the status of a format's path, and the two steps that move
// a whole array from its holder (the dense values, the offsets). The comments name the callers
// that print, the innermost first.
struct Chain {
  Purpose purpose;
  int gather;
  int update;
  int scatter;
};

constexpr Chain kChains[] = {
    // Exchange of the records, metadata, gather.
    {Purpose::RECORDS, 3, 0, 0},
    {Purpose::EXCHANGE, 3, 0, 0},
    // Metadata, gather.
    {Purpose::COUNTS, 2, 0, 0},
    {Purpose::DISPLS, 2, 0, 0},
    // Dense path, gather.
    {Purpose::DENSE_STORAGE, 2, 1, 0},
    // Packing, transfer of the values (not in a scatter), dense path, gather.
    {Purpose::DENSE_PACKING, 4, 3, 2},
    // Transfer of the values, dense path, gather.
    {Purpose::DENSE_FROM_PIECES, 3, 2, 0},
    // Dense path, gather.
    {Purpose::DENSE_FROM_HOLDER, 2, 1, 0},
    // Reordering, transfer of the values, dense path (not in a scatter), gather.
    {Purpose::DENSE_REORDER, 4, 3, 2},
    // Transfer of the values.
    {Purpose::DENSE_RECEIVE, 0, 0, 1},
    {Purpose::DENSE_BACK, 0, 0, 1},
    // Offsets, compressed path, gather.
    {Purpose::OFFSETS, 3, 0, 0},
    {Purpose::ZERO_OFFSETS, 3, 0, 0},
    {Purpose::LENGTH_COUNTS, 3, 0, 0},
    {Purpose::LENGTH_DISPLS, 3, 0, 0},
    {Purpose::LENGTHS, 3, 0, 0},
    {Purpose::LENGTHS_FROM_PIECES, 3, 0, 0},
    // Compressed path, gather.
    {Purpose::OFFSETS_FROM_HOLDER, 2, 0, 0},
    // Sparse path, gather.
    {Purpose::INDICES, 2, 0, 0},
    {Purpose::MOVED_INDICES, 2, 0, 0},
    {Purpose::VALUES, 2, 1, 0},
    {Purpose::MOVED_VALUES, 2, 1, 0},
};

// Makes the list of the calls of one rank.
class StepWriter {
 public:
  StepWriter(Round const& round, int rank, ElementBytes bytes)
      : mRound(round), mPiece(round.PieceOf(rank)), mRank(rank), mBytes(bytes) {}

  std::vector<Step> Gather() {
    Take(Purpose::RECORDS, mRanks * kRecordBytes);
    if (mRanks > 1) Call(Purpose::EXCHANGE, CommOp::ALLGATHER);
    if (InPieces() && Receives()) {
      Take(Purpose::COUNTS, mRanks * sizeof(int));
      Take(Purpose::DISPLS, mRanks * sizeof(int));
    }
    bool const withValues = mRound.Reference().withValues;
    if (mRound.IsDense()) {
      GatherDense(GATHERED, withValues);
    } else {
      if (mRound.IsCompressed()) GatherOffsets();
      GatherArrays(mRound.IsCompressed() ? 1 : 2, withValues);
    }
    return mSteps;
  }

  std::vector<Step> Update(bool inPlace = false) {
    mHasPlace = inPlace && OwnsValues();
    if (mRound.IsDense())
      GatherDense(UPDATED, true);
    else
      GatherArrays(0, true);
    return mSteps;
  }

  std::vector<Step> Scatter() {
    if (mRound.toAll) return mSteps;  // each rank copies from its own gathered matrix
    std::size_t const all = WholeEntries() * mBytes.value;
    bool const isRoot = mRank == 0;
    bool const isView = mRound.holding == Holding::ALL;
    if (isRoot && isView && all != 0 && !mPiece.IsPacked(UPDATED))
      Take(Purpose::DENSE_PACKING, all);
    if (isRoot && !IsContiguous()) Take(Purpose::DENSE_REORDER, all);
    bool const receives = InPieces() || (mRound.HoldsWhole(mRank) && !isRoot);
    if (receives && !mPiece.IsPacked(SCATTERED))
      Take(Purpose::DENSE_RECEIVE, mPiece.entries.size() * mBytes.value);
    if (InPieces())
      Collective(Purpose::DENSE_BACK, CommOp::SCATTERV, isRoot, Entries());
    else if (isView)
      Call(Purpose::DENSE_BACK, CommOp::BCAST, Entries());
    else
      PassOn(Purpose::DENSE_BACK, 0, mRound.holder, Entries());
    return mSteps;
  }

 private:
  void Take(Purpose purpose, std::size_t bytes) {
    mSteps.push_back({purpose, true, bytes, CommOp::RANK});
  }
  // Adds as many calls as `count` elements take.
  void Call(Purpose purpose, CommOp op, long count = 0) {
    for (long calls = CallsFor(count); calls > 0; --calls)
      mSteps.push_back({purpose, false, 0, op});
  }

  // Adds the calls that move one array of `count` elements from one rank to another.
  void PassOn(Purpose purpose, int from, int to, long count) {
    if (from == to) return;
    if (mRank == from) Call(purpose, CommOp::SEND, count);
    if (mRank == to) Call(purpose, CommOp::RECV, count);
  }
  void FromHolder(Purpose purpose, long count) {
    if (mRound.toAll)
      Call(purpose, CommOp::BCAST, count);
    else
      PassOn(purpose, mRound.holder, 0, count);
  }
  // Adds the calls that move an array of which every rank has a part. Several calls need counts
  // of their own on a rank that has the whole.
  void Collective(Purpose purpose, CommOp op, bool hasWhole, long count) {
    for (int arrays = CallsFor(count) > 1 && hasWhole ? 2 : 0; arrays > 0; --arrays)
      Take(purpose, mRanks * sizeof(int));
    Call(purpose, op, count);
  }
  void FromPieces(Purpose purpose, long count) {
    Collective(purpose, mRound.toAll ? CommOp::ALLGATHERV : CommOp::GATHERV, Receives(), count);
  }
  void Move(Purpose purpose) {
    if (InPieces()) FromPieces(purpose, Entries());
    if (mRound.holding == Holding::ONE) FromHolder(purpose, Entries());
  }

  void GatherDense(Phase phase, bool withValues) {
    if (mRound.holding == Holding::ALL) return;
    std::size_t const all = WholeEntries() * mBytes.value;
    if (Receives() && !(mHasPlace && IsContiguous())) Take(Purpose::DENSE_STORAGE, all);
    if (!withValues) return;
    bool const isEmpty = mPiece.rows == 0 || mPiece.cols == 0;
    if (!isEmpty && !mPiece.IsPacked(phase))
      Take(Purpose::DENSE_PACKING, mPiece.entries.size() * mBytes.value);
    if (!InPieces()) return FromHolder(Purpose::DENSE_FROM_HOLDER, Entries());
    FromPieces(Purpose::DENSE_FROM_PIECES, Entries());
    if (Receives() && !IsContiguous() && !mHasPlace) Take(Purpose::DENSE_REORDER, all);
  }

  void GatherOffsets() {
    Whole const& whole = mRound.WholeOn(mRank);
    auto const count =
        static_cast<std::size_t>(mRound.CompressedCount(whole.rows, whole.cols)) + 1;
    if (Owns()) Take(Purpose::OFFSETS, count * mBytes.index);
    if (InPieces()) GatherLengths(static_cast<long>(count) - 1);
    if (mRound.holding != Holding::ONE) return;
    bool const leaves = mRound.toAll || mRound.holder != 0;
    if (mRank == mRound.holder && leaves && !mPiece.hasOffsets)
      Take(Purpose::ZERO_OFFSETS, count * mBytes.index);
    FromHolder(Purpose::OFFSETS_FROM_HOLDER, static_cast<long>(count));
  }

  // `all` rows (columns) of all ranks. In one call their counts come first.
  void GatherLengths(long all) {
    if (Receives() && CallsFor(all) == 1) {
      Take(Purpose::LENGTH_COUNTS, mRanks * sizeof(int));
      Take(Purpose::LENGTH_DISPLS, mRanks * sizeof(int));
    }
    auto const own = mRound.CompressedCount(mPiece.rows, mPiece.cols);
    Take(Purpose::LENGTHS, static_cast<std::size_t>(own) * mBytes.index);
    FromPieces(Purpose::LENGTHS_FROM_PIECES, all);
  }

  // Adds the calls for `indexArrays` index arrays and, with `withValues`, for the values.
  void GatherArrays(int indexArrays, bool withValues) {
    for (int k = 0; Owns() && k < indexArrays; ++k)
      Take(Purpose::INDICES, WholeEntries() * mBytes.index);
    if (Owns() && withValues && !mHasPlace)
      Take(Purpose::VALUES, WholeEntries() * mBytes.value);
    for (int k = 0; k < indexArrays; ++k)
      Move(Purpose::MOVED_INDICES);
    if (withValues) Move(Purpose::MOVED_VALUES);
  }

  bool InPieces() const { return mRound.holding == Holding::PIECES; }
  bool Receives() const { return mRound.Receives(mRank); }
  // Whether the rank owns the arrays of a gathered sparse matrix.
  bool Owns() const { return Receives() && !mRound.HoldsWhole(mRank); }
  // Whether the rank owns the gathered values after a gather.
  bool OwnsValues() const {
    bool const withValues = mRound.Reference().withValues;
    if (!mRound.IsDense()) return Owns() && withValues;
    if (!Receives() || mRound.holding == Holding::ALL) return false;
    return !(mRound.HoldsWhole(mRank) && withValues && mPiece.IsPacked(GATHERED));
  }
  long Entries() const { return static_cast<long>(WholeEntries()); }
  std::size_t WholeEntries() const { return mRound.WholeOn(mRank).entries.size(); }

  // Whether dense pieces follow each other in the gathered array as they arrive.
  bool IsContiguous() const {
    if (!InPieces()) return true;
    Whole const& whole = mRound.WholeOn(mRank);
    return mPiece.rowMajor ? mPiece.partition == 0 || whole.rows == 1
                           : mPiece.partition == 1 || whole.cols == 1;
  }

  Round const& mRound;
  Piece const& mPiece;
  int const mRank;
  ElementBytes const mBytes;
  std::size_t const mRanks = mRound.pieces.size();
  bool mHasPlace = false;  // the values arrive in the array that the gathered matrix has
  std::vector<Step> mSteps;
};

}  // namespace

char const* NameOf(Operation operation) {
  char const* const names[] = {"gather",     "second gather",   "update",
                               "coo update", "update in place", "scatter"};
  return names[static_cast<int>(operation)];
}

std::vector<Operation> OperationsOn(Round const& round) {
  std::vector<Operation> operations{Operation::GATHER, Operation::GATHER_AGAIN,
                                    Operation::UPDATE, Operation::UPDATE_IN_PLACE};
  if (round.format == Format::COO) operations.push_back(Operation::UPDATE_COO);
  if (round.IsDense()) operations.push_back(Operation::SCATTER);
  return operations;
}

std::vector<Step> StepsOf(Round const& round, int rank, Operation operation,
                          ElementBytes bytes) {
  StepWriter writer(round, rank, bytes);
  switch (operation) {
    case Operation::GATHER:
    case Operation::GATHER_AGAIN:
      return writer.Gather();
    case Operation::UPDATE:
    case Operation::UPDATE_COO:
      return writer.Update();
    case Operation::UPDATE_IN_PLACE:
      return writer.Update(true);
    case Operation::SCATTER:
      break;
  }
  return writer.Scatter();
}

std::vector<std::pair<Purpose, Operation>> CallsThatOccur() {
  std::vector<std::pair<Purpose, Operation>> calls;
  for (Chain const& chain : kChains) {
    if (chain.gather != 0) calls.emplace_back(chain.purpose, Operation::GATHER);
    if (chain.update != 0) calls.emplace_back(chain.purpose, Operation::UPDATE);
    if (chain.scatter != 0) calls.emplace_back(chain.purpose, Operation::SCATTER);
  }
  return calls;
}

int LinesOf(Purpose purpose, Operation operation) {
  auto const* const chain =
      std::find_if(std::begin(kChains), std::end(kChains),
                   [purpose](Chain const& entry) { return entry.purpose == purpose; });
  if (chain == std::end(kChains)) throw std::logic_error("a call without a chain of lines");
  bool const updates = operation == Operation::UPDATE || operation == Operation::UPDATE_COO ||
                       operation == Operation::UPDATE_IN_PLACE;
  int const lines = operation == Operation::SCATTER ? chain->scatter
                    : updates                       ? chain->update
                                                    : chain->gather;
  if (lines == 0) throw std::logic_error("a call that the operation does not make");
  return lines;
}

}  // namespace Pavex
