#include "pavex/comm/local_operation.h"

#include "pavex/runtime/copy_runs.h"

#include <algorithm>
#include <cstring>
#include <type_traits>
#include <utility>

namespace Pavex {
namespace {

using Operations = std::vector<LocalOperation const*>;

// The ranks that take part, ascending.
std::vector<int> Everyone(Operations const& operations) {
  std::vector<int> ranks;
  for (std::size_t r = 0; r < operations.size(); ++r) {
    if (operations[r] != nullptr) ranks.push_back(static_cast<int>(r));
  }
  return ranks;
}

LocalOperation const& Of(Operations const& operations, int rank) {
  return *operations[static_cast<std::size_t>(rank)];
}

bool InPlaceLegal(LocalOperation const& operation, int rank) {
  switch (operation.mKind) {
    case LocalKind::ALLGATHER:
    case LocalKind::ALLGATHERV:
      return true;
    case LocalKind::GATHERV:
      return operation.mPeer == rank;
    default:
      return false;
  }
}

bool SameRuns(Runs const& a, Runs const& b) {
  return a.begin == b.begin && a.length == b.length && a.count == b.count &&
         a.stride == b.stride;
}

// Whether regions of one receive buffer have bytes in common; empty ones have none.
bool Overlap(std::vector<std::pair<char*, char*>>& regions) {
  std::sort(regions.begin(), regions.end());
  for (std::size_t i = 1; i < regions.size(); ++i) {
    if (regions[i].first < regions[i - 1].second) return true;
  }
  return false;
}

// What is received in runs does not overlap, although runs of several ranks may alternate.
bool MayOverlap(LocalKind kind) {
  return kind != LocalKind::GATHER_RUNS && kind != LocalKind::ALLGATHER_RUNS;
}

// Plans the copies from all `senders` to `receiver`.
bool PlanReceiver(Operations const& operations, std::vector<int> const& senders, int receiver,
                  LocalWork& work) {
  if (Of(operations, receiver).mRecv.InPlace()) return false;
  bool const mayOverlap = MayOverlap(Of(operations, receiver).mKind);
  std::vector<std::pair<char*, char*>> targets;
  targets.reserve(senders.size());
  for (int const sender : senders) {
    LocalRegion const source = Of(operations, sender).Sent(sender, receiver);
    LocalRegion const target = Of(operations, receiver).mRecv.For(sender);
    if (!target.Fits(source)) return false;
    if (target.mCount > 0) {
      if (mayOverlap) targets.emplace_back(target.mData, target.mData + target.Bytes());
      if (!(source == target)) work.mPieces.push_back(LocalPiece::Of(target, source));
    }
  }
  work.mOrdered = work.mOrdered || Overlap(targets);
  return true;
}

bool Reducible(LocalOperation const& operation) {
  LocalRegion const operand = operation.mSend.For(0);
  bool const complex =
      operand.mType == DATATYPE_COMPLEX_FLOAT || operand.mType == DATATYPE_COMPLEX_DOUBLE;
  return !operation.mSend.InPlace() && !operation.mRecv.InPlace() && operand.Valid() &&
         operation.mRecv.For(0).Valid() &&
         (operation.mReduce == REDUCE_SUM ||
          (!complex && (operation.mReduce == REDUCE_MIN || operation.mReduce == REDUCE_MAX)));
}

bool PlanReduction(Operations const& operations, LocalWork& work) {
  LocalOperation const& first = *operations.front();
  LocalRegion const whole = first.mSend.For(0);
  for (LocalOperation const* operation : operations) {
    LocalRegion const operand = operation->mSend.For(0);
    if (!Reducible(*operation) || operand.mCount != whole.mCount ||
        operand.mType != whole.mType || operation->mReduce != first.mReduce) {
      return false;
    }
    work.mOperands.push_back(operand.mData);
    work.mResults.push_back(operation->mRecv.For(0).mData);
  }
  work.mType = whole.mType;
  work.mReduce = first.mReduce;
  if (whole.mCount > 0)
    work.mPieces.push_back(
        {work.mResults.front(), nullptr, whole.Bytes(), whole.Bytes(), 0, 0});
  return true;
}

template <typename T>
T Combine(T a, T b, ReduceOp op) {
  if (op == REDUCE_MIN) return std::min(a, b);
  if (op == REDUCE_MAX) return std::max(a, b);
  if constexpr (std::is_integral_v<T>) {
    using Wrapping = std::make_unsigned_t<T>;  // an overflowing sum wraps in every integer type
    return static_cast<T>(static_cast<Wrapping>(a) + static_cast<Wrapping>(b));
  } else {
    return a + b;
  }
}

template <typename T>
T CombineComplex(T a, T b, ReduceOp /*sum*/) {
  return a + b;
}

template <typename T>
void Accumulate(char* target, char const* operand, std::size_t bytes, ReduceOp op,
                T (*combine)(T, T, ReduceOp)) {
  T* const sums = reinterpret_cast<T*>(target);
  T const* const terms = reinterpret_cast<T const*>(operand);
  for (std::size_t i = 0; i < bytes / sizeof(T); ++i) {
    sums[i] = combine(sums[i], terms[i], op);
  }
}

void Accumulate(Datatype type, char* target, char const* operand, std::size_t bytes,
                ReduceOp op) {
  switch (type) {
    case DATATYPE_BYTE:
      return Accumulate<unsigned char>(target, operand, bytes, op, Combine);
    case DATATYPE_INT:
      return Accumulate<int>(target, operand, bytes, op, Combine);
    case DATATYPE_LONG:
      return Accumulate<long>(target, operand, bytes, op, Combine);
    case DATATYPE_FLOAT:
      return Accumulate<float>(target, operand, bytes, op, Combine);
    case DATATYPE_DOUBLE:
      return Accumulate<double>(target, operand, bytes, op, Combine);
    case DATATYPE_COMPLEX_FLOAT:
      return Accumulate<std::complex<float>>(target, operand, bytes, op, CombineComplex);
    case DATATYPE_COMPLEX_DOUBLE:
      return Accumulate<std::complex<double>>(target, operand, bytes, op, CombineComplex);
  }
}

// Combines bytes [begin, end) in rank order, so that every run gives the same sum, and copies
// the result to every rank.
void ReduceSlice(LocalWork const& work, std::size_t begin, std::size_t end) {
  std::size_t const bytes = end - begin;
  char* const result = work.mResults.front() + begin;
  std::memmove(result, work.mOperands.front() + begin, bytes);
  for (std::size_t r = 1; r < work.mOperands.size(); ++r) {
    Accumulate(work.mType, result, work.mOperands[r] + begin, bytes, work.mReduce);
  }
  for (std::size_t r = 1; r < work.mResults.size(); ++r) {
    std::memcpy(work.mResults[r] + begin, result, bytes);
  }
}

}  // namespace

bool LocalRegion::Valid() const {
  return mCount >= 0 && DatatypeSize(mType) > 0 && (mData != nullptr || mCount == 0);
}

std::size_t LocalRegion::Bytes() const {
  return static_cast<std::size_t>(mCount) * DatatypeSize(mType);
}

bool LocalRegion::Fits(LocalRegion const& other) const {
  return Valid() && other.Valid() && mCount == other.mCount && mType == other.mType &&
         (mRun == other.mRun || mRun == 0 || other.mRun == 0);
}

bool LocalRegion::operator==(LocalRegion const& other) const {
  return mData == other.mData && mCount == other.mCount && mType == other.mType &&
         mRun == other.mRun && mStride == other.mStride;
}

LocalSide LocalSide::Whole(void const* data, int count, Datatype type) {
  LocalSide side;
  // A side is used for reading and writing. Only receive buffers are written, and their
  // pointers were not const.
  side.mData = const_cast<void*>(data);
  side.mCount = count;
  side.mType = type;
  return side;
}

LocalSide LocalSide::Slots(void const* data, int count, Datatype type) {
  LocalSide side = Whole(data, count, type);
  side.mLayout = Layout::SLOTS;
  return side;
}

LocalSide LocalSide::Pieces(void const* data, int const* counts, int const* displs,
                            Datatype type) {
  LocalSide side = Whole(data, 0, type);
  side.mLayout = Layout::PIECES;
  side.mCounts = counts;
  side.mDispls = displs;
  return side;
}

LocalSide LocalSide::WholeRuns(void const* data, Runs const& runs, Datatype type) {
  LocalSide side = PieceRuns(data, &runs, type);
  side.mLayout = Layout::WHOLE_RUNS;
  return side;
}

LocalSide LocalSide::PieceRuns(void const* data, Runs const* runs, Datatype type) {
  LocalSide side = Whole(data, 0, type);
  side.mLayout = Layout::PIECE_RUNS;
  side.mRuns = runs;
  return side;
}

bool LocalSide::InPlace() const {
  return mData == &Comm::IN_PLACE_OBJ;
}

LocalRegion LocalSide::For(int rank) const {
  if (mLayout == Layout::WHOLE_RUNS) return OfRuns(0);
  if (mLayout == Layout::PIECE_RUNS) return OfRuns(rank);
  LocalRegion region{static_cast<char*>(mData), mCount, mType};
  long displacement = 0;
  if (mLayout == Layout::SLOTS) {
    displacement = static_cast<long>(rank) * mCount;
  } else if (mLayout == Layout::PIECES) {
    bool const given = mCounts != nullptr && mDispls != nullptr;
    region.mCount = given ? mCounts[rank] : -1;
    displacement = given ? mDispls[rank] : -1;
  }
  if (region.mCount > 0 && displacement < 0) region.mCount = -1;
  if (region.mData != nullptr && region.mCount > 0) {
    region.mData += displacement * static_cast<long>(DatatypeSize(mType));
  }
  return region;
}

LocalRegion LocalSide::OfRuns(int rank) const {
  LocalRegion region{static_cast<char*>(mData), -1, mType};
  if (mRuns == nullptr) return region;
  Runs const& runs = mRuns[rank];
  bool const negative = (runs.begin | runs.length | runs.count | runs.stride) < 0;
  if (negative || __builtin_mul_overflow(runs.length, runs.count, &region.mCount)) {
    region.mCount = -1;
    return region;
  }
  if (region.mData == nullptr || region.mCount == 0) return region;
  region.mData += static_cast<std::size_t>(runs.begin) * DatatypeSize(mType);
  if (runs.count > 1 && runs.stride != runs.length) {
    region.mRun = runs.length;
    region.mStride = runs.stride;
  }
  return region;
}

bool LocalSide::LaidOutAs(LocalSide const& other, int ranks) const {
  auto const same = [ranks](int const* mine, int const* others) {
    return mine == others ||
           (mine != nullptr && others != nullptr && std::equal(mine, mine + ranks, others));
  };
  auto const sameRuns = [ranks](Runs const* mine, Runs const* others) {
    return mine == others || (mine != nullptr && others != nullptr &&
                              std::equal(mine, mine + ranks, others, SameRuns));
  };
  return mLayout == other.mLayout && mType == other.mType && mCount == other.mCount &&
         (mData == nullptr) == (other.mData == nullptr) && same(mCounts, other.mCounts) &&
         same(mDispls, other.mDispls) && sameRuns(mRuns, other.mRuns);
}

bool LocalOperation::SameCollective(LocalOperation const& other) const {
  return !PointToPoint() && mKind == other.mKind && mPeer == other.mPeer;
}

LocalRegion LocalOperation::Sent(int own, int to) const {
  if (!mSend.InPlace()) return mSend.For(to);
  if (!InPlaceLegal(*this, own)) return {nullptr, -1, DATATYPE_BYTE};
  return mRecv.For(own);
}

LocalPiece LocalPiece::Of(LocalRegion const& target, LocalRegion const& source) {
  std::size_t const bytes = target.Bytes();
  std::size_t const size = DatatypeSize(target.mType);
  long const elements = std::max(target.mRun, source.mRun);
  std::size_t const run = elements == 0 ? bytes : static_cast<std::size_t>(elements) * size;
  auto const stride = [&](LocalRegion const& region) {
    return region.mRun == 0 ? run : static_cast<std::size_t>(region.mStride) * size;
  };
  return {target.mData, source.mData, bytes, run, stride(target), stride(source)};
}

void LocalPiece::Copy(std::size_t begin, std::size_t end) const {
  if (mRun == mBytes) {
    std::memmove(mTarget + begin, mSource + begin, end - begin);
    return;
  }
  // The rest of a run, whole runs, and the beginning of a run.
  std::size_t run = begin / mRun;
  std::size_t const begun = begin % mRun;
  if (begun > 0) {
    std::size_t const rest = std::min(end - begin, mRun - begun);
    std::memcpy(mTarget + run * mTargetStride + begun, mSource + run * mSourceStride + begun,
                rest);
    begin += rest;
    ++run;
  }
  std::size_t const whole = (end - begin) / mRun;
  char* const target = mTarget + run * mTargetStride;
  char const* const source = mSource + run * mSourceStride;
  CopyRuns({target, mTargetStride}, {source, mSourceStride}, mRun, whole);
  std::size_t const tail = (end - begin) % mRun;
  if (tail > 0)
    std::memcpy(target + whole * mTargetStride, source + whole * mSourceStride, tail);
}

std::size_t LocalWork::Bytes() const {
  std::size_t bytes = 0;
  for (LocalPiece const& piece : mPieces) {
    bytes += piece.mBytes;
  }
  return bytes;
}

void LocalWork::Do(std::size_t index, std::size_t begin, std::size_t end) const {
  if (!mResults.empty()) return ReduceSlice(*this, begin, end);
  mPieces[index].Copy(begin, end);
}

void LocalWork::DoAll() const {
  for (std::size_t i = 0; i < mPieces.size(); ++i) {
    Do(i, 0, mPieces[i].mBytes);
  }
}

bool PlanLocalWork(Operations const& operations, LocalWork& work) {
  std::vector<int> senders = Everyone(operations);
  std::vector<int> receivers = senders;
  LocalOperation const& any = Of(operations, senders.front());
  switch (any.mKind) {
    case LocalKind::BARRIER:
    case LocalKind::SPLIT:
      return true;
    case LocalKind::ALLREDUCE:
      return PlanReduction(operations, work);
    case LocalKind::GATHERV:
    case LocalKind::GATHER_RUNS:
      receivers = {any.mPeer};
      break;
    case LocalKind::SCATTERV:
    case LocalKind::SCATTER_RUNS:
    case LocalKind::BCAST:
      senders = {any.mPeer};
      break;
    case LocalKind::SEND:  // the lower rank of the pair sends to the higher one
      senders.pop_back();
      receivers.erase(receivers.begin());
      break;
    case LocalKind::RECV:  // the other way round
      senders.erase(senders.begin());
      receivers.pop_back();
      break;
    case LocalKind::ALLTOALLV:
    case LocalKind::ALLGATHER:
    case LocalKind::ALLGATHERV:
    case LocalKind::ALLGATHER_RUNS:
      break;
  }
  return std::all_of(receivers.begin(), receivers.end(), [&](int receiver) {
    return PlanReceiver(operations, senders, receiver, work);
  });
}

}  // namespace Pavex
