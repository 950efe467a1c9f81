// A plan and its records in words.

#include "pavex/aggregator/plan.h"
#include "pavex/aggregator/rules.h"
#include "pavex/aggregator/words.h"
#include "pavex/runtime/wrapping.h"

namespace Pavex {

namespace {

using Records = Buffer<MatrixLocalInfo>;
using Words::Process;
using Words::Shape;
using Words::Text;

// Of many processes as many are listed at each end.
constexpr std::int64_t kListed = 4;

// --- Why the records are refused

// The first process that is empty, or is not; there is one.
std::int64_t FirstThatIs(bool empty, Records const& records) {
  std::int64_t p = 0;
  while (IsEmpty(records.mData[p]) != empty)
    ++p;
  return p;
}

std::string SomeEmpty(GatherPlan const& plan, Records const& records) {
  std::int64_t const count = records.mSize;
  return Text(plan.mEmpty) + " of " + Text(count) + " processes are empty (the first is " +
         Process(FirstThatIs(true, records)) + "), the others are not (the first is " +
         Process(plan.mSource) + "); expected 0, " + Text(count - 1) + " or " + Text(count) +
         " empty processes";
}

// "process 0 has ..., process 1 has ...; expected the same".
template <typename InWords>
std::string Both(GatherPlan const& plan, Records const& records, InWords const& inWords) {
  std::int64_t const first = plan.mProcess;
  return Process(first) + " has " + inWords(records.mData[first]) + ", " + Process(first + 1) +
         " has " + inWords(records.mData[first + 1]) + "; expected the same";
}

std::string NotAdjacent(GatherPlan const& plan, Records const& records) {
  MatrixLocalInfo const& a = records.mData[plan.mProcess];
  MatrixLocalInfo const& b = records.mData[plan.mProcess + 1];
  bool const byRows = a.partition.type == PARTITION_ROW_WISE;
  std::string const what = byRows ? "row" : "column";
  std::int64_t const expected = AdjacentBegin(a);
  std::int64_t const lines = a.Lines(byRows);
  return Process(plan.mProcess + 1) + " begins at " + what + " " + Text(b.partition.begin) +
         "; expected " + Text(expected) + ", because " + Process(plan.mProcess) +
         " begins at " + Text(a.partition.begin) + " and has " + Text(lines) + " " + what +
         (lines == 1 ? "" : "s") +
         (b.partition.begin > expected ? " (a gap)" : " (an overlap)");
}

std::string BadCount(GatherPlan const& plan, Records const& records) {
  std::int64_t const entries = records.mData[plan.mProcess].nnz;
  return Process(plan.mProcess) + " has " + Text(entries) + " entries; expected " +
         (entries < 0 ? "0 or more" : "all entries together to fit into memory");
}

std::string Offsets(GatherPlan const& plan, Records const& records) {
  bool const byRows = plan.mKind == StoreKind::CSR;
  std::string const what = " " + Words::Lines(byRows);
  std::string const count = Text(byRows ? plan.mRows : plan.mCols);
  if (plan.mFlaw == GatherFlaw::OFFSETS_TOO_SMALL)
    return "the pieces have " + Text(plan.mNnz) + " entries together; offsets of " +
           Text(static_cast<long>(plan.mIndexBytes)) + " bytes cannot count them, use long";
  if (plan.mFlaw == GatherFlaw::TOO_MANY_OFFSETS) {
    bool const alone = plan.mMode == CENTRALIZED_ONE;
    return (alone ? Process(plan.mProcess) + " has " : std::string("the pieces have ")) +
           count + what + (alone ? "" : " together") +
           "; expected offsets that fit into memory";
  }
  MatrixLocalInfo const& info = records.mData[plan.mProcess];
  std::int64_t const first = records.mData[plan.mReference].partition.begin;
  return Process(plan.mProcess) + " has " + Text(info.Lines(byRows)) + what +
         " that are placed from " + Text(WrappingSub(info.partition.begin, first)) +
         " on; expected all of them inside the " + count + " gathered" + what;
}

// The first band of another width (height) than the whole; nothing if there is none.
std::string OtherExtent(GatherPlan const& plan, Records const& records) {
  std::int32_t const cut = records.mData[plan.mReference].partition.type;
  if (cut == PARTITION_NONZERO_WISE) return "";
  bool const byRows = cut == PARTITION_ROW_WISE;
  std::int64_t const expected = byRows ? plan.mCols : plan.mRows;
  for (std::int64_t p = 0; p < records.mSize; ++p) {
    std::int64_t const extent = records.mData[p].Lines(!byRows);
    if (extent != expected)
      return Process(p) + " has " + Text(extent) + " " + Words::Lines(!byRows) + "; expected " +
             Text(expected) + ", as many as the whole matrix";
  }
  return "";
}

std::string Values(GatherPlan const& plan, Records const& records) {
  std::string const gathered = Shape(plan.mRows, plan.mCols);
  std::string const expected = Text(WrappingMul(plan.mRows, plan.mCols));
  std::string const entries = " with " + Text(plan.mNnz) + " entries; expected " + expected;
  if (plan.mMode == CENTRALIZED_ONE)
    return Process(plan.mReference) + " has " + gathered + entries;
  std::string band = OtherExtent(plan, records);
  if (!band.empty()) return band;
  if (plan.mFlaw == GatherFlaw::NOT_FILLED)
    return "the pieces make a dense matrix of " + gathered + entries;
  MatrixLocalInfo const& info = records.mData[plan.mProcess];
  return Process(plan.mProcess) + " has " + Shape(info.rows, info.cols) +
         ", placed after the earlier pieces; expected all of it inside the gathered " +
         gathered;
}

std::string ShapeOf(MatrixLocalInfo const& info, DistMatrixMode mode) {
  std::string const whole = Shape(info.globalRows, info.globalCols);
  if (mode == DISTRIBUTED) return "a piece of " + whole;
  return Shape(info.rows, info.cols) + " of " + whole;
}

std::string Why(GatherPlan const& plan, Records const& records) {
  using Info = MatrixLocalInfo;
  auto const both = [&](auto const& inWords) { return Both(plan, records, inWords); };
  switch (plan.mFlaw) {
    case GatherFlaw::CODES:
      return both(Words::Codes);
    case GatherFlaw::STORE_TYPE:
      return both([](Info const& info) { return Words::StoreName(info.storeType); });
    case GatherFlaw::PARTITION_TYPE:
      return both([](Info const& info) { return Words::PartitionName(info.partition.type); });
    case GatherFlaw::UNKNOWN_PARTITION:
      return Process(plan.mProcess) + " and " + Process(plan.mProcess + 1) + " have " +
             Words::PartitionName(records.mData[plan.mProcess].partition.type) +
             "; expected row-wise, column-wise or nonzero-wise";
    case GatherFlaw::NOT_ADJACENT:
      return NotAdjacent(plan, records);
    case GatherFlaw::DIMENSION:
      return both([&plan](Info const& info) { return ShapeOf(info, plan.mMode); });
    case GatherFlaw::FLAG:
      return both(
          [](Info const& info) { return "the flag " + Words::Flag(info.WithValues()); });
    case GatherFlaw::SOME_EMPTY:
      return SomeEmpty(plan, records);
    case GatherFlaw::BAD_COUNT:
      return BadCount(plan, records);
    case GatherFlaw::UNKNOWN_STORE_TYPE:
      return Process(plan.mReference) + " has " +
             Words::StoreName(records.mData[plan.mReference].storeType) + "; expected 0 to 12";
    case GatherFlaw::OFFSETS_TOO_SMALL:
    case GatherFlaw::TOO_MANY_OFFSETS:
    case GatherFlaw::LENGTHS_OUTSIDE:
      return Offsets(plan, records);
    case GatherFlaw::NOT_FILLED:
    case GatherFlaw::RUNS_OUTSIDE:
      return Values(plan, records);
    case GatherFlaw::NONE:  // GCOVR_EXCL_LINE: only a flaw is explained
      break;                // GCOVR_EXCL_LINE
  }
  return "";  // GCOVR_EXCL_LINE
}

// --- The verdict, the mode and the records

std::int64_t Missing(Records const& records) {
  std::int64_t missing = 0;
  for (std::int64_t p = 0; p < records.mSize; ++p)
    missing += records.mData[p].Arrived() ? 0 : 1;
  return missing;
}

std::string Verdict(GatherPlan const& plan, Records const& records) {
  if (plan.Refused())
    return "refused: " + Why(plan, records) + "\nstage: " + GatherStageStr(plan.mStage) + "\n";
  std::string const gathered = Shape(plan.mRows, plan.mCols) + " with " + Text(plan.mNnz) +
                               " entries, " + Words::Flag(plan.mWithValues) + "\n";
  std::string text;
  for (GatherFinding const& finding : FindSuspicious(records, plan))
    text += (text.empty() ? "agreed, but " : "and ") + Describe(finding, records, plan) + "\n";
  return text + (text.empty() ? "agreed: " : "gathered: ") + gathered;
}

std::string Mode(GatherPlan const& plan, Records const& records) {
  if (plan.mStage == GatherStage::MODE) return "mode not decided\n";
  std::string line = std::string("mode ") + DistMatrixModeStr(plan.mMode) + ": ";
  if (plan.mMode == DISTRIBUTED)
    line += "every process holds a piece";
  else if (plan.mMode == CENTRALIZED_ONE)
    line += Process(plan.mSource) + " holds the whole matrix";
  else if (plan.mSource == kNobody)
    line += "no process holds anything";
  else
    line += records.mSize == 1 ? "a single process holds the whole matrix"
                               : "every process holds the whole matrix";
  return line + "\n";
}

std::string List(Records const& records, Listed listed) {
  std::int64_t const count = records.mSize;
  std::int64_t const hidden = listed == Listed::ALL ? 0 : count - 2 * kListed;
  std::string text = Text(count) + (count == 1 ? " process\n" : " processes\n");
  for (std::int64_t p = 0; p < count; ++p) {
    if (p == kListed && hidden > 1) {
      text += "... " + Text(hidden) + " more ...\n";
      p += hidden;
    }
    text += Process(p) + ": " + Words::Record(records.mData[p]) + "\n";
  }
  return text;
}

}  // namespace

std::string Describe(Records const& records, GatherPlan const& plan, Listed listed) {
  if (records.mSize <= 0) return "no records: no gather has come to its exchange yet\n";
  std::int64_t const missing = Missing(records);
  if (missing > 0)
    return "refused: " + Text(missing) + " of " + Text(records.mSize) +
           " records never arrived\nstage: exchange\nmode not decided\n" +
           List(records, listed);
  return Verdict(plan, records) + Mode(plan, records) + List(records, listed);
}

}  // namespace Pavex
