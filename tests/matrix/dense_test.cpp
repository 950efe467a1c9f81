#include "pavex/matrix/dense.h"

#include "tests/support/instances.h"
#include "tests/support/ledger_pool.h"
#include "tests/support/marked_store.h"
#include "tests/support/member_offset.h"

#include <gtest/gtest.h>
#include <utility>
#include <vector>

namespace Pavex {
namespace {

using Events = std::vector<PoolEvent>;
using Dense = MatrixDense<double, int>;

template <typename Instance>
class MatrixDenseTest : public ::testing::Test {};
TYPED_TEST_SUITE(MatrixDenseTest, AllInstances);

TYPED_TEST(MatrixDenseTest, LaysItsMembersOutInOrder) {
  MatrixDense<typename TypeParam::Value, typename TypeParam::Index> const matrix;

  EXPECT_EQ(sizeof(matrix), 128U);
  EXPECT_EQ(OffsetIn(matrix, matrix.mRowMajor), 72);
  EXPECT_EQ(OffsetIn(matrix, matrix.mValues), 80);
  EXPECT_EQ(OffsetIn(matrix, matrix.mLd), 120);
}

TYPED_TEST(MatrixDenseTest, IsCreatedWithTheRunLengthAsLeadingDimension) {
  using T = typename TypeParam::Value;
  LedgerPool pool;
  MatrixDense<T, typename TypeParam::Index> matrix;

  PavexStatus const status = decltype(matrix)::Create(pool, 3, 2, true, matrix);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_EQ(pool.Events(), (Events{Took(6 * sizeof(T))}));
  EXPECT_EQ(matrix.mRows, 3);
  EXPECT_EQ(matrix.mCols, 2);
  EXPECT_EQ(matrix.mGlobalRows, 3);
  EXPECT_EQ(matrix.mGlobalCols, 2);
  EXPECT_TRUE(matrix.mRowMajor);
  EXPECT_EQ(matrix.mLd, 2);
  EXPECT_TRUE(LedgerPool::Untouched(matrix.mValues.mData, 6 * sizeof(T)));
}

TYPED_TEST(MatrixDenseTest, GivesItsValuesBackWithTheirCapacity) {
  using T = typename TypeParam::Value;
  LedgerPool pool;
  {
    MatrixDense<T, typename TypeParam::Index> matrix;
    (void)decltype(matrix)::Create(pool, 3, 2, false, matrix);
    matrix.mValues.mSize = 1;
  }

  EXPECT_EQ(pool.Events(), (Events{Took(6 * sizeof(T)), GaveBack(6 * sizeof(T))}));
}

TYPED_TEST(MatrixDenseTest, SetsTheWholeStridedArrayAsItsValues) {
  using T = typename TypeParam::Value;
  std::vector<T> values(40);
  auto matrix = MatrixDense<T, typename TypeParam::Index>::Borrow(6, 4, false, 10, nullptr);

  matrix.SetValues(values.data());

  EXPECT_EQ(matrix.mValues.mData, values.data());
  EXPECT_EQ(matrix.mValues.mSize, 40);
  EXPECT_EQ(matrix.mValues.mCapacity, 40);
  EXPECT_EQ(matrix.mValues.mAllocator, nullptr);
}

TEST(MatrixDense, SetsRowsTimesLeadingDimensionValuesIfRowMajor) {
  std::vector<double> values(12);
  Dense matrix = Dense::Borrow(3, 2, true, 4, nullptr);

  matrix.SetValues(values.data());

  EXPECT_EQ(matrix.mValues.mSize, 12);
}

TEST(MatrixDense, ColumnMajorIsCreatedWithItsRowsAsLeadingDimension) {
  LedgerPool pool;
  Dense matrix;

  (void)Dense::Create(pool, 3, 2, false, matrix);

  EXPECT_FALSE(matrix.mRowMajor);
  EXPECT_EQ(matrix.mLd, 3);
}

TEST(MatrixDense, ReportsTheStoreTypeOfItsOrder) {
  Dense matrix;
  EXPECT_EQ(matrix.StoreType(), STORE_DENSE_COL_MAJOR);

  matrix.mRowMajor = true;

  EXPECT_EQ(matrix.StoreType(), STORE_DENSE_ROW_MAJOR);
}

TEST(MatrixDense, CountsRowsTimesColumnsWithAnyStrideAndValues) {
  Dense const matrix = Dense::Borrow(3, 2, true, 400, nullptr);

  EXPECT_EQ(matrix.NNZ(), 6);
  EXPECT_FALSE(matrix.HasValues());
}

TEST(MatrixDense, CountsBeyond32Bits) {
  Dense const matrix = Dense::Borrow(100000, 100000, true, 100000, nullptr);

  EXPECT_EQ(matrix.NNZ(), 10000000000);
}

TEST(MatrixDense, CountsAroundForAnAbsurdShape) {
  Dense const matrix =
      Dense::Borrow(std::int64_t{1} << 40, std::int64_t{1} << 40, true, 1, nullptr);

  EXPECT_EQ(matrix.NNZ(), 0);
}

TEST(MatrixDense, BorrowsFromTheFirstToTheLastElement) {
  std::vector<double> values(10);

  Dense const matrix = Dense::Borrow(3, 2, true, 4, values.data());

  EXPECT_EQ(matrix.mValues.mData, values.data());
  EXPECT_EQ(matrix.mValues.mSize, 10);  // two runs of 4 and the last of 2
  EXPECT_EQ(matrix.mValues.mAllocator, nullptr);
  EXPECT_EQ(matrix.mLd, 4);
  EXPECT_TRUE(matrix.HasValues());
}

TEST(MatrixDense, BorrowsASingleRunAndRunsOfASingleElement) {
  std::vector<double> values(9);

  EXPECT_EQ(Dense::Borrow(1, 3, true, 4, values.data()).mValues.mSize, 3);
  EXPECT_EQ(Dense::Borrow(3, 1, true, 4, values.data()).mValues.mSize, 9);
}

TEST(MatrixDense, HasNoValuesInRoomThatIsNotUsed) {
  std::vector<double> values(6);
  Dense matrix = Dense::Borrow(3, 2, true, 2, values.data());

  matrix.mValues.mSize = 0;

  EXPECT_FALSE(matrix.HasValues());
}

TEST(MatrixDense, BorrowsNoElementOfAnEmptyMatrix) {
  double value = 0;

  EXPECT_EQ(Dense::Borrow(0, 2, true, 4, &value).mValues.mSize, 0);
  EXPECT_EQ(Dense::Borrow(3, 0, true, 4, &value).mValues.mSize, 0);
}

TEST(MatrixDense, ReportsRunsAndRunLength) {
  Dense matrix = Dense::Borrow(3, 2, true, 4, nullptr);
  EXPECT_EQ(matrix.Runs(), 3);
  EXPECT_EQ(matrix.RunLength(), 2);

  matrix.mRowMajor = false;

  EXPECT_EQ(matrix.Runs(), 2);
  EXPECT_EQ(matrix.RunLength(), 3);
}

TEST(MatrixDense, ShowsItsArray) {
  std::vector<double> values(12);
  Dense const matrix = Dense::Borrow(3, 2, true, 4, values.data());
  PavexMatrixStore store = MarkedStore();

  matrix.Query(store);

  EXPECT_EQ(store.rows, 3);
  EXPECT_EQ(store.cols, 2);
  EXPECT_EQ(store.type, 11);
  EXPECT_EQ(store.dense.values, values.data());
  EXPECT_EQ(store.dense.ld, 4);
}

TEST(MatrixDense, LeavesTheRestOfTheStoreUntouched) {
  Dense const matrix = Dense::Borrow(3, 2, true, 4, nullptr);
  PavexMatrixStore store = MarkedStore();

  matrix.Query(store);

  EXPECT_EQ(ViewWord(store, 0), 0U);
  EXPECT_EQ(ViewWord(store, 1), 4U);
  EXPECT_EQ(ViewWord(store, 2), kStoreMark);
  EXPECT_EQ(ViewWord(store, 3), kStoreMark);
}

// A class of the application with a store type of its own.
class FurtherDense : public Dense {
 public:
  PavexMatrixStoreType StoreType() const override { return STORE_TYPE_0; }
};

TEST(MatrixDense, ShowsTheStoreTypeOfADerivedClass) {
  FurtherDense const matrix;
  PavexMatrixStore store{};
  store.type = STORE_CSR_0;

  matrix.Query(store);

  EXPECT_EQ(store.type, STORE_TYPE_0);
}

TEST(MatrixDense, GivesOwnedValuesBackWhenForeignOnesAreSet) {
  LedgerPool pool;
  std::vector<double> foreign(6);
  Dense matrix;
  (void)Dense::Create(pool, 3, 2, true, matrix);
  matrix.mValues.mSize = 2;

  matrix.SetValues(foreign.data());

  EXPECT_EQ(pool.Events(), (Events{Took(48), GaveBack(48)}));
}

TEST(MatrixDense, FreesNothingWhenForeignValuesAreSetTwice) {
  LedgerPool pool;
  std::vector<double> first(6);
  std::vector<double> second(6);
  Dense matrix;
  (void)Dense::Create(pool, 3, 2, true, matrix);
  matrix.SetValues(first.data());
  pool.ForgetEvents();

  matrix.SetValues(second.data());

  EXPECT_EQ(pool.Events(), Events{});
  EXPECT_EQ(matrix.mValues.mData, second.data());
}

TEST(MatrixDense, SetsNullValuesLikeAnyOther) {
  Dense matrix = Dense::Borrow(3, 2, true, 4, nullptr);

  matrix.SetValues(nullptr);

  EXPECT_EQ(matrix.mValues.mData, nullptr);
  EXPECT_TRUE(matrix.HasValues());
}

TEST(MatrixDense, MovesItsArrayAndItsDescription) {
  LedgerPool pool;
  Dense source;
  (void)Dense::Create(pool, 3, 2, true, source);
  source.mPattern = 4;
  double const* const values = source.mValues.mData;

  Dense const target(std::move(source));

  EXPECT_EQ(target.mRows, 3);
  EXPECT_EQ(target.mPattern, 4);
  EXPECT_TRUE(target.mRowMajor);
  EXPECT_EQ(target.mLd, 2);
  EXPECT_EQ(target.mValues.mData, values);
  EXPECT_FALSE(source.HasValues());
}

TEST(MatrixDense, FreesItsOwnValuesWhenAnotherIsMovedIntoIt) {
  LedgerPool pool;
  Dense target;
  Dense source;
  (void)Dense::Create(pool, 3, 2, true, target);
  (void)Dense::Create(pool, 1, 2, true, source);

  target = std::move(source);

  EXPECT_EQ(pool.Events(), (Events{Took(48), Took(16), GaveBack(48)}));
  EXPECT_EQ(target.mRows, 1);
}

TEST(MatrixDense, StaysAsItWasWhenItsCreationFails) {
  LedgerPool pool;
  Dense matrix;
  (void)Dense::Create(pool, 3, 2, true, matrix);
  double const* const values = matrix.mValues.mData;
  pool.Fail(Fault::From(1, 77));

  PavexStatus const status = Dense::Create(pool, 5, 5, false, matrix);

  EXPECT_EQ(status, 77);
  EXPECT_EQ(matrix.mRows, 3);
  EXPECT_TRUE(matrix.mRowMajor);
  EXPECT_EQ(matrix.mValues.mData, values);
}

}  // namespace
}  // namespace Pavex
