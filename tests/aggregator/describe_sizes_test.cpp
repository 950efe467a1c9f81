// The text of Describe for pieces whose sizes do not fit their format.

#include "tests/support/described_records.h"

#include <gmock/gmock.h>
#include <limits>
#include <string>

namespace Pavex {
namespace {

using ::testing::StartsWith;

// A row-major dense piece with exactly the entries of its shape.
MatrixLocalInfo DensePiece(MatrixPartition partition, std::int64_t rows, std::int64_t cols) {
  return Piece(STORE_DENSE_ROW_MAJOR, partition, rows, cols, rows * cols);
}

// `records` with the global shape `rows` x `cols`.
Records Of(std::int64_t rows, std::int64_t cols, Records records) {
  for (MatrixLocalInfo& info : records) {
    info.globalRows = rows;
    info.globalCols = cols;
  }
  return records;
}

// The verdict on pieces that agree with each other.
std::string VerdictOnPieces(Records const& records) {
  std::string const text = VerdictAbout(records);
  std::size_t const mode = text.find("mode ");
  EXPECT_EQ(text.substr(mode), "mode DISTRIBUTED: every process holds a piece\n");
  return text.substr(0, mode);
}

TEST(Describe, ReportsCompressedPiecesThatAreCutAlongTheWrongDimension) {
  MatrixLocalInfo const left = Piece(STORE_CSR_0, MatrixPartition::ColumnWise(5), 2, 2, 2);
  MatrixLocalInfo const right = Piece(STORE_CSR_0, MatrixPartition::ColumnWise(7), 2, 2, 2);
  MatrixLocalInfo const upper = Piece(STORE_CSC_0, MatrixPartition::RowWise(0), 4, 3, 2);
  MatrixLocalInfo const lower = Piece(STORE_CSC_0, MatrixPartition::RowWise(4), 4, 3, 2);

  EXPECT_EQ(VerdictOnPieces(Of(2, 4, {left, right})),
            "refused: process 1 has 2 rows that are placed from 2 on; expected all of them "
            "inside the 2 gathered rows\n"
            "stage: offsets\n");
  EXPECT_EQ(VerdictOnPieces(Of(8, 3, {upper, lower})),
            "refused: process 1 has 3 columns that are placed from 4 on; expected all of them "
            "inside the 3 gathered columns\n"
            "stage: offsets\n");
}

TEST(Describe, ReportsACompressedPieceWithMoreRowsThanTheWhole) {
  MatrixLocalInfo const high = Piece(STORE_CSR_0, MatrixPartition::NonzeroWise(), 4, 4, 2);
  MatrixLocalInfo const low = Piece(STORE_CSR_0, MatrixPartition::NonzeroWise(), 2, 4, 2);

  EXPECT_EQ(VerdictOnPieces(Of(2, 4, {high, low})),
            "refused: process 0 has 4 rows that are placed from 0 on; expected all of them "
            "inside the 2 gathered rows\n"
            "stage: offsets\n");
}

TEST(Describe, ReportsANegativeNumberOfCompressedRows) {
  EXPECT_EQ(VerdictOnPieces({RowBand(0, 5), RowBand(5, -2), RowBand(3, 4)}),
            "refused: process 1 has -2 rows that are placed from 5 on; expected all of them "
            "inside the 7 gathered rows\n"
            "stage: offsets\n");
}

TEST(Describe, ReportsMoreRowsThanThereCanBeOffsets) {
  constexpr std::int64_t kMostOffsets = std::int64_t{1} << 61;  // of int

  EXPECT_EQ(VerdictOnPieces({RowBand(0, 1), RowBand(1, kMostOffsets - 2)}),
            "refused: the pieces have 2305843009213693951 rows together; expected offsets that "
            "fit into memory\n"
            "stage: offsets\n");
  EXPECT_EQ(VerdictOnPieces({RowBand(0, 1), RowBand(1, kMostOffsets - 3)}),
            "agreed, but declared 100 x 100: rows 100 to 2305843009213693949 of the pieces lie "
            "outside\n"
            "gathered: 2305843009213693950 x 100 with 14 entries, with values\n");
}

// The most that one call of a communicator counts.
constexpr std::int64_t kMostCounted = 2147483647;

TEST(Describe, AgreesOnMoreThanOneCallCounts) {
  MatrixLocalInfo const half =
      Piece(STORE_COO_0, MatrixPartition::NonzeroWise(), 100, 100, 1 << 30);

  EXPECT_EQ(VerdictOnPieces({half, half}),
            "agreed: 100 x 100 with 2147483648 entries, with values\n");
  EXPECT_EQ(VerdictOnPieces({RowBand(0, 1), RowBand(1, kMostCounted)}),
            "agreed, but declared 100 x 100: rows 100 to 2147483647 of the pieces lie outside\n"
            "gathered: 2147483648 x 100 with 14 entries, with values\n");
}

TEST(Describe, CountsNoColumnsOfCoordinates) {
  MatrixLocalInfo const wide =
      Piece(STORE_COO_0, MatrixPartition::ColumnWise(0), 100, kMostCounted, 7);
  MatrixLocalInfo const rest =
      Piece(STORE_COO_0, MatrixPartition::ColumnWise(kMostCounted), 100, 10, 7);

  EXPECT_EQ(
      VerdictOnPieces({wide, rest}),
      "agreed, but declared 100 x 100: columns 100 to 2147483656 of the pieces lie outside\n"
      "gathered: 100 x 2147483657 with 14 entries, with values\n");
}

TEST(Describe, ReportsADeclaredWholeWhoseRowsOrColumnsIndicesOfIntCannotNumber) {
  constexpr std::int64_t kMostNumbered = std::int64_t{1} << 31;  // 0 to 2147483647
  std::string const agreed = "agreed: 100 x 100 with 7 entries, with values\n";
  auto const verdictOf = [](PavexMatrixStoreType type, std::int64_t rows, std::int64_t cols) {
    MatrixLocalInfo whole = Piece(type, {}, 100, 100, 7);
    std::string const text = VerdictAbout(Of(rows, cols, {whole, whole}));
    return text.substr(0, text.find("mode "));
  };
  auto const suspicious = [](std::string const& declared) {
    return "agreed, but declared " + declared +
           ": indices of 4 bytes cannot number all its rows and columns\n"
           "gathered: 100 x 100 with 7 entries, with values\n";
  };

  EXPECT_EQ(verdictOf(STORE_COO_0, kMostNumbered, kMostNumbered), agreed);
  EXPECT_EQ(verdictOf(STORE_COO_0, kMostNumbered + 1, 9), suspicious("2147483649 x 9"));
  EXPECT_EQ(verdictOf(STORE_COO_0, 9, kMostNumbered + 1), suspicious("9 x 2147483649"));
  EXPECT_EQ(verdictOf(STORE_CSR_0, 9, kMostNumbered + 1), suspicious("9 x 2147483649"));
  EXPECT_EQ(verdictOf(STORE_CSR_0, kMostNumbered + 1, 9), agreed);
  EXPECT_EQ(verdictOf(STORE_CSC_0, kMostNumbered + 1, 9), suspicious("2147483649 x 9"));
  EXPECT_EQ(verdictOf(STORE_CSC_0, 9, kMostNumbered + 1), agreed);
  EXPECT_EQ(verdictOf(STORE_DENSE_COL_MAJOR, kMostNumbered + 1, kMostNumbered + 1), agreed);
}

TEST(FindSuspicious, NumbersAnyRowsByIndicesOfLong) {
  Records records = Of(kMostCounted + 2, kMostCounted + 2, {Piece(STORE_COO_0, {}, 9, 9, 7)});

  EXPECT_TRUE(FindSuspicious(View(records), PlanGather(View(records), 8, 8)).empty());
  EXPECT_FALSE(FindSuspicious(View(records), PlanGather(View(records), 8, 4)).empty());
}

TEST(Describe, AgreesOnAHolderOfMoreThanOneCallCounts) {
  MatrixLocalInfo const empty = Piece(STORE_DENSE_ROW_MAJOR, {}, 0, 0, 0);
  MatrixLocalInfo const whole =
      Piece(STORE_DENSE_ROW_MAJOR, {}, 2, kMostCounted, 2 * kMostCounted);

  EXPECT_EQ(VerdictAbout({empty, whole}),
            "agreed: 2 x 2147483647 with 4294967294 entries, with values\n"
            "mode CENTRALIZED_ONE: process 1 holds the whole matrix\n");
}

TEST(Describe, ReportsAHolderOfMoreRowsThanThereCanBeOffsets) {
  MatrixLocalInfo whole = Whole();
  whole.rows = (std::int64_t{1} << 61) - 2;
  EXPECT_EQ(VerdictAbout({Empty(), whole}),
            "agreed: 2305843009213693950 x 100 with 7 entries, with values\n"
            "mode CENTRALIZED_ONE: process 1 holds the whole matrix\n");

  for (std::int64_t const rows :
       {std::int64_t{1} << 61, std::numeric_limits<std::int64_t>::max()}) {
    whole.rows = rows;
    EXPECT_EQ(VerdictAbout({Empty(), whole}),
              "refused: process 1 has " + std::to_string(rows) +
                  " rows; expected offsets that fit into memory\n"
                  "stage: offsets\n"
                  "mode CENTRALIZED_ONE: process 1 holds the whole matrix\n");
  }
}

TEST(Describe, ReportsAHolderOfMoreEntriesThanMemoryHolds) {
  MatrixLocalInfo whole = Piece(STORE_COO_0, {}, 100, 100, (std::int64_t{1} << 59) - 1);
  MatrixLocalInfo const empty = Piece(STORE_COO_0, {}, 0, 0, 0);
  EXPECT_EQ(VerdictAbout({empty, whole}),
            "agreed: 100 x 100 with 576460752303423487 entries, with values\n"
            "mode CENTRALIZED_ONE: process 1 holds the whole matrix\n");

  ++whole.nnz;
  EXPECT_EQ(VerdictAbout({empty, whole}),
            "refused: process 1 has 576460752303423488 entries; expected all entries together "
            "to fit into memory\n"
            "stage: counts\n"
            "mode CENTRALIZED_ONE: process 1 holds the whole matrix\n");
}

TEST(Describe, AllowsAnyCountWhereNothingMoves) {
  MatrixLocalInfo whole = Whole();
  whole.nnz = kMostCounted + 1;
  EXPECT_EQ(VerdictAbout({whole, whole}),
            "agreed: 100 x 100 with 2147483648 entries, with values\n"
            "mode CENTRALIZED_ALL: every process holds the whole matrix\n");

  MatrixLocalInfo pattern = Piece(STORE_DENSE_ROW_MAJOR, {}, 1 << 16, 1 << 16, 1L << 32);
  MatrixLocalInfo empty = Piece(STORE_DENSE_ROW_MAJOR, {}, 0, 0, 0);
  pattern.withValues = false;
  empty.withValues = false;
  EXPECT_EQ(VerdictAbout({empty, pattern}),
            "agreed: 65536 x 65536 with 4294967296 entries, without values\n"
            "mode CENTRALIZED_ONE: process 1 holds the whole matrix\n");
}

TEST(Describe, ReportsNegativeSizesOfTheWhole) {
  MatrixLocalInfo const six = Piece(STORE_COO_0, MatrixPartition::RowWise(0), -3, 100, 6);
  MatrixLocalInfo const one = Piece(STORE_COO_0, MatrixPartition::RowWise(-3), 2, 100, 1);

  EXPECT_EQ(VerdictOnPieces({six, one}),
            "agreed, but the pieces make -1 x 100 with 7 entries; expected no negative number\n"
            "gathered: -1 x 100 with 7 entries, with values\n");
}

TEST(Describe, ReportsTheFirstDenseBandThatIsNotAsWideAsTheWhole) {
  EXPECT_EQ(VerdictOnPieces({DensePiece(MatrixPartition::RowWise(0), 4, 100),
                             DensePiece(MatrixPartition::RowWise(4), 6, 50),
                             DensePiece(MatrixPartition::RowWise(10), 6, 60)}),
            "refused: process 1 has 50 columns; expected 100, as many as the whole matrix\n"
            "stage: values\n");
  EXPECT_EQ(VerdictOnPieces({DensePiece(MatrixPartition::ColumnWise(0), 90, 4),
                             DensePiece(MatrixPartition::ColumnWise(4), 100, 6)}),
            "refused: process 0 has 90 rows; expected 100, as many as the whole matrix\n"
            "stage: values\n");
}

Records ColumnMajor(Records records) {
  for (MatrixLocalInfo& info : records)
    info.storeType = STORE_DENSE_COL_MAJOR;
  return records;
}

TEST(Describe, ReportsDenseBandsThatMakeUpForEachOthersExtentWhereTheyAreReordered) {
  Records const columns = Of(4, 2,
                             {DensePiece(MatrixPartition::ColumnWise(0), 2, 1),
                              DensePiece(MatrixPartition::ColumnWise(1), 6, 1)});
  Records const rows = Of(2, 4,
                          {DensePiece(MatrixPartition::RowWise(0), 1, 2),
                           DensePiece(MatrixPartition::RowWise(1), 1, 6)});

  EXPECT_EQ(VerdictOnPieces(columns),
            "refused: process 0 has 2 rows; expected 4, as many as the whole matrix\n"
            "stage: values\n");
  EXPECT_EQ(VerdictOnPieces(ColumnMajor(columns)),
            "agreed, but declared 4 x 2: rows 4 to 5 of process 1 lie outside\n"
            "gathered: 4 x 2 with 8 entries, with values\n");
  EXPECT_EQ(VerdictOnPieces(ColumnMajor(rows)),
            "refused: process 0 has 2 columns; expected 4, as many as the whole matrix\n"
            "stage: values\n");
  EXPECT_EQ(VerdictOnPieces(rows),
            "agreed, but declared 2 x 4: columns 4 to 5 of process 1 lie outside\n"
            "gathered: 2 x 4 with 8 entries, with values\n");
}

// If they were reordered, the second piece would be placed after the columns of the first one,
// outside the whole.
TEST(Describe, AsksForNoPlaceOfDenseBandsThatAreNotReordered) {
  Records const rows = Of(3, 3,
                          {DensePiece(MatrixPartition::RowWise(0), 1, 7),
                           DensePiece(MatrixPartition::RowWise(1), 2, 1)});

  EXPECT_EQ(VerdictOnPieces(rows),
            "agreed, but declared 3 x 3: columns 3 to 6 of process 0 lie outside\n"
            "gathered: 3 x 3 with 9 entries, with values\n");
}

TEST(Describe, AsksForNoPlaceOfThePiecesOfASingleRowOrColumn) {
  MatrixLocalInfo high = DensePiece(MatrixPartition::ColumnWise(0), 2, 1);
  high.nnz = 1;
  MatrixLocalInfo wide = DensePiece(MatrixPartition::RowWise(0), 1, 2);
  wide.nnz = 1;

  EXPECT_EQ(VerdictOnPieces(Of(1, 3, {high, DensePiece(MatrixPartition::ColumnWise(1), 1, 2)})),
            "agreed, but declared 1 x 3: row 1 of process 0 lies outside\n"
            "gathered: 1 x 3 with 3 entries, with values\n");
  EXPECT_EQ(VerdictOnPieces(
                ColumnMajor(Of(3, 1, {wide, DensePiece(MatrixPartition::RowWise(1), 2, 1)}))),
            "agreed, but declared 3 x 1: column 1 of process 0 lies outside\n"
            "gathered: 3 x 1 with 3 entries, with values\n");
}

TEST(Describe, TakesDenseBandsThatAreReordered) {
  Records const columns = Of(4, 2,
                             {DensePiece(MatrixPartition::ColumnWise(0), 4, 1),
                              DensePiece(MatrixPartition::ColumnWise(1), 4, 1)});
  Records const rows = Of(2, 4,
                          {DensePiece(MatrixPartition::RowWise(0), 1, 4),
                           DensePiece(MatrixPartition::RowWise(1), 1, 4)});

  EXPECT_EQ(VerdictOnPieces(columns), "agreed: 4 x 2 with 8 entries, with values\n");
  EXPECT_EQ(VerdictOnPieces(ColumnMajor(rows)), "agreed: 2 x 4 with 8 entries, with values\n");
}

TEST(Describe, PlacesNoDensePieceAfterTheLastRecord) {
  Records const columns = Of(4, 2,
                             {DensePiece(MatrixPartition::ColumnWise(0), 4, 1),
                              DensePiece(MatrixPartition::ColumnWise(1), 4, 1)});

  EXPECT_THAT(About(columns, DensePiece(MatrixPartition::ColumnWise(2), 4, 1)),
              StartsWith("agreed: 4 x 2 with 8 entries, with values\n"));
}

TEST(Describe, ReportsTheFirstDensePieceOutsideTheWhole) {
  MatrixLocalInfo const wide = DensePiece(MatrixPartition::NonzeroWise(), 1, 4);
  MatrixLocalInfo const high = DensePiece(MatrixPartition::NonzeroWise(), 4, 1);

  EXPECT_EQ(VerdictOnPieces(Of(2, 4, {wide, high})),
            "refused: process 1 has 4 x 1, placed after the earlier pieces; expected all of it "
            "inside the gathered 2 x 4\n"
            "stage: values\n");
}

TEST(Describe, ReportsDensePiecesThatDoNotFillTheirShape) {
  MatrixLocalInfo const share = DensePiece(MatrixPartition::NonzeroWise(), 4, 4);
  MatrixLocalInfo band = DensePiece(MatrixPartition::RowWise(0), 4, 100);
  band.nnz = 399;

  EXPECT_EQ(VerdictOnPieces(Of(4, 4, {share, share})),
            "refused: the pieces make a dense matrix of 4 x 4 with 32 entries; expected 16\n"
            "stage: values\n");
  EXPECT_EQ(
      VerdictOnPieces({band, DensePiece(MatrixPartition::RowWise(4), 6, 100)}),
      "refused: the pieces make a dense matrix of 10 x 100 with 999 entries; expected 1000\n"
      "stage: values\n");
}

TEST(Describe, ReportsADenseWholeThatDoesNotFillItsShape) {
  MatrixLocalInfo empty = DensePiece({}, 0, 0);
  empty.nnz = 5;
  MatrixLocalInfo whole = DensePiece({}, 4, 3);
  whole.nnz = 11;

  EXPECT_EQ(VerdictAbout({empty, whole}),
            "refused: process 1 has 4 x 3 with 11 entries; expected 12\n"
            "stage: values\n"
            "mode CENTRALIZED_ONE: process 1 holds the whole matrix\n");
}

TEST(Describe, AsksForNoFitOfADensePatternAlone) {
  MatrixLocalInfo first = DensePiece(MatrixPartition::RowWise(0), 4, 50);
  MatrixLocalInfo second = DensePiece(MatrixPartition::RowWise(4), 6, 50);
  first.withValues = second.withValues = false;

  EXPECT_EQ(VerdictOnPieces({first, second}),
            "agreed, but declared 100 x 100: no process holds rows 10 to 99\n"
            "gathered: 10 x 100 with 500 entries, without values\n");
}

TEST(Describe, AsksForNoFitOfADenseWholeOnEveryProcess) {
  MatrixLocalInfo whole = DensePiece({}, 4, 3);
  whole.nnz = 11;

  EXPECT_EQ(VerdictAbout({whole, whole}),
            "agreed: 4 x 3 with 11 entries, with values\n"
            "mode CENTRALIZED_ALL: every process holds the whole matrix\n");
}

TEST(Describe, NotesTheFirstDenseOrderThatIsNotTheHolders) {
  MatrixLocalInfo empty = DensePiece({}, 0, 0);
  MatrixLocalInfo other = empty;
  other.storeType = STORE_DENSE_COL_MAJOR;
  MatrixLocalInfo const whole = DensePiece({}, 4, 3);

  EXPECT_EQ(VerdictAbout({empty, other, other, whole}),
            "agreed, but process 1 has STORE_DENSE_COL_MAJOR (the first of 2 such processes), "
            "process 3 has STORE_DENSE_ROW_MAJOR, and each stores received elements in its own "
            "order\n"
            "gathered: 4 x 3 with 12 entries, with values\n"
            "mode CENTRALIZED_ONE: process 3 holds the whole matrix\n");
  EXPECT_EQ(VerdictAbout({other, whole}),
            "agreed, but process 0 has STORE_DENSE_COL_MAJOR, process 1 has "
            "STORE_DENSE_ROW_MAJOR, and each stores received elements in its own order\n"
            "gathered: 4 x 3 with 12 entries, with values\n"
            "mode CENTRALIZED_ONE: process 1 holds the whole matrix\n");
  EXPECT_EQ(VerdictAbout({empty, whole}),
            "agreed: 4 x 3 with 12 entries, with values\n"
            "mode CENTRALIZED_ONE: process 1 holds the whole matrix\n");
}

TEST(Describe, AsksForNoPlaceOfTheEmptyMatricesNextToADenseWhole) {
  MatrixLocalInfo const odd = DensePiece({}, -3, 0);

  EXPECT_EQ(VerdictAbout({odd, DensePiece({}, 4, 3)}),
            "agreed: 4 x 3 with 12 entries, with values\n"
            "mode CENTRALIZED_ONE: process 1 holds the whole matrix\n");
}

}  // namespace
}  // namespace Pavex
