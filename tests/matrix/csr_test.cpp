#include "pavex/matrix/csr.h"

#include "tests/support/arrays.h"
#include "tests/support/instances.h"
#include "tests/support/ledger_pool.h"
#include "tests/support/marked_store.h"
#include "tests/support/member_offset.h"

#include <gtest/gtest.h>
#include <limits>
#include <type_traits>
#include <vector>

namespace Pavex {
namespace {

// The common base of CSR and CSC cannot be used as a matrix.
using Shared = MatrixCompressed<MatrixCSR<double, int>, double, int>;
static_assert(!std::is_constructible_v<Shared, MatrixCSR<double, int>&&>);
static_assert(!std::is_assignable_v<Shared&, MatrixCSR<double, int>&&>);

template <typename Instance>
class MatrixCSRTest : public ::testing::Test {};
TYPED_TEST_SUITE(MatrixCSRTest, AllInstances);

TYPED_TEST(MatrixCSRTest, LaysItsMembersOutInOrder) {
  MatrixCSR<typename TypeParam::Value, typename TypeParam::Index> const matrix;

  EXPECT_EQ(sizeof(matrix), 200U);
  EXPECT_EQ(OffsetIn(matrix, matrix.mPart), 72);
  EXPECT_EQ(OffsetIn(matrix, matrix.mRowPtr), 80);
  EXPECT_EQ(OffsetIn(matrix, matrix.mColIdx), 120);
  EXPECT_EQ(OffsetIn(matrix, matrix.mValues), 160);
}

//  10 20  .  .
//   .  . 30  .
TYPED_TEST(MatrixCSRTest, BorrowsTheArraysOfTheCaller) {
  using T = typename TypeParam::Value;
  using I = typename TypeParam::Index;
  std::vector<I> rowPtr{0, 2, 3};
  std::vector<I> colIdx{0, 1, 2};
  std::vector<T> values{T(10), T(20), T(30)};

  auto const matrix =
      MatrixCSR<T, I>::Borrow(2, 4, rowPtr.data(), colIdx.data(), values.data());

  EXPECT_EQ(matrix.mRows, 2);
  EXPECT_EQ(matrix.mCols, 4);
  EXPECT_EQ(matrix.mGlobalRows, 2);
  EXPECT_EQ(matrix.mGlobalCols, 4);
  EXPECT_EQ(Elements(matrix.mRowPtr), rowPtr);
  EXPECT_EQ(Elements(matrix.mColIdx), colIdx);
  EXPECT_EQ(Elements(matrix.mValues), values);
  EXPECT_EQ(matrix.mRowPtr.mData, rowPtr.data());
  EXPECT_EQ(matrix.mValues.mAllocator, nullptr);
}

TYPED_TEST(MatrixCSRTest, ShowsItsArraysAndTouchesNothingAfterThem) {
  using T = typename TypeParam::Value;
  using I = typename TypeParam::Index;
  I rowPtr[3] = {0, 2, 3};
  I colIdx[3] = {0, 1, 2};
  T values[3] = {};
  auto matrix = MatrixCSR<T, I>::Borrow(2, 4, rowPtr, colIdx, values);
  matrix.mPart = 1;
  PavexMatrixStore store = MarkedStore();

  matrix.Query(store);

  EXPECT_EQ(store.rows, 2);
  EXPECT_EQ(store.cols, 4);
  EXPECT_EQ(store.type, STORE_CSR_1);
  EXPECT_EQ(store.csr.ptr, rowPtr);
  EXPECT_EQ(store.csr.idx, colIdx);
  EXPECT_EQ(store.csr.values, values);
  EXPECT_EQ(ViewWord(store, 3), kStoreMark);
}

TEST(MatrixCSR, IsCreatedWithOneOffsetMoreThanRows) {
  LedgerPool pool;
  MatrixCSR<double, int> matrix;

  (void)MatrixCSR<double, int>::Create(pool, 2, 5, 3, true, matrix);

  EXPECT_EQ(pool.Events(), (std::vector<PoolEvent>{Took(12), Took(12), Took(24)}));
}

TEST(MatrixCSR, BorrowsAPatternWithoutValues) {
  int rowPtr[3] = {0, 2, 3};
  int colIdx[3] = {0, 1, 2};

  auto const matrix = MatrixCSR<double, int>::Borrow(2, 4, rowPtr, colIdx, nullptr);

  EXPECT_EQ(matrix.NNZ(), 3);
  EXPECT_FALSE(matrix.HasValues());
}

TEST(MatrixCSR, HasNoEntriesWithoutOffsets) {
  MatrixCSR<double, int> matrix;
  matrix.mRows = 2;
  matrix.mCols = 2;

  EXPECT_EQ(matrix.NNZ(), 0);
}

TEST(MatrixCSR, ReadsNoOffsetOfAMatrixWithoutRowsOrColumns) {
  MatrixCSR<double, int> matrix;
  matrix.mRowPtr.mSize = 3;  // at a null pointer: reading would crash

  matrix.mCols = 2;
  EXPECT_EQ(matrix.NNZ(), 0);

  matrix.mRows = 2;
  matrix.mCols = 0;
  EXPECT_EQ(matrix.NNZ(), 0);
}

TEST(MatrixCSR, CountsEntriesFromOffsetsOfAnyBase) {
  int rowPtr[3] = {5, 7, 9};
  MatrixCSR<double, int> matrix;
  matrix.mRows = 2;
  matrix.mCols = 1;
  matrix.mRowPtr.Borrow(rowPtr, 3);

  EXPECT_EQ(matrix.NNZ(), 4);
}

TEST(MatrixCSR, CountsIntEntriesIn32Bits) {
  int rowPtr[2] = {std::numeric_limits<int>::max(), std::numeric_limits<int>::min()};
  MatrixCSR<double, int> matrix;
  matrix.mRows = 1;
  matrix.mCols = 1;
  matrix.mRowPtr.Borrow(rowPtr, 2);

  EXPECT_EQ(matrix.NNZ(), 1);
}

TEST(MatrixCSR, CountsLongEntriesIn64Bits) {
  long rowPtr[2] = {-1, 3000000000};
  MatrixCSR<double, long> matrix;
  matrix.mRows = 1;
  matrix.mCols = 1;
  matrix.mRowPtr.Borrow(rowPtr, 2);

  EXPECT_EQ(matrix.NNZ(), 3000000001);
}

TEST(MatrixCSR, SetsABorrowedArrayOf0ElementsWithoutRows) {
  double values[1] = {};
  int rowPtr[1] = {0};
  auto matrix = MatrixCSR<double, int>::Borrow(0, 4, rowPtr, nullptr, nullptr);

  matrix.SetValues(values);

  EXPECT_EQ(matrix.mValues.mData, values);
  EXPECT_EQ(matrix.mValues.mSize, 0);
  EXPECT_EQ(matrix.mValues.mCapacity, 0);
}

}  // namespace
}  // namespace Pavex
