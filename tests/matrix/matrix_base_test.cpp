#include "pavex/matrix/matrix_base.h"

#include "pavex/matrix/coo.h"
#include "pavex/matrix/csc.h"
#include "pavex/matrix/csr.h"
#include "pavex/matrix/dense.h"
#include "tests/support/instances.h"
#include "tests/support/ledger_pool.h"
#include "tests/support/member_offset.h"
#include "tests/support/vtable_slot.h"

#include <complex>
#include <gtest/gtest.h>
#include <memory>
#include <type_traits>

namespace Pavex {
namespace {

TEST(MatrixBase, KeepsTheOrderOfItsVirtualFunctions) {
  EXPECT_TRUE(std::has_virtual_destructor_v<MatrixBase>);
  EXPECT_EQ(VtableSlot(&MatrixBase::NNZ), 2U);
  EXPECT_EQ(VtableSlot(&MatrixBase::StoreType), 3U);
  EXPECT_EQ(VtableSlot(&MatrixBase::HasValues), 4U);
  EXPECT_EQ(VtableSlot(&MatrixBase::SetValues), 5U);
  EXPECT_EQ(VtableSlot(&MatrixBase::Query), 6U);
}

TEST(MatrixBase, LaysItsMembersOutInOrder) {
  MatrixDense<double, int> const matrix;
  MatrixBase const& base = matrix;

  EXPECT_EQ(sizeof(MatrixBase), 72U);
  EXPECT_EQ(OffsetIn(base, base.mRows), 8);
  EXPECT_EQ(OffsetIn(base, base.mCols), 16);
  EXPECT_EQ(OffsetIn(base, base.mValueType), 24);
  EXPECT_EQ(OffsetIn(base, base.mIndexType), 28);
  EXPECT_EQ(OffsetIn(base, base.mPattern), 32);
  EXPECT_EQ(OffsetIn(base, base.mAttribute), 36);
  EXPECT_EQ(OffsetIn(base, base.mGlobalRows), 40);
  EXPECT_EQ(OffsetIn(base, base.mGlobalCols), 48);
  EXPECT_EQ(OffsetIn(base, base.mPartition), 56);
}

TEST(MatrixBase, IsAbstract) {
  EXPECT_TRUE(std::is_abstract_v<MatrixBase>);
}

// A class of an application with the five functions and nothing else.
struct Zeros : MatrixBase {
  long NNZ() const override { return 0; }
  PavexMatrixStoreType StoreType() const override { return STORE_TYPE_1; }
  bool HasValues() const override { return false; }
  void SetValues(void*) override {}
  void Query(PavexMatrixStore& store) const override { store.type = StoreType(); }
};

TEST(MatrixBase, IsABaseOfClassesOfTheApplicationWithTheFiveFunctionsAlone) {
  Zeros const zeros;

  EXPECT_EQ(zeros.mRows, 0);
  EXPECT_EQ(zeros.mValueType, 0);
  EXPECT_EQ(zeros.mIndexType, 0);
  EXPECT_EQ(zeros.mPartition.type, PARTITION_NONE);
}

TEST(MatrixBase, StatesItsPlaceInTheWholeMatrix) {
  MatrixDense<double, int> matrix = MatrixDense<double, int>::Borrow(2, 3, true, 3, nullptr);
  EXPECT_EQ(matrix.mGlobalRows, 2);
  EXPECT_EQ(matrix.mGlobalCols, 3);
  EXPECT_EQ(matrix.mPartition.type, PARTITION_NONE);

  matrix.PlaceIn(10, 3, MatrixPartition::RowWise(4));

  EXPECT_EQ(matrix.mGlobalRows, 10);
  EXPECT_EQ(matrix.mGlobalCols, 3);
  EXPECT_EQ(matrix.mPartition.type, PARTITION_ROW_WISE);
  EXPECT_EQ(matrix.mPartition.begin, 4);
  EXPECT_EQ(matrix.mRows, 2);
  EXPECT_EQ(matrix.mCols, 3);
}

TEST(MatrixBase, StatesItsPlaceAmongTheColumns) {
  MatrixDense<double, int> matrix = MatrixDense<double, int>::Borrow(2, 3, true, 3, nullptr);

  matrix.PlaceIn(2, 10, MatrixPartition::ColumnWise(4));

  EXPECT_EQ(matrix.mGlobalRows, 2);
  EXPECT_EQ(matrix.mGlobalCols, 10);
  EXPECT_EQ(matrix.mPartition.type, PARTITION_COLUMN_WISE);
  EXPECT_EQ(matrix.mPartition.begin, 4);
}

TEST(MatrixBase, FreesTheArraysOfTheDerivedClassWhenDeleted) {
  LedgerPool pool;
  auto created = std::make_unique<MatrixCSR<double, int>>();
  (void)MatrixCSR<double, int>::Create(pool, 2, 2, 3, true, *created);
  std::unique_ptr<MatrixBase> matrix = std::move(created);
  ASSERT_EQ(pool.OutstandingBlocks(), 3U);

  matrix.reset();

  EXPECT_EQ(pool.OutstandingBlocks(), 0U);
}

TEST(ValueTypeOf, NumbersTheValueTypes) {
  EXPECT_EQ(+ValueTypeOf<float>::kCode, 0);
  EXPECT_EQ(+ValueTypeOf<double>::kCode, 1);
  EXPECT_EQ(+ValueTypeOf<std::complex<float>>::kCode, 2);
  EXPECT_EQ(+ValueTypeOf<std::complex<double>>::kCode, 3);
}

TEST(IndexTypeOf, NumbersTheIndexTypes) {
  EXPECT_EQ(+IndexTypeOf<int>::kCode, 0);
  EXPECT_EQ(+IndexTypeOf<long>::kCode, 1);
}

template <typename Instance>
class EveryMatrix : public ::testing::Test {
 protected:
  static void ExpectEmpty(MatrixBase const& matrix) {
    EXPECT_EQ(matrix.mRows, 0);
    EXPECT_EQ(matrix.mCols, 0);
    EXPECT_EQ(matrix.mValueType, +ValueTypeOf<typename Instance::Value>::kCode);
    EXPECT_EQ(matrix.mIndexType, +IndexTypeOf<typename Instance::Index>::kCode);
    EXPECT_EQ(matrix.mPattern, 0);
    EXPECT_EQ(matrix.mAttribute, 0);
    EXPECT_EQ(matrix.mGlobalRows, 0);
    EXPECT_EQ(matrix.mGlobalCols, 0);
    EXPECT_EQ(matrix.mPartition.type, PARTITION_NONE);
    EXPECT_EQ(matrix.mPartition.begin, 0);
    EXPECT_EQ(matrix.NNZ(), 0);
    EXPECT_FALSE(matrix.HasValues());
  }

  template <typename Matrix>
  static void ExpectMovableOnly() {
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<Matrix>);
    EXPECT_TRUE(std::is_nothrow_move_assignable_v<Matrix>);
    EXPECT_FALSE(std::is_copy_constructible_v<Matrix>);
    EXPECT_FALSE(std::is_copy_assignable_v<Matrix>);
  }
};
TYPED_TEST_SUITE(EveryMatrix, AllInstances);

TYPED_TEST(EveryMatrix, StartsEmptyWithTheCodesOfItsTypes) {
  using T = typename TypeParam::Value;
  using I = typename TypeParam::Index;

  this->ExpectEmpty(MatrixDense<T, I>());
  this->ExpectEmpty(MatrixCOO<T, I>());
  this->ExpectEmpty(MatrixCSR<T, I>());
  this->ExpectEmpty(MatrixCSC<T, I>());
}

TYPED_TEST(EveryMatrix, MovesWithoutThrowingAndIsNeverCopied) {
  using T = typename TypeParam::Value;
  using I = typename TypeParam::Index;

  this->template ExpectMovableOnly<MatrixDense<T, I>>();
  this->template ExpectMovableOnly<MatrixCOO<T, I>>();
  this->template ExpectMovableOnly<MatrixCSR<T, I>>();
  this->template ExpectMovableOnly<MatrixCSC<T, I>>();
}

TYPED_TEST(EveryMatrix, IsFoundAgainByACheckedDownCast) {
  using T = typename TypeParam::Value;
  using I = typename TypeParam::Index;
  MatrixCSR<T, I> csr;
  MatrixBase& base = csr;

  EXPECT_EQ((dynamic_cast<MatrixCSR<T, I>*>(&base)), &csr);
  EXPECT_EQ((dynamic_cast<MatrixCSC<T, I>*>(&base)), nullptr);
  EXPECT_EQ(static_cast<void*>(&base), static_cast<void*>(&csr));
}

}  // namespace
}  // namespace Pavex
