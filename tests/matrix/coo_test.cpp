#include "pavex/matrix/coo.h"

#include "tests/support/arrays.h"
#include "tests/support/instances.h"
#include "tests/support/marked_store.h"
#include "tests/support/member_offset.h"

#include <gtest/gtest.h>
#include <vector>

namespace Pavex {
namespace {

template <typename Instance>
class MatrixCOOTest : public ::testing::Test {};
TYPED_TEST_SUITE(MatrixCOOTest, AllInstances);

TYPED_TEST(MatrixCOOTest, LaysItsMembersOutInOrder) {
  MatrixCOO<typename TypeParam::Value, typename TypeParam::Index> const matrix;

  EXPECT_EQ(sizeof(matrix), 200U);
  EXPECT_EQ(OffsetIn(matrix, matrix.mPart), 72);
  EXPECT_EQ(OffsetIn(matrix, matrix.mRowIdx), 80);
  EXPECT_EQ(OffsetIn(matrix, matrix.mColIdx), 120);
  EXPECT_EQ(OffsetIn(matrix, matrix.mValues), 160);
}

//  10 20  .  .
//   .  . 30  .
TYPED_TEST(MatrixCOOTest, BorrowsTheArraysOfTheCaller) {
  using T = typename TypeParam::Value;
  using I = typename TypeParam::Index;
  std::vector<I> rowIdx{0, 0, 1};
  std::vector<I> colIdx{0, 1, 2};
  std::vector<T> values{T(10), T(20), T(30)};

  auto const matrix =
      MatrixCOO<T, I>::Borrow(2, 4, 3, rowIdx.data(), colIdx.data(), values.data());

  EXPECT_EQ(matrix.mRows, 2);
  EXPECT_EQ(matrix.mCols, 4);
  EXPECT_EQ(matrix.mGlobalRows, 2);
  EXPECT_EQ(matrix.mGlobalCols, 4);
  EXPECT_EQ(Elements(matrix.mRowIdx), rowIdx);
  EXPECT_EQ(Elements(matrix.mColIdx), colIdx);
  EXPECT_EQ(Elements(matrix.mValues), values);
  EXPECT_EQ(matrix.mRowIdx.mData, rowIdx.data());
  EXPECT_EQ(matrix.mValues.mAllocator, nullptr);
}

TYPED_TEST(MatrixCOOTest, ShowsItsArrays) {
  using T = typename TypeParam::Value;
  using I = typename TypeParam::Index;
  I rowIdx[3] = {0, 0, 1};
  I colIdx[3] = {0, 1, 2};
  T values[3] = {};
  auto matrix = MatrixCOO<T, I>::Borrow(2, 4, 3, rowIdx, colIdx, values);
  matrix.mPart = 1;
  PavexMatrixStore store = MarkedStore();

  matrix.Query(store);

  EXPECT_EQ(store.rows, 2);
  EXPECT_EQ(store.cols, 4);
  EXPECT_EQ(store.type, STORE_COO_1);
  EXPECT_EQ(store.coo.nnz, 3);
  EXPECT_EQ(store.coo.row, rowIdx);
  EXPECT_EQ(store.coo.col, colIdx);
  EXPECT_EQ(store.coo.values, values);
}

TEST(MatrixCOO, ShowsTheLengthOfItsValueArrayAsItsEntryCount) {
  int rowIdx[5] = {0, 1, 2, 3, 4};
  int colIdx[5] = {0, 1, 2, 3, 4};
  auto const matrix = MatrixCOO<double, int>::Borrow(5, 5, 5, rowIdx, colIdx, nullptr);
  PavexMatrixStore store = MarkedStore();

  matrix.Query(store);

  EXPECT_EQ(store.coo.nnz, 0);
  EXPECT_EQ(store.coo.row, rowIdx);
  EXPECT_EQ(store.coo.values, nullptr);
}

TEST(MatrixCOO, ShowsTheValuesInUseNotTheRoomForThem) {
  int rowIdx[3] = {0, 1, 2};
  int colIdx[3] = {0, 1, 2};
  double values[3] = {};
  auto matrix = MatrixCOO<double, int>::Borrow(3, 3, 3, rowIdx, colIdx, values);
  matrix.mValues.mSize = 2;
  PavexMatrixStore store = MarkedStore();

  matrix.Query(store);

  EXPECT_EQ(store.coo.nnz, 2);
}

TEST(MatrixCOO, CountsItsRowIndices) {
  int rowIdx[2] = {0, 1};
  int colIdx[2] = {0, 1};
  auto matrix = MatrixCOO<double, int>::Borrow(2, 2, 2, rowIdx, colIdx, nullptr);

  matrix.mColIdx.mSize = 1;

  EXPECT_EQ(matrix.NNZ(), 2);
}

TEST(MatrixCOO, CountsTheEntriesOfAPattern) {
  int rowIdx[2] = {0, 1};
  int colIdx[2] = {0, 1};

  auto const matrix = MatrixCOO<double, int>::Borrow(2, 2, 2, rowIdx, colIdx, nullptr);

  EXPECT_FALSE(matrix.HasValues());
  EXPECT_EQ(matrix.NNZ(), 2);
}

TEST(MatrixCOO, HasNoEntriesWithoutRowsEvenIfItsIndexArraysAreNotEmpty) {
  int rowIdx[2] = {0, 1};
  int colIdx[2] = {0, 1};

  auto const matrix = MatrixCOO<double, int>::Borrow(0, 2, 2, rowIdx, colIdx, nullptr);

  EXPECT_EQ(matrix.mRowIdx.mSize, 2);
  EXPECT_EQ(matrix.NNZ(), 0);
}

}  // namespace
}  // namespace Pavex
