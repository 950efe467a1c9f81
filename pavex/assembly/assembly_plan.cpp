#include "pavex/assembly/assembly_plan.h"

#include "pavex/assembly/decisions.h"
#include "pavex/assembly/renumbered_comm.h"
#include "pavex/runtime/wrapping.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace Pavex {

namespace {

using Records = Buffer<AssemblyRecord>;

constexpr std::int64_t kMostOfAll = std::numeric_limits<std::int64_t>::max();

void Refuse(AssemblyPlan& plan, AssemblyFlaw flaw, std::int64_t process) {
  if (plan.Refused()) return;
  plan.mFlaw = flaw;
  plan.mProcess = process;
}

AssemblyFlaw Compare(AssemblyRecord const& first, AssemblyRecord const& other) {
  if (other.mWholeRows != first.mWholeRows || other.mWholeCols != first.mWholeCols)
    return AssemblyFlaw::OTHER_SHAPE;
  if (other.mReceiver != first.mReceiver) return AssemblyFlaw::OTHER_RECEIVER;
  if (other.mWithValues != first.mWithValues) return AssemblyFlaw::OTHER_VALUES;
  if (other.mSortColumns != first.mSortColumns) return AssemblyFlaw::OTHER_ORDER;
  return other.mBase == first.mBase ? AssemblyFlaw::NONE : AssemblyFlaw::OTHER_BASE;
}

// Whether `rows` rows from `begin` on are rows of a whole of `wholeRows`.
bool AreInside(std::int64_t begin, std::int64_t rows, std::int64_t wholeRows) {
  return rows <= 0 || (begin >= 0 && begin <= wholeRows && rows <= wholeRows - begin);
}

// Whether a process that has checked itself can have sent the record: others place its rows,
// and merging its entries has made no new ones.
bool IsSound(AssemblyRecord const& record) {
  std::int64_t const wholeRows = record.mWholeRows;
  if (record.mGiven < record.mNnz) return false;
  bool const listed = record.mOwnBegin == AssemblyRecord::kList;
  if (!listed && !AreInside(record.mOwnBegin, record.mOwnRows, wholeRows)) return false;
  if (record.mBegin == AssemblyRecord::kList) return listed && record.mRows == record.mOwnRows;
  bool const touched = record.mBegin == AssemblyRecord::kTouched;
  return AreInside(touched ? 0 : record.mBegin, record.mRows, wholeRows);
}

// What the records may count at most.
struct Limits {
  std::int64_t mRows;
  std::int64_t mEntries;
};

void Count(AssemblyRecord const& record, std::int64_t process, Limits const& limits,
           AssemblyPlan& plan) {
  plan.mRows = WrappingAdd(plan.mRows, std::max(record.mRows, std::int64_t{1}));
  plan.mNnz = WrappingAdd(plan.mNnz, record.mNnz);
  plan.mListed = WrappingAdd(plan.mListed, record.Listed());
  plan.mTouched = WrappingAdd(plan.mTouched, record.Touched());
  std::int64_t const rows = std::max({plan.mRows, plan.mListed, record.mRows});
  std::int64_t const entries = std::max(plan.mNnz, record.mNnz);
  bool const wraps = (record.mNnz | record.mRows | record.mOwnRows | plan.mRows | plan.mNnz |
                      plan.mListed) < 0;
  if (wraps || rows > limits.mRows || entries > limits.mEntries)
    Refuse(plan, AssemblyFlaw::TOO_MANY_IN_ALL, process);
}

// Sorts the ranks whose pieces have rows by their begins, the others behind them. Returns
// whether the pieces are bands that do not overlap.
bool OrderBands(Records const& records, Buffer<int> const& order) {
  AssemblyRecord const* const record = records.mData;
  int* const end = order.mData + order.mSize;
  bool bands = true;
  for (std::int64_t p = 0; p < records.mSize; ++p) {
    bands = bands && (record[p].mRows == 0 || record[p].mBegin >= 0);
  }
  if (!bands) return false;
  auto const key = [record](int rank) {
    std::int64_t const begin = record[rank].mRows == 0 ? kMostOfAll : record[rank].mBegin;
    return std::pair(begin, rank);
  };
  std::sort(order.mData, end, [key](int a, int b) { return key(a) < key(b); });
  for (int const* rank = order.mData; rank + 1 < end && record[rank[1]].mRows != 0; ++rank) {
    AssemblyRecord const& band = record[rank[0]];
    if (band.mBegin + band.mRows > record[rank[1]].mBegin) return false;
  }
  return true;
}

// Whether the entries of bands lie in the order of the seats: then they may go in rounds.
bool FollowSeats(Records const& records, Buffer<int> const& order) {
  int seat = -1;
  for (std::int64_t k = 0; k < order.mSize; ++k) {
    AssemblyRecord const& record = records.mData[order.mData[k]];
    if (record.mNnz == 0) continue;
    int const next = RenumberedComm::SeatOf(order.mData[k], record.mReceiver);
    if (next < seat) return false;
    seat = next;
  }
  return true;
}

// Refuses more entries than one call counts.
void RefuseRounds(Records const& records, AssemblyPlan& plan) {
  std::int64_t entries = 0;
  for (std::int64_t p = 0; p < records.mSize; ++p) {
    entries += records.mData[p].mNnz;
    if (entries > kMostCounted) Refuse(plan, AssemblyFlaw::TOO_MANY_IN_ALL, p);
  }
}

void InRankOrder(Buffer<int> const& order) {
  for (std::int64_t p = 0; p < order.mSize; ++p) {
    order.mData[p] = static_cast<int>(p);
  }
}

}  // namespace

void AssemblyVerdict::Note(AssemblyFlaw flaw, std::int64_t at, std::int64_t found,
                           std::int64_t limit) noexcept {
  if (!Flawless()) return;
  mFlaw = static_cast<std::int16_t>(flaw);
  mAt = at;
  mFound = found;
  mLimit = limit;
}

void AssemblyVerdict::NoteMissing(AssemblyArray array) noexcept {
  Note(AssemblyFlaw::MISSING_ARRAY, 0, 0, static_cast<std::int64_t>(array));
}

void AssemblyVerdict::NoteStep(PavexStatus status) noexcept {
  if (status == STATUS_OK || !Flawless()) return;
  Note(AssemblyFlaw::FAILED_STEP, 0, 0, 0);
  mStatus = status;
}

char const* AssemblyPathStr(AssemblyPath path) noexcept {
  switch (path) {
    case AssemblyPath::BANDS:
      return "bands";
    case AssemblyPath::MERGE:
      return "merge";
    case AssemblyPath::NOTHING:
      break;
  }
  return "nothing";
}

AssemblyPlan FirstFault(Records const& records) {
  AssemblyPlan plan;
  for (std::int64_t p = 0; p < records.mSize && !plan.Refused(); ++p) {
    AssemblyRecord const& record = records.mData[p];
    if (!record.Flawless()) Refuse(plan, static_cast<AssemblyFlaw>(record.mFlaw), p);
  }
  for (std::int64_t p = 1; p < records.mSize && !plan.Refused(); ++p) {
    if (records.mData[p].mOperation != records.mData[0].mOperation)
      Refuse(plan, AssemblyFlaw::OTHER_OPERATION, p);
  }
  return plan;
}

AssemblyPlan PlanAssembly(Records const& records, Buffer<int> const& order, std::int64_t most) {
  bool const alone = records.mSize == 1;  // sends nothing
  Limits const limits = {alone ? most : kMostCounted, most};
  AssemblyPlan plan = FirstFault(records);
  InRankOrder(order);
  for (std::int64_t p = 0; p < records.mSize && !plan.Refused(); ++p) {
    AssemblyRecord const& record = records.mData[p];
    Refuse(plan, Compare(records.mData[0], record), p);
    if (!IsSound(record)) Refuse(plan, AssemblyFlaw::UNSOUND_RECORD, p);
    Count(record, p, limits, plan);
  }
  if (records.mData[0].mBase != 0 && plan.mNnz == most)
    Refuse(plan, AssemblyFlaw::TOO_MANY_FROM_1, records.mSize - 1);
  if (plan.Refused() || plan.mNnz == 0) return plan;
  bool const bands = OrderBands(records, order);
  if (!alone && !(bands && FollowSeats(records, order))) RefuseRounds(records, plan);
  if (plan.Refused()) return plan;
  plan.mPath = bands ? AssemblyPath::BANDS : AssemblyPath::MERGE;
  if (!bands) InRankOrder(order);
  return plan;
}

}  // namespace Pavex
