#include "pavex/matrix/csc.h"

#include "tests/support/arrays.h"
#include "tests/support/instances.h"
#include "tests/support/ledger_pool.h"
#include "tests/support/marked_store.h"
#include "tests/support/member_offset.h"

#include <gtest/gtest.h>
#include <limits>
#include <vector>

namespace Pavex {
namespace {

template <typename Instance>
class MatrixCSCTest : public ::testing::Test {};
TYPED_TEST_SUITE(MatrixCSCTest, AllInstances);

TYPED_TEST(MatrixCSCTest, LaysItsMembersOutInOrder) {
  MatrixCSC<typename TypeParam::Value, typename TypeParam::Index> const matrix;

  EXPECT_EQ(sizeof(matrix), 200U);
  EXPECT_EQ(OffsetIn(matrix, matrix.mPart), 72);
  EXPECT_EQ(OffsetIn(matrix, matrix.mColPtr), 80);
  EXPECT_EQ(OffsetIn(matrix, matrix.mRowIdx), 120);
  EXPECT_EQ(OffsetIn(matrix, matrix.mValues), 160);
}

//  10 20  .  .
//   .  . 30  .
TYPED_TEST(MatrixCSCTest, BorrowsTheArraysOfTheCaller) {
  using T = typename TypeParam::Value;
  using I = typename TypeParam::Index;
  std::vector<I> colPtr{0, 1, 2, 3, 3};
  std::vector<I> rowIdx{0, 0, 1};
  std::vector<T> values{T(10), T(20), T(30)};

  auto const matrix =
      MatrixCSC<T, I>::Borrow(2, 4, colPtr.data(), rowIdx.data(), values.data());

  EXPECT_EQ(matrix.mRows, 2);
  EXPECT_EQ(matrix.mCols, 4);
  EXPECT_EQ(matrix.mGlobalRows, 2);
  EXPECT_EQ(matrix.mGlobalCols, 4);
  EXPECT_EQ(Elements(matrix.mColPtr), colPtr);
  EXPECT_EQ(Elements(matrix.mRowIdx), rowIdx);
  EXPECT_EQ(Elements(matrix.mValues), values);
  EXPECT_EQ(matrix.mColPtr.mData, colPtr.data());
  EXPECT_EQ(matrix.mValues.mAllocator, nullptr);
}

TYPED_TEST(MatrixCSCTest, ShowsItsArraysAndTouchesNothingAfterThem) {
  using T = typename TypeParam::Value;
  using I = typename TypeParam::Index;
  I colPtr[5] = {0, 1, 2, 3, 3};
  I rowIdx[3] = {0, 0, 1};
  T values[3] = {};
  auto matrix = MatrixCSC<T, I>::Borrow(2, 4, colPtr, rowIdx, values);
  matrix.mPart = 2;
  PavexMatrixStore store = MarkedStore();

  matrix.Query(store);

  EXPECT_EQ(store.rows, 2);
  EXPECT_EQ(store.cols, 4);
  EXPECT_EQ(store.type, STORE_CSC_2);
  EXPECT_EQ(store.csc.ptr, colPtr);
  EXPECT_EQ(store.csc.idx, rowIdx);
  EXPECT_EQ(store.csc.values, values);
  EXPECT_EQ(ViewWord(store, 3), kStoreMark);
}

TEST(MatrixCSC, IsCreatedWithOneOffsetMoreThanColumns) {
  LedgerPool pool;
  MatrixCSC<double, int> matrix;

  (void)MatrixCSC<double, int>::Create(pool, 5, 2, 3, true, matrix);

  EXPECT_EQ(pool.Events(), (std::vector<PoolEvent>{Took(12), Took(12), Took(24)}));
}

TEST(MatrixCSC, BorrowsAPatternWithoutValues) {
  int colPtr[3] = {0, 2, 3};
  int rowIdx[3] = {0, 1, 2};

  auto const matrix = MatrixCSC<double, int>::Borrow(4, 2, colPtr, rowIdx, nullptr);

  EXPECT_EQ(matrix.NNZ(), 3);
  EXPECT_FALSE(matrix.HasValues());
}

TEST(MatrixCSC, HasNoEntriesWithoutOffsets) {
  MatrixCSC<double, int> matrix;
  matrix.mRows = 2;
  matrix.mCols = 2;

  EXPECT_EQ(matrix.NNZ(), 0);
}

TEST(MatrixCSC, ReadsNoOffsetOfAMatrixWithoutRowsOrColumns) {
  MatrixCSC<double, int> matrix;
  matrix.mColPtr.mSize = 3;  // at a null pointer: reading would crash

  matrix.mCols = 2;
  EXPECT_EQ(matrix.NNZ(), 0);

  matrix.mRows = 2;
  matrix.mCols = 0;
  EXPECT_EQ(matrix.NNZ(), 0);
}

TEST(MatrixCSC, CountsEntriesFromOffsetsOfAnyBase) {
  int colPtr[3] = {1, 1, 6};
  MatrixCSC<double, int> matrix;
  matrix.mRows = 9;
  matrix.mCols = 2;
  matrix.mColPtr.Borrow(colPtr, 3);

  EXPECT_EQ(matrix.NNZ(), 5);
}

TEST(MatrixCSC, CountsIntEntriesIn32Bits) {
  int colPtr[2] = {std::numeric_limits<int>::max(), std::numeric_limits<int>::min()};
  MatrixCSC<double, int> matrix;
  matrix.mRows = 1;
  matrix.mCols = 1;
  matrix.mColPtr.Borrow(colPtr, 2);

  EXPECT_EQ(matrix.NNZ(), 1);
}

}  // namespace
}  // namespace Pavex
