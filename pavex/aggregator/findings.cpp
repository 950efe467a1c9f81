// What is suspicious about records that a gather does not refuse.

#include "pavex/aggregator/plan.h"
#include "pavex/aggregator/rules.h"
#include "pavex/aggregator/words.h"
#include "pavex/runtime/wrapping.h"

#include <algorithm>

namespace Pavex {

namespace {

using Records = Buffer<MatrixLocalInfo>;
using Findings = std::vector<GatherFinding>;

// Adds one finding for the first process that `shows` it, with the number of those that do.
template <typename Shows>
void AddFirst(FindingKind kind, Records const& records, Shows const& shows, Findings& found) {
  GatherFinding finding{kind};
  finding.mProcesses = 0;
  for (std::int64_t p = 0; p < records.mSize; ++p) {
    if (!shows(records.mData[p])) continue;
    if (finding.mProcesses++ == 0) finding.mProcess = p;
  }
  if (finding.mProcesses != 0) found.push_back(finding);
}

// Whether the index arrays can number the rows and columns of the declared whole from 0.
bool CanBeNumbered(MatrixLocalInfo const& reference, GatherPlan const& plan) {
  if (plan.mKind == StoreKind::DENSE || plan.mIndexBytes >= sizeof(long)) return true;
  long const most = 1L << (8 * plan.mIndexBytes - 1);
  bool const rows = plan.mKind == StoreKind::CSR || reference.globalRows <= most;
  bool const cols = plan.mKind == StoreKind::CSC || reference.globalCols <= most;
  return rows && cols;
}

void FindSizes(MatrixLocalInfo const& reference, GatherPlan const& plan, Findings& found) {
  if (plan.mRows < 0 || plan.mCols < 0 || plan.mNnz < 0)
    found.push_back({FindingKind::NEGATIVE_SIZE});
  if (!CanBeNumbered(reference, plan)) found.push_back({FindingKind::INDEX_TOO_SMALL});
}

// In CENTRALIZED_ONE nothing is compared with what the holder says.
void FindOthersThanTheHolder(Records const& records, GatherPlan const& plan, Findings& found) {
  PavexMatrixStoreType const type = records.mData[plan.mReference].storeType;
  AddFirst(
      FindingKind::OTHER_CLASS, records,
      [&](MatrixLocalInfo const& info) { return StoreKindOf(info.storeType) != plan.mKind; },
      found);
  if (!StatesOrder(type)) return;
  AddFirst(
      FindingKind::OTHER_ORDER, records,
      [&](MatrixLocalInfo const& info) {
        return StatesOrder(info.storeType) && info.storeType != type;
      },
      found);
}

// A single process may declare that its piece is the whole.
bool IsLonePiece(Records const& records, GatherPlan const& plan) {
  MatrixLocalInfo const& info = records.mData[plan.mReference];
  if (info.partition.type == PARTITION_NONE) return false;
  if (plan.mMode == CENTRALIZED_ONE) return true;
  return records.mSize == 1 && !IsEmpty(info) &&
         (info.rows != info.globalRows || info.cols != info.globalCols);
}

// A matrix without entries has no value elements either.
void FindMissingValues(Records const& records, GatherPlan const& plan, Findings& found) {
  if (!plan.mWithValues || plan.mMode == CENTRALIZED_ALL) return;
  if (plan.mMode == DISTRIBUTED)
    AddFirst(
        FindingKind::NO_VALUES, records,
        [](MatrixLocalInfo const& info) { return info.nnz == 0; }, found);
  else if (plan.mNnz == 0)
    found.push_back({FindingKind::NO_VALUES, plan.mReference});
}

void FindUnknownOrder(Records const& records, GatherPlan const& plan, Findings& found) {
  if (plan.mKind != StoreKind::DENSE || !plan.mWithValues ||
      StatesOrder(records.mData[plan.mReference].storeType))
    return;
  for (std::int64_t const outside : plan.mOutside)
    if (outside != kNobody) found.push_back({FindingKind::ORDER_DECIDES, outside});
}

void AddLines(FindingKind kind, bool byRows, std::int64_t first, std::int64_t last,
              std::int64_t process, Findings& found) {
  if (first <= last) found.push_back({kind, process, 1, byRows, first, last});
}

// Bands together go from `begin` to before `end` of `declared` rows (columns).
void FindCover(bool byRows, std::int64_t begin, std::int64_t end, std::int64_t declared,
               Findings& found) {
  if (begin == 1 && end == WrappingAdd(declared, std::int64_t{1})) {
    found.push_back({FindingKind::COUNTED_FROM_ONE, 0, 1, byRows});
    return;
  }
  std::int64_t const covered = std::max<std::int64_t>(begin, 0);
  AddLines(FindingKind::OUTSIDE, byRows, begin, std::min<std::int64_t>(end, 0) - 1, kNobody,
           found);
  AddLines(FindingKind::UNCOVERED, byRows, 0, std::min(covered, declared) - 1, kNobody, found);
  AddLines(FindingKind::UNCOVERED, byRows, std::max<std::int64_t>(end, 0), declared - 1,
           kNobody, found);
  AddLines(FindingKind::OUTSIDE, byRows, std::max(covered, declared), end - 1, kNobody, found);
}

// Pieces with fewer rows (columns) than the whole are usual where no band is cut.
void FindWide(bool byRows, Records const& records, std::int64_t declared, Findings& found) {
  for (std::int64_t p = 0; p < records.mSize; ++p) {
    std::int64_t const lines = records.mData[p].Lines(byRows);
    if (lines <= declared) continue;
    return AddLines(FindingKind::OUTSIDE, byRows, declared, lines - 1, p, found);
  }
}

void FindPlaces(Records const& records, GatherPlan const& plan, Findings& found) {
  if (plan.mMode != DISTRIBUTED) return;
  MatrixLocalInfo const& first = records.mData[plan.mReference];
  if (first.globalRows < 0 || first.globalCols < 0)
    return;  // a negative size, or nothing moves
  for (bool const byRows : {true, false}) {
    std::int64_t const declared = byRows ? first.globalRows : first.globalCols;
    if (first.partition.type != BandsOf(byRows)) {
      FindWide(byRows, records, declared, found);
      continue;
    }
    std::int64_t const extent = byRows ? plan.mRows : plan.mCols;
    std::int64_t const begin = first.partition.begin;
    std::int64_t const end = WrappingAdd(begin, extent);
    if (extent >= 0 && end >= begin) FindCover(byRows, begin, end, declared, found);
  }
}

}  // namespace

std::vector<GatherFinding> FindSuspicious(Records const& records, GatherPlan const& plan) {
  Findings found;
  if (plan.mReference == kNobody || plan.Refused()) return found;
  FindSizes(records.mData[plan.mReference], plan, found);
  if (plan.mMode == CENTRALIZED_ONE) FindOthersThanTheHolder(records, plan, found);
  FindUnknownOrder(records, plan, found);
  FindMissingValues(records, plan, found);
  if (IsLonePiece(records, plan))
    found.push_back({FindingKind::LONE_PARTITION, plan.mReference});
  FindPlaces(records, plan, found);
  return found;
}

// --- In words

namespace {

std::string Gathered(GatherPlan const& plan) {
  std::string const who = plan.mMode == DISTRIBUTED ? "the pieces make "
                                                    : Words::Process(plan.mReference) + " has ";
  return who + Words::Shape(plan.mRows, plan.mCols) + " with " + Words::Text(plan.mNnz) +
         " entries; expected ";
}

std::string Declared(MatrixLocalInfo const& reference) {
  return "declared " + Words::Shape(reference.globalRows, reference.globalCols) + ": ";
}

std::string Others(GatherFinding const& finding) {
  if (finding.mProcesses < 2) return "";
  return " (the first of " + Words::Text(finding.mProcesses) + " such processes)";
}

// "process 1 has STORE_CSC_0, process 2 has STORE_CSR_0".
std::string StoreTypes(GatherFinding const& finding, Records const& records,
                       GatherPlan const& plan) {
  return Words::Process(finding.mProcess) + " has " +
         Words::StoreName(records.mData[finding.mProcess].storeType) + Others(finding) + ", " +
         Words::Process(plan.mReference) + " has " +
         Words::StoreName(records.mData[plan.mReference].storeType);
}

std::string LonePartition(GatherFinding const& finding, MatrixLocalInfo const& info) {
  return "only " + Words::Process(finding.mProcess) + " is not empty: its " +
         Words::Shape(info.rows, info.cols) + " piece of " +
         Words::Shape(info.globalRows, info.globalCols) + " (" +
         Words::PartitionName(info.partition.type) + " from " +
         Words::Text(info.partition.begin) + ") is treated as the whole matrix";
}

std::string CountedFromOne(GatherFinding const& finding, MatrixLocalInfo const& reference) {
  return Declared(reference) + "the bands have as many " + Words::Lines(finding.mByRows) +
         ", but begin at 1; expected begins that are counted from 0";
}

std::string Uncovered(GatherFinding const& finding, MatrixLocalInfo const& reference) {
  return Declared(reference) + "no process holds " +
         Words::Lines(finding.mByRows, finding.mFirst, finding.mLast);
}

std::string Outside(GatherFinding const& finding, MatrixLocalInfo const& reference) {
  std::string const who = finding.mProcess == kNobody ? std::string("the pieces")
                                                      : Words::Process(finding.mProcess);
  return Declared(reference) + Words::Lines(finding.mByRows, finding.mFirst, finding.mLast) +
         " of " + who + (finding.mFirst == finding.mLast ? " lies" : " lie") + " outside";
}

}  // namespace

std::string Describe(GatherFinding const& finding, Records const& records,
                     GatherPlan const& plan) {
  MatrixLocalInfo const& reference = records.mData[plan.mReference];
  switch (finding.mKind) {
    case FindingKind::NEGATIVE_SIZE:
      return Gathered(plan) + "no negative number";
    case FindingKind::INDEX_TOO_SMALL:
      return Declared(reference) + "indices of " +
             Words::Text(static_cast<long>(plan.mIndexBytes)) +
             " bytes cannot number all its rows and columns";
    case FindingKind::OTHER_CLASS:
      return StoreTypes(finding, records, plan) +
             "; expected the same format (another one throws std::bad_cast)";
    case FindingKind::OTHER_ORDER:
      return StoreTypes(finding, records, plan) +
             ", and each stores received elements in its own order";
    case FindingKind::ORDER_DECIDES:
      return Words::StoreName(reference.storeType) +
             " does not say the order of the elements, and in one order " +
             Words::Process(finding.mProcess) + " lies outside the gathered matrix";
    case FindingKind::NO_VALUES:
      return Words::Process(finding.mProcess) + " has no entries" + Others(finding) +
             ", so no values to send: it fails, and the others may wait for it";
    case FindingKind::LONE_PARTITION:
      return LonePartition(finding, reference);
    case FindingKind::COUNTED_FROM_ONE:
      return CountedFromOne(finding, reference);
    case FindingKind::UNCOVERED:
      return Uncovered(finding, reference);
    case FindingKind::OUTSIDE:
      return Outside(finding, reference);
  }
  return "";  // GCOVR_EXCL_LINE
}

}  // namespace Pavex
