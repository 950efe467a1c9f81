// The findings about records that are suspicious but that no step of a gather refuses.

#include "pavex/aggregator/plan.h"
#include "tests/support/records.h"

#include <gmock/gmock.h>
#include <limits>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

namespace Pavex {

bool operator==(GatherFinding const& a, GatherFinding const& b) {
  return std::tie(a.mKind, a.mProcess, a.mProcesses, a.mByRows, a.mFirst, a.mLast) ==
         std::tie(b.mKind, b.mProcess, b.mProcesses, b.mByRows, b.mFirst, b.mLast);
}

void PrintTo(GatherFinding const& finding, std::ostream* out) {
  *out << "{kind " << static_cast<int>(finding.mKind) << ", process " << finding.mProcess
       << ", " << finding.mProcesses << " such, " << (finding.mByRows ? "rows" : "columns")
       << ' ' << finding.mFirst << " to " << finding.mLast << '}';
}

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Findings = std::vector<GatherFinding>;

constexpr std::int64_t kMostOfInt = std::numeric_limits<std::int32_t>::max();
constexpr bool kRows = true;
constexpr bool kColumns = false;

// The findings about a gather of double and int with these records.
Findings Suspicious(Records records) {
  Buffer<MatrixLocalInfo> const view = View(records);
  GatherPlan const plan = PlanGather(view, sizeof(double), sizeof(int));
  return FindSuspicious(view, plan);
}

GatherFinding Lines(FindingKind kind, bool byRows, std::int64_t first, std::int64_t last,
                    std::int64_t process = kNobody) {
  return {kind, process, 1, byRows, first, last};
}

MatrixLocalInfo Entries(std::int64_t rows, std::int64_t cols, std::int64_t nnz) {
  return Piece(STORE_COO_0, MatrixPartition::NonzeroWise(), rows, cols, nnz);
}

// A dense piece of a whole 4 x 4 matrix, with the entries of its shape.
MatrixLocalInfo Dense(PavexMatrixStoreType type, MatrixPartition partition, std::int64_t rows,
                      std::int64_t cols) {
  MatrixLocalInfo info = Piece(type, partition, rows, cols, rows * cols);
  info.globalRows = 4;
  info.globalCols = 4;
  return info;
}

TEST(FindSuspicious, FindsNothingAboutPiecesThatMakeTheWhole) {
  EXPECT_THAT(Suspicious({RowBand(0, 60), RowBand(60, 40)}), IsEmpty());
  EXPECT_THAT(Suspicious({ColumnBand(0, 60), ColumnBand(60, 40)}), IsEmpty());
  EXPECT_THAT(Suspicious({Entries(100, 100, 3), Entries(100, 100, 4)}), IsEmpty());
  EXPECT_THAT(Suspicious({Whole(), Whole()}), IsEmpty());
  EXPECT_THAT(Suspicious({Empty(), Whole()}), IsEmpty());
}

TEST(FindSuspicious, FindsNothingWithoutRecordsOrWhereTheyAreRefused) {
  EXPECT_THAT(Suspicious({}), IsEmpty());
  EXPECT_THAT(Suspicious({RowBand(1, 60), RowBand(70, 41)}), IsEmpty());
}

TEST(FindSuspicious, FindsANegativeSizeOfTheGatheredMatrix) {
  MatrixLocalInfo const first = Piece(STORE_COO_0, MatrixPartition::RowWise(0), -3, 100, 6);
  MatrixLocalInfo const second = Piece(STORE_COO_0, MatrixPartition::RowWise(-3), 2, 100, 1);

  EXPECT_THAT(Suspicious({first, second}),
              ElementsAre(GatherFinding{FindingKind::NEGATIVE_SIZE}));
}

TEST(FindSuspicious, FindsNothingAboutMoreEntriesThanOneCallCounts) {
  EXPECT_THAT(Suspicious({Entries(100, 100, kMostOfInt), Entries(100, 100, 1)}), IsEmpty());
}

TEST(FindSuspicious, FindsAWholeThatTheIndicesCannotNumber) {
  MatrixLocalInfo const part = Entries(100, 100, 3);
  Records records = {part, part};
  for (MatrixLocalInfo& info : records)
    info.globalCols = kMostOfInt + 2;

  EXPECT_THAT(Suspicious(records), ElementsAre(GatherFinding{FindingKind::INDEX_TOO_SMALL}));
  for (MatrixLocalInfo& info : records)
    --info.globalCols;
  EXPECT_THAT(Suspicious(records), IsEmpty());
}

TEST(FindSuspicious, FindsAndCountsTheProcessesWithAnotherClassThanTheHolder) {
  MatrixLocalInfo other = Empty();
  other.storeType = STORE_CSC_0;

  EXPECT_THAT(Suspicious({Empty(), other, Whole(), other}),
              ElementsAre(GatherFinding{FindingKind::OTHER_CLASS, 1, 2}));
}

TEST(FindSuspicious, FindsAndCountsTheProcessesWithAnotherDenseOrderThanTheHolder) {
  MatrixLocalInfo const empty = Dense(STORE_DENSE_ROW_MAJOR, {}, 0, 0);
  MatrixLocalInfo const other = Dense(STORE_DENSE_COL_MAJOR, {}, 0, 0);
  MatrixLocalInfo const whole = Dense(STORE_DENSE_ROW_MAJOR, {}, 4, 4);

  EXPECT_THAT(Suspicious({empty, whole, other, other}),
              ElementsAre(GatherFinding{FindingKind::OTHER_ORDER, 2, 2}));
  EXPECT_THAT(Suspicious({Dense(STORE_TYPE_0, {}, 0, 0), whole}), IsEmpty());
  EXPECT_THAT(Suspicious({empty, Dense(STORE_TYPE_0, {}, 4, 4)}), IsEmpty());
}

// Two column bands with 2 and 6 rows. In column-major order they fill the 4 x 4 elements one
// after the other. In row-major order the second goes outside.
Records ColumnsOfUnequalHeight(PavexMatrixStoreType type) {
  return {Dense(type, MatrixPartition::ColumnWise(0), 2, 2),
          Dense(type, MatrixPartition::ColumnWise(2), 6, 2)};
}

TEST(FindSuspicious, FindsDensePiecesThatFitInOneOrderOnly) {
  EXPECT_THAT(Suspicious(ColumnsOfUnequalHeight(STORE_TYPE_0)),
              ElementsAre(GatherFinding{FindingKind::ORDER_DECIDES, 1},
                          Lines(FindingKind::OUTSIDE, kRows, 4, 5, 1)));
  EXPECT_THAT(Suspicious(ColumnsOfUnequalHeight(STORE_DENSE_COL_MAJOR)),
              ElementsAre(Lines(FindingKind::OUTSIDE, kRows, 4, 5, 1)));
  Records pattern = ColumnsOfUnequalHeight(STORE_TYPE_0);
  for (MatrixLocalInfo& info : pattern)
    info.withValues = false;
  EXPECT_THAT(Suspicious(pattern), ElementsAre(Lines(FindingKind::OUTSIDE, kRows, 4, 5, 1)));
}

TEST(FindSuspicious, FindsAndCountsThePiecesThatMustSendValuesButHaveNone) {
  MatrixLocalInfo none = RowBand(10, 45);
  none.nnz = 0;
  MatrixLocalInfo last = none;
  last.partition.begin = 55;
  Records records = {RowBand(0, 10), none, last};

  EXPECT_THAT(Suspicious(records), ElementsAre(GatherFinding{FindingKind::NO_VALUES, 1, 2}));
  for (MatrixLocalInfo& info : records)
    info.withValues = false;
  EXPECT_THAT(Suspicious(records), IsEmpty());
}

TEST(FindSuspicious, FindsAHolderThatMustSendValuesButHasNone) {
  MatrixLocalInfo holder = Whole();
  holder.nnz = 0;

  EXPECT_THAT(Suspicious({Empty(), holder}),
              ElementsAre(GatherFinding{FindingKind::NO_VALUES, 1}));
  EXPECT_THAT(Suspicious({holder, holder}), IsEmpty()) << "nothing moves";
}

TEST(FindSuspicious, FindsAPieceThatIsTakenForTheWhole) {
  GatherFinding const first = {FindingKind::LONE_PARTITION, 0};
  GatherFinding const second = {FindingKind::LONE_PARTITION, 1};

  EXPECT_THAT(Suspicious({Empty(), RowBand(5, 10), Empty()}), ElementsAre(second));
  EXPECT_THAT(Suspicious({RowBand(5, 10), Empty()}), ElementsAre(first));
  EXPECT_THAT(Suspicious({RowBand(5, 10)}), ElementsAre(first));
  EXPECT_THAT(Suspicious({RowBand(0, 100)}), IsEmpty());
  EXPECT_THAT(Suspicious({RowBand(0, 0)}), IsEmpty());
}

TEST(FindSuspicious, IgnoresThePartitionOfAnEmptyPieceNextToTheWhole) {
  MatrixLocalInfo empty = Empty();
  empty.partition.type = PARTITION_COLUMN_WISE;

  EXPECT_THAT(Suspicious({empty, Whole()}), IsEmpty());
}

TEST(FindSuspicious, FindsBandsWhoseBeginsAreCountedFromOne) {
  EXPECT_THAT(Suspicious({RowBand(1, 60), RowBand(61, 40)}),
              ElementsAre(GatherFinding{FindingKind::COUNTED_FROM_ONE, 0, 1, kRows}));
  EXPECT_THAT(Suspicious({ColumnBand(1, 60), ColumnBand(61, 40)}),
              ElementsAre(GatherFinding{FindingKind::COUNTED_FROM_ONE, 0, 1, kColumns}));
}

TEST(FindSuspicious, CountsBandsFromZeroThatAreOneLineTooShortOrTooLong) {
  EXPECT_THAT(Suspicious({RowBand(1, 60), RowBand(61, 39)}),
              ElementsAre(Lines(FindingKind::UNCOVERED, kRows, 0, 0)));
  EXPECT_THAT(Suspicious({RowBand(0, 60), RowBand(60, 41)}),
              ElementsAre(Lines(FindingKind::OUTSIDE, kRows, 100, 100)));
  EXPECT_THAT(Suspicious({RowBand(1, 60), RowBand(61, 41)}),
              ElementsAre(Lines(FindingKind::UNCOVERED, kRows, 0, 0),
                          Lines(FindingKind::OUTSIDE, kRows, 100, 101)));
}

TEST(FindSuspicious, FindsTheLinesAtBothEndsThatNoBandHolds) {
  EXPECT_THAT(Suspicious({RowBand(20, 10), RowBand(30, 5)}),
              ElementsAre(Lines(FindingKind::UNCOVERED, kRows, 0, 19),
                          Lines(FindingKind::UNCOVERED, kRows, 35, 99)));
  EXPECT_THAT(Suspicious({ColumnBand(0, 1), ColumnBand(1, 5)}),
              ElementsAre(Lines(FindingKind::UNCOVERED, kColumns, 6, 99)));
}

TEST(FindSuspicious, FindsTheLinesOfBandsOutsideTheWhole) {
  EXPECT_THAT(Suspicious({RowBand(-3, 60), RowBand(57, 60)}),
              ElementsAre(Lines(FindingKind::OUTSIDE, kRows, -3, -1),
                          Lines(FindingKind::OUTSIDE, kRows, 100, 116)));
  EXPECT_THAT(Suspicious({RowBand(200, 2), RowBand(202, 1)}),
              ElementsAre(Lines(FindingKind::UNCOVERED, kRows, 0, 99),
                          Lines(FindingKind::OUTSIDE, kRows, 200, 202)));
}

TEST(FindSuspicious, FindsTheFirstPieceThatIsLargerThanTheWhole) {
  EXPECT_THAT(Suspicious({Entries(100, 100, 3), Entries(102, 100, 3), Entries(105, 101, 3)}),
              ElementsAre(Lines(FindingKind::OUTSIDE, kRows, 100, 101, 1),
                          Lines(FindingKind::OUTSIDE, kColumns, 100, 100, 2)));
}

// --- Texts of findings; the tests of Describe check those of the other kinds

// The text of the first finding about the records.
std::string FirstInWords(Records records) {
  Buffer<MatrixLocalInfo> const view = View(records);
  GatherPlan const plan = PlanGather(view, sizeof(double), sizeof(int));
  Findings const found = FindSuspicious(view, plan);
  return found.empty() ? "" : Describe(found[0], view, plan);
}

TEST(DescribeFinding, SaysThatBeginsSeemToBeCountedFromOne) {
  EXPECT_EQ(FirstInWords({RowBand(1, 60), RowBand(61, 40)}),
            "declared 100 x 100: the bands have as many rows, but begin at 1; expected begins "
            "that are counted from 0");
  EXPECT_EQ(FirstInWords({ColumnBand(1, 60), ColumnBand(61, 40)}),
            "declared 100 x 100: the bands have as many columns, but begin at 1; expected "
            "begins that are counted from 0");
}

TEST(DescribeFinding, SaysThatTheOrderOfTheElementsDecides) {
  EXPECT_EQ(FirstInWords(ColumnsOfUnequalHeight(STORE_TYPE_0)),
            "STORE_TYPE_0 does not say the order of the elements, and in one order process 1 "
            "lies outside the gathered matrix");
}

}  // namespace
}  // namespace Pavex
