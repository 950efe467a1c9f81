#include "tools/plan/plan.h"

#include "pavex/aggregator/local_info.h"
#include "pavex/runtime/comm.h"
#include "tools/choice/input_error.h"
#include "tools/cut/refusals.h"
#include "tools/plan/plan_decision.h"
#include "tools/source/type_choice.h"

#include <algorithm>

namespace Pavex::Tool {

namespace {

constexpr long kRecordBytes = sizeof(MatrixLocalInfo);
constexpr long kCountBytes = sizeof(int);
constexpr long kNearLimit = kMaxEntries / 10 * 9;

// With at most so many entries, every number of a plan is below 2^63: an entry adds at most 32
// bytes to what one rank receives, and 48 to the peak of its pool.
constexpr long kMostEntriesOfAllRanks = 1L << 57;

void RefuseUncountable(Source const& source, Format format, int ranks) {
  Extent const& whole = source.Whole();
  long const entries = IsDense(format) ? whole.mRows * whole.mCols : whole.mEntries;
  long const most = kMostEntriesOfAllRanks / ranks;
  if (entries > most)
    throw InputError(source.Name() + " has " + std::to_string(entries) +
                     " entries, more than the " + std::to_string(most) +
                     " that a plan can count on " + std::to_string(ranks) +
                     (ranks == 1 ? " rank" : " ranks"));
}

// The entries of all pieces, counted without a matrix in memory.
std::vector<long> CountEntries(Source const& source, CutOptions const& cut,
                               std::vector<Piece> const& pieces) {
  std::vector<long> counts;
  if (cut.mPartition == Partition::COLUMNS && !IsDense(cut.mFormat)) {
    std::vector<long> bounds = {0};
    for (Piece const& piece : pieces)
      bounds.push_back(piece.mColEnd);
    return source.CountCols(bounds);
  }
  for (Piece const& piece : pieces) {
    if (IsDense(cut.mFormat))
      counts.push_back(piece.Rows() * piece.Cols());
    else if (cut.mPartition == Partition::ROWS)
      counts.push_back(source.CountRows(piece.mRowBegin, piece.mRowEnd));
    else
      counts.push_back(piece.mEntryEnd - piece.mEntryBegin);
  }
  return counts;
}

// The pieces as the library gets them, and as the plan reports them.
std::vector<CountedMatrix> CountPieces(Source const& source, CutOptions const& cut, int count,
                                       std::vector<PlanRank>& ranks) {
  std::vector<Piece> pieces;
  pieces.reserve(static_cast<std::size_t>(count));
  for (int rank = 0; rank < count; ++rank)
    pieces.push_back(CutPiece(source.Whole(), cut, count, rank));
  std::vector<long> const counts = CountEntries(source, cut, pieces);
  std::vector<CountedMatrix> matrices;
  for (std::size_t r = 0; r < pieces.size(); ++r) {
    Piece const& piece = pieces[r];
    matrices.emplace_back(StoreTypeOf(cut.mFormat), piece.Rows(), piece.Cols(), counts[r]);
    matrices.back().PlaceIn(source.Whole().mRows, source.Whole().mCols, piece.mPartition);
    PlanRank& rank = ranks.emplace_back();
    rank.mRows = piece.Rows();
    rank.mCols = piece.Cols();
    rank.mBegin = piece.mPartition.begin;
    rank.mEntries = counts[r];
  }
  return matrices;
}

struct ElementBytes {
  long mValue = 0;
  long mIndex = 0;
};

ElementBytes BytesOf(ValueKind value, IndexKind index) {
  ElementBytes bytes;
  WithTypes(value, index, [&bytes](auto valueTag, auto indexTag) {
    bytes.mValue = sizeof(typename decltype(valueTag)::Type);
    bytes.mIndex = sizeof(typename decltype(indexTag)::Type);
  });
  return bytes;
}

// The arithmetic of a gather: what each rank takes from its pool and receives.
class Account {
 public:
  // `strided`: whether the communicator moves runs.
  Account(CutOptions const& cut, bool toAll, PieceDecision const& decision, ElementBytes bytes,
          bool strided)
      : mCut(cut),
        mToAll(toAll),
        mDecision(decision),
        mValueBytes(cut.mWithValues ? bytes.mValue : 0),
        mIndexBytes(bytes.mIndex),
        mMovesRuns(strided && IsDense(cut.mFormat) && InCollective(decision, toAll)) {}

  // Bytes of the arrays of a piece as the application holds it.
  long PieceBytes(PlanRank const& rank) const {
    if (IsDense(mCut.mFormat)) {
      bool const filled = rank.mEntries > 0;
      return filled ? ((Runs(rank) - 1) * (RunLength(rank) + mCut.mPad) + RunLength(rank)) *
                          mValueBytes
                    : 0;
    }
    return SparseBytes(rank.mRows, rank.mCols, rank.mEntries);
  }

  void Fill(std::vector<PlanRank>& ranks) const {
    int const count = static_cast<int>(ranks.size());
    for (int r = 0; r < count; ++r) {
      PlanRank& rank = ranks[static_cast<std::size_t>(r)];
      rank.mReceiver = r == 0 || mToAll;
      rank.mPeakPoolBytes = kRecordBytes * count + PeakOfPath(rank, r, count);
      if (count == 1) continue;
      rank.mCalls = 1;
      rank.mMessages = count - 1;
      rank.mMessageBytes = kRecordBytes * (count - 1);
      if (mDecision.mMode == DISTRIBUTED)
        ReceivePieces(ranks, rank);
      else if (mDecision.mMode == CENTRALIZED_ONE)
        ReceiveWhole(rank, r, count);
    }
  }

 private:
  // Whether values travel in calls of all ranks. From a holder to rank 0 they do not.
  static bool InCollective(PieceDecision const& decision, bool toAll) {
    return decision.mMode == DISTRIBUTED || (decision.mMode == CENTRALIZED_ONE && toAll);
  }
  bool ByRows() const {
    return mCut.mFormat == Format::CSR || mCut.mFormat == Format::DENSE_ROW;
  }
  long Compressed(long rows, long cols) const { return ByRows() ? rows : cols; }
  long Runs(PlanRank const& rank) const { return ByRows() ? rank.mRows : rank.mCols; }
  long RunLength(PlanRank const& rank) const { return ByRows() ? rank.mCols : rank.mRows; }

  // Bytes of the index and value arrays of a coordinate or compressed matrix.
  long SparseBytes(long rows, long cols, long entries) const {
    if (mCut.mFormat == Format::COO) return entries * (2 * mIndexBytes + mValueBytes);
    return (Compressed(rows, cols) + 1) * mIndexBytes + entries * (mIndexBytes + mValueBytes);
  }
  // How many arrays are moved, one after the other.
  int Arrays() const {
    if (IsDense(mCut.mFormat)) return 1;
    return mCut.mWithValues ? 3 : 2;
  }

  // The most bytes that a rank takes at once after the records.
  long PeakOfPath(PlanRank const& rank, int r, int count) const {
    if (mDecision.mMode == CENTRALIZED_ALL) return 0;
    bool const one = mDecision.mMode == CENTRALIZED_ONE;
    bool const holds = one && r == mDecision.mSource;
    long const countArrays = 2 * kCountBytes * count;
    long const base = !one && rank.mReceiver ? countArrays : 0;
    if (mMovesRuns) return base + RunsPeak(rank, count);
    if (IsDense(mCut.mFormat)) return base + DensePeak(rank, one ? 0 : countArrays);
    if (holds || (one && !rank.mReceiver)) return 0;
    long const whole =
        rank.mReceiver ? SparseBytes(mDecision.mRows, mDecision.mCols, mDecision.mEntries) : 0;
    if (one) return whole;
    if (mCut.mFormat == Format::COO) return base + whole + RoundBytes(rank, countArrays);
    return base + CompressedPeak(rank, whole, countArrays);
  }

  // The most bytes of a compressed gather. While the lengths travel, a rank holds their counts,
  // but neither indices nor values.
  long CompressedPeak(PlanRank const& rank, long whole, long countArrays) const {
    long const lengths = Compressed(rank.mRows, rank.mCols) * mIndexBytes;
    if (!rank.mReceiver) return lengths;
    long const offsets = (Compressed(mDecision.mRows, mDecision.mCols) + 1) * mIndexBytes;
    return std::max(whole + RoundBytes(rank, countArrays), offsets + countArrays + lengths);
  }

  // The counts and displacements of entries that take several calls.
  long RoundBytes(PlanRank const& rank, long countArrays) const {
    return rank.mReceiver && CallsFor(mDecision.mEntries) > 1 ? countArrays : 0;
  }

  // The most bytes of a dense gather: the gathered values, a packed copy of a piece with gaps,
  // and a second copy of the gathered values if bands are side by side in each run.
  long DensePeak(PlanRank const& rank, long countArrays) const {
    long const whole = rank.mReceiver ? mDecision.mEntries * mValueBytes : 0;
    bool const gaps = mCut.mPad != 0 && Runs(rank) > 1;
    long const packed = gaps ? rank.mEntries * mValueBytes : 0;
    return whole + packed + std::max(SideBySide() ? whole : 0, RoundBytes(rank, countArrays));
  }
  // The same over a communicator that moves runs: the gathered values, and where the piece of
  // each rank goes.
  long RunsPeak(PlanRank const& rank, int count) const {
    if (!rank.mReceiver) return 0;
    return mDecision.mEntries * mValueBytes + static_cast<long>(sizeof(Pavex::Runs)) * count;
  }
  bool SideBySide() const {
    if (mDecision.mMode != DISTRIBUTED) return false;
    bool const along =
        mDecision.mPartition.type == (ByRows() ? PARTITION_ROW_WISE : PARTITION_COLUMN_WISE);
    return !along && (ByRows() ? mDecision.mRows : mDecision.mCols) != 1;
  }

  // One call counts at most kMaxEntries elements, unless it moves runs.
  long CallsFor(long count) const {
    return mMovesRuns ? 1 : std::max(1L, (count - 1) / kMaxEntries + 1);
  }
  // How many calls move some of the `count` elements behind `before` earlier ones.
  long CallsWith(long before, long count) const {
    return mMovesRuns || count == 0
               ? 1
               : (before + count - 1) / kMaxEntries - before / kMaxEntries + 1;
  }

  // The calls for all arrays if those of the entries and those of the rows (columns) are so
  // many.
  long CallsForArrays(long callsForEntries, long callsForLines) const {
    if (!IsCompressed(mCut.mFormat)) return Arrays() * callsForEntries;
    return callsForLines + (Arrays() - 1) * callsForEntries;
  }

  // Each rank sends its share of each array.
  void ReceivePieces(std::vector<PlanRank> const& ranks, PlanRank& rank) const {
    rank.mCalls += CallsForArrays(CallsFor(mDecision.mEntries),
                                  CallsFor(Compressed(mDecision.mRows, mDecision.mCols)));
    if (!rank.mReceiver) return;
    long entries = 0;  // of the ranks before
    long lines = 0;
    for (PlanRank const& other : ranks) {
      long const ownLines = Compressed(other.mRows, other.mCols);
      if (&other != &rank) {
        rank.mMessages +=
            CallsForArrays(CallsWith(entries, other.mEntries), CallsWith(lines, ownLines));
        rank.mMessageBytes += ShareBytes(other);
      }
      entries += other.mEntries;
      lines += ownLines;
    }
  }
  long ShareBytes(PlanRank const& rank) const {
    if (IsDense(mCut.mFormat)) return rank.mEntries * mValueBytes;
    long const bytes = SparseBytes(rank.mRows, rank.mCols, rank.mEntries);
    bool const lengths = IsCompressed(mCut.mFormat);  // one less than offsets
    return lengths ? bytes - mIndexBytes : bytes;
  }

  // Counts what a receiver gets when the holder sends each array. If runs are moved, all ranks
  // contribute, most of them nothing.
  void ReceiveWhole(PlanRank& rank, int r, int count) const {
    bool const holds = r == mDecision.mSource;
    if (mMovesRuns) {
      ++rank.mCalls;
      if (rank.mReceiver) rank.mMessages += count - 1;
      if (rank.mReceiver && !holds) rank.mMessageBytes += mDecision.mEntries * mValueBytes;
      return;
    }
    bool const takesPart = mToAll || (mDecision.mSource != 0 && (holds || rank.mReceiver));
    if (!takesPart) return;
    long const calls =
        CallsForArrays(CallsFor(mDecision.mEntries),
                       CallsFor(Compressed(mDecision.mRows, mDecision.mCols) + 1));
    rank.mCalls += calls;
    if (holds) return;
    rank.mMessages += calls;
    rank.mMessageBytes += IsDense(mCut.mFormat) ? mDecision.mEntries * mValueBytes
                                                : SparseBytes(mDecision.mRows, mDecision.mCols,
                                                              mDecision.mEntries);
  }

  CutOptions const& mCut;
  bool mToAll;
  PieceDecision const& mDecision;
  long mValueBytes;
  long mIndexBytes;
  bool mMovesRuns;  // dense pieces go to their place in one call, without a copy in between
};

void WarnOfEmptyRanks(Plan const& plan, std::vector<std::string>& warnings) {
  if (plan.mCut.mPartition == Partition::ONE || plan.mRanks.size() == 1) return;
  auto const isEmpty = [](PlanRank const& rank) { return rank.mEntries == 0; };
  auto const first = std::find_if(plan.mRanks.begin(), plan.mRanks.end(), isEmpty);
  if (first == plan.mRanks.end()) return;
  warnings.push_back(std::to_string(std::count_if(first, plan.mRanks.end(), isEmpty)) + " of " +
                     std::to_string(plan.mRanks.size()) +
                     " ranks have no entries, the first is rank " +
                     std::to_string(first - plan.mRanks.begin()));
}

// The refusal of the command, which comes before the library sees the pieces. Empty if there is
// none.
std::string RefusalOf(Source const& source, Plan const& plan) {
  try {
    RefuseTooLarge(source.Name(), plan.mWhole, plan.mCut, plan.mRun.mIndex);
    RefuseEmptyPieces(ExtentsOf(plan.mRanks), plan.mWhole, plan.mCut);
  } catch (InputError const& refusal) {
    return refusal.what();
  }
  return plan.mDecided ? "" : "the library refuses these pieces";
}

// Warns if a compressed matrix has nearly as many entries as offsets of type int can count.
void JudgeEntries(Plan& plan) {
  bool const counts = IsCompressed(plan.mCut.mFormat) && plan.mRun.mIndex == IndexKind::INT;
  if (!counts || plan.mWhole.mEntries < kNearLimit || plan.mWhole.mEntries > kMaxEntries)
    return;
  plan.mWarnings.push_back(std::to_string(plan.mWhole.mEntries) + " entries are near the " +
                           std::to_string(kMaxEntries) +
                           " that offsets can count with --index int");
}

void AddWarnings(PieceDecision const& decision, Plan& plan) {
  plan.mWarnings = decision.mFindings;
  WarnOfEmptyRanks(plan, plan.mWarnings);
  JudgeEntries(plan);
}

}  // namespace

long Plan::Messages() const {
  long sum = 0;
  for (PlanRank const& rank : mRanks)
    sum += rank.mMessages;
  return sum;
}

long Plan::MessageBytes() const {
  long sum = 0;
  for (PlanRank const& rank : mRanks)
    sum += rank.mMessageBytes;
  return sum;
}

Plan MakePlan(Source const& source, CutOptions const& cut, RunOptions const& run,
              CommKind comm) {
  RefuseUncountable(source, cut.mFormat, run.mRanks);
  RefuseTooManyRanks(source.Whole(), cut, run.mRanks);
  Plan plan;
  plan.mComm = comm;
  plan.mInput = source.Name();
  plan.mField = NameOf(source.Kind());
  plan.mWhole = source.Whole();
  plan.mCut = cut;
  plan.mRun = run;
  plan.mValue = ChooseValue(source, run.mValue, cut.mWithValues);

  ElementBytes const bytes = BytesOf(plan.mValue, run.mIndex);
  PieceDecision const decision =
      DecideOn(CountPieces(source, cut, run.mRanks, plan.mRanks), cut.mWithValues,
               static_cast<std::size_t>(bytes.mValue), static_cast<std::size_t>(bytes.mIndex));
  plan.mDecided = decision.mStatus == STATUS_OK;
  plan.mMode = decision.mMode;
  plan.mDescription = decision.mDescription;
  plan.mRows = decision.mRows;
  plan.mCols = decision.mCols;
  plan.mEntries = decision.mEntries;

  // Threads and processes that share memory move runs; a rank alone moves nothing.
  bool const strided = comm != CommKind::MPI && run.mRanks > 1;
  Account const account(cut, run.mToAll, decision, bytes, strided);
  for (PlanRank& rank : plan.mRanks)
    rank.mBytes = account.PieceBytes(rank);
  if (plan.mDecided) account.Fill(plan.mRanks);
  plan.mRefusal = RefusalOf(source, plan);
  AddWarnings(decision, plan);
  return plan;
}

}  // namespace Pavex::Tool
