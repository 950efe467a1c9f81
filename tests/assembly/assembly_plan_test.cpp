// The decision of an assembly and its price, from records alone: those of peers may contain any
// bytes, and neither takes memory.

#include "pavex/aggregator/local_info.h"
#include "pavex/assembly/decisions.h"

#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <new>
#include <vector>

namespace {
std::atomic<long> takenFromHeap{0};
}  // namespace

// Counts what the decision takes from the heap.
void* operator new(std::size_t bytes) {
  ++takenFromHeap;
  if (void* const block = std::malloc(bytes)) return block;
  throw std::bad_alloc();
}
void* operator new(std::size_t bytes, std::nothrow_t const& /*tag*/) noexcept {
  ++takenFromHeap;
  return std::malloc(bytes);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t /*bytes*/) noexcept {
  std::free(block);
}
void operator delete(void* block, std::nothrow_t const& /*tag*/) noexcept {
  std::free(block);
}

namespace Pavex {
namespace {

constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();

AssemblyRecord WithEntries(AssemblyRecord record, std::int64_t entries) {
  record.mGiven = record.mNnz = entries;
  return record;
}

// A band of a whole with 10 rows and one entry per row.
AssemblyRecord Band(std::int64_t begin, std::int64_t rows) {
  AssemblyRecord record;
  record.mOperation = AssemblyOperation::GATHER;
  record.mWholeRows = record.mWholeCols = 10;
  record.mReceiver = 0;
  record.mOwnBegin = record.mBegin = begin;
  record.mOwnRows = record.mRows = rows;
  return WithEntries(record, rows);
}

struct Planned {
  std::vector<AssemblyRecord> records;
  std::vector<int> order;
  AssemblyPlan plan;
  long blocks = 0;  // that the decision took

  explicit Planned(std::vector<AssemblyRecord> some, std::int64_t most = kMost)
      : records(std::move(some)), order(records.size(), -1) {
    Buffer<int> places;
    places.Borrow(order.data(), static_cast<std::int64_t>(order.size()));
    long const before = takenFromHeap;
    plan = PlanAssembly(View(), places, most);
    blocks = takenFromHeap - before;
  }

  Buffer<AssemblyRecord> View() {
    Buffer<AssemblyRecord> view;
    view.Borrow(records.data(), static_cast<std::int64_t>(records.size()));
    return view;
  }
};

TEST(AssemblyVerdict, KeepsItsFirstFlaw) {
  AssemblyVerdict verdict;
  verdict.NoteStep(STATUS_OK);
  EXPECT_TRUE(verdict.Flawless());

  verdict.Note(AssemblyFlaw::ROW_OUTSIDE, 1, 2, 3);
  verdict.NoteStep(STATUS_OUT_OF_MEMORY);
  verdict.NoteMissing(AssemblyArray::MAP);
  EXPECT_EQ(verdict.mFlaw, static_cast<std::int16_t>(AssemblyFlaw::ROW_OUTSIDE));
  EXPECT_EQ(verdict.mStatus, STATUS_OK);
  EXPECT_EQ(verdict.mLimit, 3);

  AssemblyVerdict failed;
  failed.NoteStep(STATUS_OUT_OF_MEMORY);
  failed.NoteStep(STATUS_MISMATCH);
  EXPECT_EQ(failed.mFlaw, static_cast<std::int16_t>(AssemblyFlaw::FAILED_STEP));
  EXPECT_EQ(failed.mStatus, STATUS_OUT_OF_MEMORY);
}

TEST(PlanAssembly, PlacesBandsByTheirBeginsAndEmptyOnesLastWithoutMemory) {
  Planned const planned({Band(7, 3), Band(0, 0), Band(2, 1), Band(9, 0), Band(0, 2)});

  EXPECT_EQ(planned.plan.mPath, AssemblyPath::BANDS);
  EXPECT_EQ(planned.order, (std::vector<int>{4, 2, 0, 1, 3}));
  EXPECT_EQ(planned.blocks, 0);
}

TEST(PlanAssembly, RefusesRowsOfAPeerOutsideTheWhole) {
  std::vector<std::pair<std::int64_t, std::int64_t>> const outside = {
      {-3, 2}, {10, 1}, {8, 3}, {kMost, 2}, {1, kMost}, {-kMost, 11}};
  for (auto const& [begin, rows] : outside) {
    for (bool const sent : {true, false}) {
      AssemblyRecord record = Band(0, 2);
      (sent ? record.mBegin : record.mOwnBegin) = begin;
      (sent ? record.mRows : record.mOwnRows) = rows;
      Planned const planned({Band(0, 5), record});
      EXPECT_EQ(planned.plan.mFlaw, AssemblyFlaw::UNSOUND_RECORD) << begin << ", " << rows;
      EXPECT_EQ(planned.plan.mProcess, 1);
    }
  }
}

TEST(PlanAssembly, RefusesAListOfRowsThatIsNotTheOneThatArrives) {
  AssemblyRecord listed = Band(AssemblyRecord::kList, 3);
  EXPECT_EQ(Planned({Band(0, 5), listed}).plan.mPath, AssemblyPath::MERGE);

  AssemblyRecord longer = listed;
  longer.mRows = 4;
  EXPECT_EQ(Planned({Band(0, 5), longer}).plan.mFlaw, AssemblyFlaw::UNSOUND_RECORD);
  AssemblyRecord none = listed;
  none.mOwnBegin = 0;
  EXPECT_EQ(Planned({Band(0, 5), none}).plan.mFlaw, AssemblyFlaw::UNSOUND_RECORD);
  AssemblyRecord touched = Band(0, 0);
  touched.mBegin = AssemblyRecord::kTouched;
  touched.mRows = 11;  // of 10
  EXPECT_EQ(Planned({Band(0, 5), touched}).plan.mFlaw, AssemblyFlaw::UNSOUND_RECORD);
}

TEST(PlanAssembly, RefusesAPeerThatSendsMoreEntriesThanItWasGiven) {
  for (std::int64_t const given : {std::int64_t{1}, std::int64_t{-1}, -kMost}) {
    AssemblyRecord record = Band(0, 2);
    record.mGiven = given;
    Planned const planned({Band(2, 5), record});
    EXPECT_EQ(planned.plan.mFlaw, AssemblyFlaw::UNSOUND_RECORD) << given;
    EXPECT_EQ(planned.plan.mProcess, 1);
  }
}

// A band with more entries than half of what one call counts.
AssemblyRecord Large(std::int64_t begin) {
  return WithEntries(Band(begin, 2), 1500000000);
}

std::vector<AssemblyRecord> OnReceiver(int receiver, std::vector<AssemblyRecord> records) {
  for (AssemblyRecord& record : records)
    record.mReceiver = receiver;
  return records;
}

TEST(PlanAssembly, LetsEntriesGoInRoundsWhereBandsLieInTheOrderOfTheSeats) {
  for (int const receiver : {kEverybody, 0}) {
    Planned const planned(OnReceiver(receiver, {Large(0), Band(9, 0), Large(2), Band(6, 0)}));
    EXPECT_EQ(planned.plan.mPath, AssemblyPath::BANDS);
    EXPECT_EQ(planned.plan.mNnz, 3000000000);
  }
  EXPECT_FALSE(Planned(OnReceiver(1, {Large(2), Large(0), Large(4)})).plan.Refused());
}

TEST(PlanAssembly, RefusesMoreEntriesThanOneCallCountsInAnotherOrder) {
  std::vector<Planned> const refused = {
      Planned(OnReceiver(kEverybody, {Large(2), Large(0)})),
      Planned(OnReceiver(1, {Large(0), Large(2)})), Planned({Large(0), Large(1)}),
      Planned({Large(0), Large(2)}, std::numeric_limits<int>::max())};
  for (Planned const& planned : refused) {
    EXPECT_EQ(planned.plan.mFlaw, AssemblyFlaw::TOO_MANY_IN_ALL);
    EXPECT_EQ(planned.plan.mProcess, 1);
  }
}

TEST(PlanAssembly, LetsASingleProcessHaveWhatItsIndexTypeCounts) {
  AssemblyRecord record = Band(AssemblyRecord::kList, 3000000000);
  EXPECT_EQ(Planned({record}).plan.mPath, AssemblyPath::MERGE);
  EXPECT_EQ(Planned({record}, std::numeric_limits<int>::max()).plan.mFlaw,
            AssemblyFlaw::TOO_MANY_IN_ALL);
  EXPECT_EQ(Planned({record, Band(0, 1)}).plan.mFlaw, AssemblyFlaw::TOO_MANY_IN_ALL);
}

// The last offset of a whole that counts from 1 is one more than its entries.
TEST(PlanAssembly, RefusesAsManyEntriesAsTheIndexTypeCountsIfTheWholeCountsFrom1) {
  constexpr std::int64_t kMostInt = std::numeric_limits<int>::max();
  for (int const base : {0, 1}) {
    for (std::int64_t const most : {kMostInt, kMost}) {
      AssemblyRecord all = WithEntries(Band(0, 2), most);
      all.mBase = base;
      AssemblyRecord const most1 = WithEntries(all, most - 1);
      AssemblyRecord one = Band(2, 1);
      one.mBase = base;
      AssemblyRecord overlapping = one;
      overlapping.mBegin = overlapping.mOwnBegin = 0;
      AssemblyFlaw const expected =
          base == 0 ? AssemblyFlaw::NONE : AssemblyFlaw::TOO_MANY_FROM_1;
      EXPECT_EQ(Planned({all}, most).plan.mFlaw, expected);
      Planned const together({most1, one}, most);
      EXPECT_EQ(together.plan.mFlaw, expected);
      EXPECT_EQ(together.plan.mProcess, 1);
      EXPECT_FALSE(Planned({most1}, most).plan.Refused());
      if (most == kMost) continue;  // several processes send fewer
      EXPECT_EQ(Planned({most1, overlapping}, most).plan.mFlaw, expected);
    }
  }
}

TEST(CostOfUpdate, CountsACallForEachRound) {
  Planned planned({Large(0), Large(2)});
  EXPECT_EQ(CostOfUpdate(planned.plan, planned.View(), 0, sizeof(double), false).mCalls, 3);
}

// Of 3 processes, one has a band, one a list of 3 rows, and one entries in 2 rows.
TEST(CostOfPattern, CountsACallForEachKindOfList) {
  AssemblyRecord touched = WithEntries(Band(0, 0), 2);
  touched.mBegin = AssemblyRecord::kTouched;
  touched.mRows = 2;
  Planned planned({Band(0, 5), Band(AssemblyRecord::kList, 3), touched});
  auto const cost = [&planned](int rank) {
    return CostOfPattern(planned.plan, planned.View(), rank, sizeof(int), false);
  };
  std::int64_t const records = 112 + sizeof(MatrixLocalInfo);
  EXPECT_EQ(cost(0).mCalls, 6);
  EXPECT_EQ(cost(0).mBytesOut, records + 4 * (5 + 5));
  EXPECT_EQ(cost(1).mBytesOut, records + 4 * (3 + 3 + 3));
  EXPECT_EQ(cost(2).mBytesOut, records + 4 * (2 + 2 + 2));
  EXPECT_EQ(cost(0).mBytesIn, 3 * records + 4 * (3 + 2 + 10 + 10));
  EXPECT_EQ(cost(2).mBytesIn, 3 * records);
}

// 2^59 rows of 8 columns of double have 2^65 bytes.
TEST(CostOfDenseMatrices, WrapsWhere64BitsDoNotCountIt) {
  AssemblyRecord record = Band(0, std::int64_t{1} << 59);
  Planned planned({record, record});
  EXPECT_EQ(CostOfScatter(planned.View(), 0, sizeof(double), 8).mBytesIn, 2 * 112);
  EXPECT_EQ(CostOfCollect(planned.View(), 0, sizeof(double), 8).mBytesOut, 112);
  EXPECT_EQ(CostOfCollect(planned.View(), 0, sizeof(double), kMost).mCalls, 2);
}

}  // namespace
}  // namespace Pavex
