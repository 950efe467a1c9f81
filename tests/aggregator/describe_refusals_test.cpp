// The text of Describe for records that a gather refuses.

#include "tests/support/described_matrix.h"
#include "tests/support/described_records.h"
#include "tests/support/log_level.h"
#include "tests/support/records.h"

#include <limits>
#include <string>

namespace Pavex {
namespace {

// The matrix that describes itself as `info`.
DescribedMatrix MatrixOf(MatrixLocalInfo const& info) {
  DescribedMatrix matrix(info.storeType, info.rows, info.cols, info.nnz);
  matrix.PlaceIn(info.globalRows, info.globalCols, info.partition);
  matrix.mPattern = info.pattern;
  matrix.mAttribute = info.attribute;
  return matrix;
}

// The text on rank `own` of processes with `records` after a gather, which must fail with
// `expected`.
std::string AfterFailure(PavexStatus expected, Records const& records, int own = 0) {
  LogLevel const silent(-1);
  auto const comm = std::make_shared<ScriptedComm>(own, static_cast<int>(records.size()));
  comm->SetRecords(records);
  RankUnderTest<> rank(comm);
  MatrixLocalInfo const& info = records[static_cast<std::size_t>(own)];
  DescribedMatrix const local = MatrixOf(info);

  EXPECT_EQ(rank.aggregator.Gather(rank.comm, local, info.WithValues()), expected);

  return rank.aggregator.Describe();
}

TEST(Describe, ReportsWhichProcessesAreEmptyAmongOthersThatAreNot) {
  EXPECT_EQ(AfterFailure(-16, {Whole(), Whole(), Empty(), Empty()}),
            "refused: 2 of 4 processes are empty (the first is process 2), the others are not "
            "(the first is process 0); expected 0, 3 or 4 empty processes\n"
            "stage: mode\n"
            "mode not decided\n"
            "4 processes\n"
            "process 0: STORE_CSR_0, no partition from 0, 100 x 100, 7 entries, of 100 x 100, "
            "pattern 1, attribute 2, with values\n"
            "process 1: STORE_CSR_0, no partition from 0, 100 x 100, 7 entries, of 100 x 100, "
            "pattern 1, attribute 2, with values\n"
            "process 2: STORE_CSR_0, no partition from 0, 0 x 0, 0 entries, of 100 x 100, "
            "pattern 1, attribute 2, with values, empty\n"
            "process 3: STORE_CSR_0, no partition from 0, 0 x 0, 0 entries, of 100 x 100, "
            "pattern 1, attribute 2, with values, empty\n");
}

TEST(Describe, ReportsThatTheFirstProcessIsEmptyAmongOthersThatAreNot) {
  EXPECT_EQ(VerdictAbout({Empty(), Empty(), Whole(), Whole()}),
            "refused: 2 of 4 processes are empty (the first is process 0), the others are not "
            "(the first is process 2); expected 0, 3 or 4 empty processes\n"
            "stage: mode\n"
            "mode not decided\n");
}

// The verdict on records that `stage` refuses. Checks the stage, and that the last process has
// the same text.
std::string Refusal(Records const& records, PavexStatus status = -16,
                    std::string const& stage = "agreement") {
  std::string const first = AfterFailure(status, records);
  EXPECT_EQ(AfterFailure(status, records, static_cast<int>(records.size()) - 1), first);
  std::size_t const end = first.find('\n') + 1;
  std::string const line = "stage: " + stage + "\n";
  EXPECT_EQ(first.substr(end, line.size()), line);
  return first.substr(0, end);
}

TEST(Describe, ReportsAGapWithTheBeginThatWouldHaveBeenAdjacent) {
  EXPECT_EQ(AfterFailure(-16, {RowBand(0, 10), RowBand(11, 5)}),
            "refused: process 1 begins at row 11; expected 10, because process 0 begins at 0 "
            "and has 10 rows (a gap)\n"
            "stage: agreement\n"
            "mode DISTRIBUTED: every process holds a piece\n"
            "2 processes\n"
            "process 0: STORE_CSR_0, row-wise from 0, 10 x 100, 7 entries, of 100 x 100, "
            "pattern 1, attribute 2, with values\n"
            "process 1: STORE_CSR_0, row-wise from 11, 5 x 100, 7 entries, of 100 x 100, "
            "pattern 1, attribute 2, with values\n");
}

TEST(Describe, ReportsAnOverlapOfTheFirstPairAtFault) {
  EXPECT_EQ(
      Refusal({ColumnBand(3, 10), ColumnBand(13, 5), ColumnBand(17, 5), ColumnBand(1, 1)}),
      "refused: process 2 begins at column 17; expected 18, because process 1 begins at 13 and "
      "has 5 columns (an overlap)\n");
}

TEST(Describe, ReportsOtherCodes) {
  MatrixLocalInfo pattern = RowBand(10, 5);
  pattern.pattern = 3;
  MatrixLocalInfo attribute = RowBand(10, 5);
  attribute.attribute = -5;

  EXPECT_EQ(Refusal({RowBand(0, 10), pattern}),
            "refused: process 0 has pattern 1, attribute 2, process 1 has pattern 3, attribute "
            "2; expected the same\n");
  EXPECT_EQ(Refusal({RowBand(0, 10), attribute}),
            "refused: process 0 has pattern 1, attribute 2, process 1 has pattern 1, attribute "
            "-5; expected the same\n");
}

TEST(Describe, ReportsMixedFormats) {
  MatrixLocalInfo other = RowBand(10, 5);
  other.storeType = STORE_DENSE_COL_MAJOR;

  EXPECT_EQ(Refusal({RowBand(0, 10), RowBand(10, 3), other}),
            "refused: process 1 has STORE_CSR_0, process 2 has STORE_DENSE_COL_MAJOR; expected "
            "the same\n");
}

TEST(Describe, ReportsMixedPartitions) {
  MatrixLocalInfo band = ColumnBand(0, 5);
  band.storeType = STORE_CSR_0;

  EXPECT_EQ(Refusal({RowBand(0, 10), band}),
            "refused: process 0 has row-wise, process 1 has column-wise; expected the same\n");
  EXPECT_EQ(Refusal({RowBand(0, 10), Whole()}),
            "refused: process 0 has row-wise, process 1 has no partition; expected the same\n");
  EXPECT_EQ(Refusal({Whole(), RowBand(0, 10)}),
            "refused: process 0 has no partition, process 1 has row-wise; expected the same\n");
}

TEST(Describe, ReportsAnUnknownPartition) {
  MatrixLocalInfo odd = Whole();
  odd.partition = {77, -4};

  EXPECT_EQ(AfterFailure(-7, {odd, odd}),
            "refused: process 0 and process 1 have unknown partition type 77; expected "
            "row-wise, column-wise or nonzero-wise\n"
            "stage: agreement\n"
            "mode DISTRIBUTED: every process holds a piece\n"
            "2 processes\n"
            "process 0: STORE_CSR_0, unknown partition type 77 from -4, 100 x 100, 7 entries, "
            "of 100 x 100, pattern 1, attribute 2, with values\n"
            "process 1: STORE_CSR_0, unknown partition type 77 from -4, 100 x 100, 7 entries, "
            "of 100 x 100, pattern 1, attribute 2, with values\n");
}

TEST(Describe, ReportsPiecesOfMatricesOfOtherShapes) {
  MatrixLocalInfo rows = RowBand(10, 5);
  rows.globalRows = 99;
  MatrixLocalInfo cols = RowBand(10, 5);
  cols.globalCols = 98;

  EXPECT_EQ(Refusal({RowBand(0, 10), rows}),
            "refused: process 0 has a piece of 100 x 100, process 1 has a piece of 99 x 100; "
            "expected the same\n");
  EXPECT_EQ(Refusal({RowBand(0, 10), cols}),
            "refused: process 0 has a piece of 100 x 100, process 1 has a piece of 100 x 98; "
            "expected the same\n");
}

TEST(Describe, ReportsWholesOfOtherShapes) {
  MatrixLocalInfo rows = Whole();
  rows.rows = 99;
  MatrixLocalInfo global = Whole();
  global.globalCols = 98;

  EXPECT_EQ(Refusal({Whole(), rows}),
            "refused: process 0 has 100 x 100 of 100 x 100, process 1 has 99 x 100 of 100 x "
            "100; expected the same\n");
  EXPECT_EQ(Refusal({Whole(), global}),
            "refused: process 0 has 100 x 100 of 100 x 100, process 1 has 100 x 100 of 100 x "
            "98; expected the same\n");
}

TEST(Describe, ReportsFlagsThatDiffer) {
  MatrixLocalInfo without = RowBand(10, 5);
  without.withValues = false;

  EXPECT_EQ(Refusal({RowBand(0, 10), without}),
            "refused: process 0 has the flag with values, process 1 has the flag without "
            "values; expected the same\n");
}

TEST(Describe, ReportsANegativeNumberOfEntries) {
  MatrixLocalInfo first = RowBand(0, 10);
  first.nnz = -1;
  MatrixLocalInfo second = RowBand(10, 5);
  second.nnz = -2;

  EXPECT_EQ(Refusal({first, second}, -16, "counts"),
            "refused: process 0 has -1 entries; expected 0 or more\n");
  EXPECT_EQ(Refusal({RowBand(0, 10), second}, -16, "counts"),
            "refused: process 1 has -2 entries; expected 0 or more\n");
}

TEST(Describe, ReportsWhereTheEntriesTogetherBecomeTooMany) {
  MatrixLocalInfo many = RowBand(10, 5);
  many.nnz = 1L << 59;

  EXPECT_EQ(Refusal({RowBand(0, 10), many}, -16, "counts"),
            "refused: process 1 has 576460752303423488 entries; expected all entries together "
            "to fit into memory\n");
}

TEST(Describe, RefusesNoEntriesThatMemoryCanHold) {
  MatrixLocalInfo const few = Piece(STORE_COO_0, MatrixPartition::NonzeroWise(), 100, 100, 7);
  MatrixLocalInfo many = few;
  many.nnz = (1L << 59) - 8;
  MatrixLocalInfo more = many;
  ++more.nnz;

  EXPECT_EQ(VerdictAbout({few, many}),
            "agreed: 100 x 100 with 576460752303423487 entries, with values\n"
            "mode DISTRIBUTED: every process holds a piece\n");
  EXPECT_EQ(Refusal({few, more}, -16, "counts"),
            "refused: process 1 has 576460752303423481 entries; expected all entries together "
            "to fit into memory\n");
}

TEST(Describe, ReportsAnUnknownStoreType) {
  MatrixLocalInfo odd = Whole();
  odd.storeType = static_cast<PavexMatrixStoreType>(13);

  EXPECT_EQ(Refusal({Empty(), odd}, -2, "store type"),
            "refused: process 1 has unknown store type 13; expected 0 to 12\n");
}

TEST(Describe, WrapsTheExpectedBeginOfABandBeyondAllNumbers) {
  EXPECT_EQ(Refusal({RowBand(std::numeric_limits<std::int64_t>::max(), 1), RowBand(0, 5)}),
            "refused: process 1 begins at row 0; expected -9223372036854775808, because "
            "process 0 begins at 9223372036854775807 and has 1 row (a gap)\n");
}

}  // namespace
}  // namespace Pavex
