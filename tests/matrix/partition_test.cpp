#include "pavex/matrix/partition.h"

#include <gtest/gtest.h>

namespace Pavex {
namespace {

TEST(MatrixPartition, IsNoneAtZeroAtTheStart) {
  MatrixPartition const partition;

  EXPECT_EQ(partition.type, 3);
  EXPECT_EQ(partition.begin, 0);
}

TEST(MatrixPartition, LaysItsMembersOutInOrder) {
  EXPECT_EQ(sizeof(MatrixPartition), 16U);
  EXPECT_EQ(offsetof(MatrixPartition, type), 0U);
  EXPECT_EQ(offsetof(MatrixPartition, begin), 8U);
  EXPECT_EQ(sizeof(MatrixPartition::type), 4U);
}

TEST(MatrixPartition, NumbersItsTypes) {
  EXPECT_EQ(PARTITION_ROW_WISE, 0);
  EXPECT_EQ(PARTITION_COLUMN_WISE, 1);
  EXPECT_EQ(PARTITION_NONZERO_WISE, 2);
  EXPECT_EQ(PARTITION_NONE, 3);
}

TEST(MatrixPartition, IsMadeForEachKindOfPiece) {
  EXPECT_EQ(MatrixPartition::RowWise(7).type, PARTITION_ROW_WISE);
  EXPECT_EQ(MatrixPartition::RowWise(7).begin, 7);
  EXPECT_EQ(MatrixPartition::ColumnWise(9).type, PARTITION_COLUMN_WISE);
  EXPECT_EQ(MatrixPartition::ColumnWise(9).begin, 9);
  EXPECT_EQ(MatrixPartition::NonzeroWise().type, PARTITION_NONZERO_WISE);
  EXPECT_EQ(MatrixPartition::NonzeroWise().begin, 0);
}

}  // namespace
}  // namespace Pavex
