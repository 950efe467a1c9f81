#include "tools/plan/plan.h"

#include "pavex/aggregator/local_info.h"
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

void RefuseUncountable(Source const& source, GatherOptions const& options) {
  Extent const& whole = source.Whole();
  long const entries = IsDense(options.mFormat) ? whole.mRows * whole.mCols : whole.mEntries;
  long const most = kMostEntriesOfAllRanks / options.mRanks;
  if (entries > most)
    throw InputError(source.Name() + " has " + std::to_string(entries) +
                     " entries, more than the " + std::to_string(most) +
                     " that a plan can count on " + std::to_string(options.mRanks) +
                     (options.mRanks == 1 ? " rank" : " ranks"));
}

// The entries of all pieces, counted without a matrix in memory.
std::vector<long> CountEntries(Source const& source, GatherOptions const& options,
                               std::vector<Piece> const& pieces) {
  std::vector<long> counts;
  if (options.mPartition == Partition::COLUMNS && !IsDense(options.mFormat)) {
    std::vector<long> bounds = {0};
    for (Piece const& piece : pieces)
      bounds.push_back(piece.mColEnd);
    return source.CountCols(bounds);
  }
  for (Piece const& piece : pieces) {
    if (IsDense(options.mFormat))
      counts.push_back(piece.Rows() * piece.Cols());
    else if (options.mPartition == Partition::ROWS)
      counts.push_back(source.CountRows(piece.mRowBegin, piece.mRowEnd));
    else
      counts.push_back(piece.mEntryEnd - piece.mEntryBegin);
  }
  return counts;
}

// The pieces as the library gets them, and as the plan reports them.
std::vector<CountedMatrix> CountPieces(Source const& source, GatherOptions const& options,
                                       std::vector<PlanRank>& ranks) {
  std::vector<Piece> pieces;
  pieces.reserve(static_cast<std::size_t>(options.mRanks));
  for (int rank = 0; rank < options.mRanks; ++rank)
    pieces.push_back(CutPiece(source.Whole(), options.mPartition, options.mRanks, rank,
                              options.mHolder, options.mCuts));
  std::vector<long> const counts = CountEntries(source, options, pieces);
  std::vector<CountedMatrix> matrices;
  for (std::size_t r = 0; r < pieces.size(); ++r) {
    Piece const& piece = pieces[r];
    matrices.emplace_back(StoreTypeOf(options.mFormat), piece.Rows(), piece.Cols(), counts[r]);
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

ElementBytes BytesOf(ValueKind value, GatherOptions const& options) {
  ElementBytes bytes;
  WithTypes(value, options.mIndex, [&bytes](auto valueTag, auto indexTag) {
    bytes.mValue = sizeof(typename decltype(valueTag)::Type);
    bytes.mIndex = sizeof(typename decltype(indexTag)::Type);
  });
  return bytes;
}

// The arithmetic of a gather: what each rank takes from its pool and receives.
class Account {
 public:
  Account(GatherOptions const& options, PieceDecision const& decision, ElementBytes bytes)
      : mOptions(options),
        mDecision(decision),
        mValueBytes(options.mWithValues ? bytes.mValue : 0),
        mIndexBytes(bytes.mIndex) {}

  // Bytes of the arrays of a piece as the application holds it.
  long PieceBytes(PlanRank const& rank) const {
    if (IsDense(mOptions.mFormat)) {
      bool const filled = rank.mEntries > 0;
      return filled ? ((Runs(rank) - 1) * (RunLength(rank) + mOptions.mPad) + RunLength(rank)) *
                          mValueBytes
                    : 0;
    }
    return SparseBytes(rank.mRows, rank.mCols, rank.mEntries);
  }

  void Fill(std::vector<PlanRank>& ranks) const {
    int const count = static_cast<int>(ranks.size());
    for (int r = 0; r < count; ++r) {
      PlanRank& rank = ranks[static_cast<std::size_t>(r)];
      rank.mReceiver = r == 0 || mOptions.mToAll;
      rank.mPeakPoolBytes = kRecordBytes * count + PeakOfPath(rank, r, count);
      if (count == 1) continue;
      rank.mCalls = 1;
      rank.mMessages = count - 1;
      rank.mMessageBytes = kRecordBytes * (count - 1);
      if (mDecision.mMode == DISTRIBUTED)
        ReceivePieces(ranks, rank);
      else if (mDecision.mMode == CENTRALIZED_ONE)
        ReceiveWhole(rank, r);
    }
  }

 private:
  bool ByRows() const {
    return mOptions.mFormat == Format::CSR || mOptions.mFormat == Format::DENSE_ROW;
  }
  long Compressed(long rows, long cols) const { return ByRows() ? rows : cols; }
  long Runs(PlanRank const& rank) const { return ByRows() ? rank.mRows : rank.mCols; }
  long RunLength(PlanRank const& rank) const { return ByRows() ? rank.mCols : rank.mRows; }

  // Bytes of the index and value arrays of a coordinate or compressed matrix.
  long SparseBytes(long rows, long cols, long entries) const {
    if (mOptions.mFormat == Format::COO) return entries * (2 * mIndexBytes + mValueBytes);
    return (Compressed(rows, cols) + 1) * mIndexBytes + entries * (mIndexBytes + mValueBytes);
  }
  // How many arrays are moved, one after the other.
  int Arrays() const {
    if (IsDense(mOptions.mFormat)) return 1;
    return mOptions.mWithValues ? 3 : 2;
  }

  // The most bytes that a rank takes at once after the records.
  long PeakOfPath(PlanRank const& rank, int r, int count) const {
    if (mDecision.mMode == CENTRALIZED_ALL) return 0;
    bool const one = mDecision.mMode == CENTRALIZED_ONE;
    bool const holds = one && r == mDecision.mSource;
    long const countArrays = 2 * kCountBytes * count;
    long const base = !one && rank.mReceiver ? countArrays : 0;
    if (IsDense(mOptions.mFormat)) return base + DensePeak(rank);
    if (holds || (one && !rank.mReceiver)) return 0;
    long const whole =
        rank.mReceiver ? SparseBytes(mDecision.mRows, mDecision.mCols, mDecision.mEntries) : 0;
    if (one || mOptions.mFormat == Format::COO) return base + whole;
    return base + CompressedPeak(rank, whole, countArrays);
  }

  // The most bytes of a compressed gather. While the lengths travel, a rank holds their counts,
  // but neither indices nor values.
  long CompressedPeak(PlanRank const& rank, long whole, long countArrays) const {
    long const lengths = Compressed(rank.mRows, rank.mCols) * mIndexBytes;
    if (!rank.mReceiver) return lengths;
    long const offsets = (Compressed(mDecision.mRows, mDecision.mCols) + 1) * mIndexBytes;
    return std::max(whole, offsets + countArrays + lengths);
  }

  // The most bytes of a dense gather: the gathered values, a packed copy of a piece with gaps,
  // and a second copy of the gathered values if bands are side by side in each run.
  long DensePeak(PlanRank const& rank) const {
    long const whole = rank.mReceiver ? mDecision.mEntries * mValueBytes : 0;
    bool const gaps = mOptions.mPad != 0 && Runs(rank) > 1;
    long const packed = gaps ? rank.mEntries * mValueBytes : 0;
    return whole + packed + (SideBySide() ? whole : 0);
  }
  bool SideBySide() const {
    if (mDecision.mMode != DISTRIBUTED) return false;
    bool const along =
        mDecision.mPartition.type == (ByRows() ? PARTITION_ROW_WISE : PARTITION_COLUMN_WISE);
    return !along && (ByRows() ? mDecision.mRows : mDecision.mCols) != 1;
  }

  // Counts what a receiver gets when each rank sends its share of each array.
  void ReceivePieces(std::vector<PlanRank> const& ranks, PlanRank& rank) const {
    rank.mCalls += Arrays();
    if (!rank.mReceiver) return;
    for (PlanRank const& other : ranks) {
      if (&other == &rank) continue;
      rank.mMessages += Arrays();
      rank.mMessageBytes += ShareBytes(other);
    }
  }
  long ShareBytes(PlanRank const& rank) const {
    if (IsDense(mOptions.mFormat)) return rank.mEntries * mValueBytes;
    long const bytes = SparseBytes(rank.mRows, rank.mCols, rank.mEntries);
    bool const lengths = IsCompressed(mOptions.mFormat);  // one less than offsets
    return lengths ? bytes - mIndexBytes : bytes;
  }

  // Counts what a receiver gets when the holder sends each array.
  void ReceiveWhole(PlanRank& rank, int r) const {
    bool const holds = r == mDecision.mSource;
    bool const takesPart =
        mOptions.mToAll || (mDecision.mSource != 0 && (holds || rank.mReceiver));
    if (!takesPart) return;
    rank.mCalls += Arrays();
    if (holds) return;
    rank.mMessages += Arrays();
    rank.mMessageBytes +=
        IsDense(mOptions.mFormat)
            ? mDecision.mEntries * mValueBytes
            : SparseBytes(mDecision.mRows, mDecision.mCols, mDecision.mEntries);
  }

  GatherOptions const& mOptions;
  PieceDecision const& mDecision;
  long mValueBytes;
  long mIndexBytes;
};

void WarnOfEmptyRanks(Plan const& plan, std::vector<std::string>& warnings) {
  if (plan.mOptions.mPartition == Partition::ONE || plan.mRanks.size() == 1) return;
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
    source.CheckEntries();
    RefuseTooLarge(plan.mWhole, plan.mOptions);
    RefuseEmptyPieces(ExtentsOf(plan.mRanks), plan.mWhole, plan.mOptions);
  } catch (InputError const& refusal) {
    return refusal.what();
  }
  return plan.mDecided ? "" : "the library refuses these pieces";
}

// Warns if a count is near the most that one gather can place. A larger count becomes the
// refusal of the plan, unless there is one.
void JudgeCount(std::string const& what, long count, Plan& plan) {
  if (count < kNearLimit) return;
  std::string const limit = std::to_string(kMaxEntries) + " that one gather can place";
  std::string const counted = std::to_string(count) + " " + what;
  if (count <= kMaxEntries)
    plan.mWarnings.push_back(counted + " are near the " + limit);
  else if (plan.Accepted())
    plan.mRefusal = counted + " are more than the " + limit;
}

void JudgeCounts(Plan& plan) {
  auto const movesArrays = [](PlanRank const& rank) { return rank.mCalls > 1; };
  if (std::none_of(plan.mRanks.begin(), plan.mRanks.end(), movesArrays)) return;
  JudgeCount("entries", plan.mEntries, plan);
  if (!IsCompressed(plan.mOptions.mFormat)) return;
  long const lengths = plan.mOptions.mFormat == Format::CSR ? plan.mRows : plan.mCols;
  if (plan.mMode == CENTRALIZED_ONE)
    JudgeCount("offsets", lengths + 1, plan);
  else
    JudgeCount("lengths", lengths, plan);
}

void AddWarnings(PieceDecision const& decision, Plan& plan) {
  plan.mWarnings = decision.mFindings;
  WarnOfEmptyRanks(plan, plan.mWarnings);
  JudgeCounts(plan);
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

Plan MakePlan(Source const& source, GatherOptions const& options) {
  RefuseUncountable(source, options);
  RefuseTooManyRanks(source.Whole(), options, options.mRanks);
  Plan plan;
  plan.mInput = source.Name();
  plan.mField = NameOf(source.Kind());
  plan.mWhole = source.Whole();
  plan.mOptions = options;
  plan.mValue = ChooseValue(source, options.mValue, options.mWithValues);

  ElementBytes const bytes = BytesOf(plan.mValue, options);
  PieceDecision const decision =
      DecideOn(CountPieces(source, options, plan.mRanks), options.mWithValues,
               static_cast<std::size_t>(bytes.mValue), static_cast<std::size_t>(bytes.mIndex));
  plan.mDecided = decision.mStatus == STATUS_OK;
  plan.mMode = decision.mMode;
  plan.mDescription = decision.mDescription;
  plan.mRows = decision.mRows;
  plan.mCols = decision.mCols;
  plan.mEntries = decision.mEntries;

  Account const account(options, decision, bytes);
  for (PlanRank& rank : plan.mRanks)
    rank.mBytes = account.PieceBytes(rank);
  if (plan.mDecided) account.Fill(plan.mRanks);
  plan.mRefusal = RefusalOf(source, plan);
  AddWarnings(decision, plan);
  return plan;
}

}  // namespace Pavex::Tool
