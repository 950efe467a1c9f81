#include "tools/gather/pattern_cells.h"

#include <gtest/gtest.h>

namespace Pavex::Tool {
namespace {

void ExpectGrid(long rows, long cols, long cellRows, long cellCols, long down, long across) {
  CellGrid const grid(rows, cols);

  EXPECT_EQ(grid.mCellRows, cellRows) << rows << " x " << cols;
  EXPECT_EQ(grid.mCellCols, cellCols) << rows << " x " << cols;
  EXPECT_EQ(grid.Down(), down) << rows << " x " << cols;
  EXPECT_EQ(grid.Across(), across) << rows << " x " << cols;
}

TEST(CellGrid, KeepsEachPositionUpToSixHundred) {
  ExpectGrid(5, 7, 1, 1, 5, 7);
  ExpectGrid(600, 600, 1, 1, 600, 600);
  EXPECT_TRUE(CellGrid(600, 1).IsExact());
  EXPECT_FALSE(CellGrid(601, 601).IsExact());
}

TEST(CellGrid, CutsALargerMatrixIntoSquares) {
  ExpectGrid(601, 601, 2, 2, 301, 301);
  ExpectGrid(216000, 216000, 360, 360, 600, 600);
  ExpectGrid(3000, 1000, 5, 5, 600, 200);
  ExpectGrid(2147483647, 2147483647, 3579140, 3579140, 600, 600);
}

TEST(CellGrid, LeavesAThinMatrixItsWidth) {
  ExpectGrid(1300, 90, 3, 1, 434, 90);
  ExpectGrid(1, 1000000, 1, 1667, 1, 600);
  ExpectGrid(1000000, 1000, 1667, 16, 600, 63);
}

TEST(CellGrid, MayBeEmpty) {
  ExpectGrid(0, 0, 1, 1, 0, 0);
  ExpectGrid(0, 1200, 1, 2, 0, 600);
}

// 1200 x 1200 positions in cells of 2 x 2.
TEST(PatternCells, CountTheEntriesOfEachCell) {
  PatternCells cells(1200, 1200);

  cells.BeginRank(0);
  cells.Add(0, 0);
  cells.Add(1, 1);
  cells.Add(1, 2);
  cells.Add(1199, 1199);
  cells.End();

  EXPECT_EQ(cells.At(0, 0).mEntries, 2);
  EXPECT_EQ(cells.At(0, 1).mEntries, 1);
  EXPECT_EQ(cells.At(599, 599).mEntries, 1);
  EXPECT_EQ(cells.At(1, 0).mEntries, 0);
  EXPECT_EQ(cells.At(1, 0).mRank, -1);
  EXPECT_EQ(cells.MostEntries(), 2);
}

TEST(PatternCells, ShowTheRankWithMostEntriesInACell) {
  PatternCells cells(1200, 1200);

  cells.BeginRank(3);
  cells.Add(0, 0);
  cells.BeginRank(5);
  cells.Add(0, 1);
  cells.Add(1, 0);
  cells.BeginRank(6);
  cells.Add(1, 1);
  cells.End();

  EXPECT_EQ(cells.At(0, 0).mRank, 5);
  EXPECT_EQ(cells.At(0, 0).mEntries, 4);
}

TEST(PatternCells, ShowTheFirstOfSeveralRanksWithAsMany) {
  PatternCells cells(2, 2);

  cells.BeginRank(2);
  cells.Add(1, 1);
  cells.BeginRank(4);
  cells.Add(1, 1);
  cells.End();

  EXPECT_EQ(cells.At(1, 1).mRank, 2);
}

TEST(PatternCells, ShowTheRankOfZerosButDoNotCountThem) {
  PatternCells cells(2, 2);

  cells.BeginRank(1);
  cells.Add(0, 0, true);
  cells.Add(0, 1, false);
  cells.End();

  EXPECT_EQ(cells.At(0, 0).mRank, 1);
  EXPECT_EQ(cells.At(0, 0).mEntries, 0);
  EXPECT_EQ(cells.At(0, 1).mEntries, 1);
  EXPECT_TRUE(cells.HasZeros());
}

TEST(PatternCells, HaveNoZerosWhereNothingIsStored) {
  PatternCells cells(2, 2);

  cells.BeginRank(0);
  cells.Add(0, 0);
  cells.End();

  EXPECT_FALSE(cells.HasZeros());
}

TEST(Strength, GrowsWithTheLogarithm) {
  EXPECT_DOUBLE_EQ(Strength(1, 100), 0.55);
  EXPECT_DOUBLE_EQ(Strength(10, 100), 0.775);
  EXPECT_DOUBLE_EQ(Strength(100, 100), 1);
  EXPECT_EQ(Strength(1, 1), 1);
  EXPECT_EQ(Strength(0, 100), 0.15);
}

}  // namespace
}  // namespace Pavex::Tool
