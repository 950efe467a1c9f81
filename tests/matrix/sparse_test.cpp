// Behaviour that the three sparse classes share, for each class and instantiation.

#include "pavex/matrix/sparse.h"

#include "pavex/matrix/coo.h"
#include "pavex/matrix/csc.h"
#include "pavex/matrix/csr.h"
#include "pavex/matrix/sparse_traits.h"
#include "tests/support/arrays.h"
#include "tests/support/instances.h"
#include "tests/support/ledger_pool.h"

#include <complex>
#include <gtest/gtest.h>
#include <utility>
#include <vector>

namespace Pavex {
namespace {

using Events = std::vector<PoolEvent>;

// Names the two index arrays of a sparse class, and their contents for the matrix
//   10  .  .
//    .  . 20
//    .  . 30
template <typename Matrix>
struct Sparse;

template <typename T, typename I>
struct Sparse<MatrixCSR<T, I>> {
  using Value = T;
  using Index = I;
  static constexpr PavexMatrixStoreType kStoreType = STORE_CSR_0;
  static Buffer<I>& First(MatrixCSR<T, I>& matrix) { return matrix.mRowPtr; }
  static Buffer<I>& Second(MatrixCSR<T, I>& matrix) { return matrix.mColIdx; }
  static std::vector<I> FirstElements() { return {0, 1, 2, 3}; }
  static std::vector<I> SecondElements() { return {0, 2, 2}; }
};

template <typename T, typename I>
struct Sparse<MatrixCSC<T, I>> {
  using Value = T;
  using Index = I;
  static constexpr PavexMatrixStoreType kStoreType = STORE_CSC_0;
  static Buffer<I>& First(MatrixCSC<T, I>& matrix) { return matrix.mColPtr; }
  static Buffer<I>& Second(MatrixCSC<T, I>& matrix) { return matrix.mRowIdx; }
  static std::vector<I> FirstElements() { return {0, 1, 1, 3}; }
  static std::vector<I> SecondElements() { return {0, 1, 2}; }
};

template <typename T, typename I>
struct Sparse<MatrixCOO<T, I>> {
  using Value = T;
  using Index = I;
  static constexpr PavexMatrixStoreType kStoreType = STORE_COO_0;
  static Buffer<I>& First(MatrixCOO<T, I>& matrix) { return matrix.mRowIdx; }
  static Buffer<I>& Second(MatrixCOO<T, I>& matrix) { return matrix.mColIdx; }
  static std::vector<I> FirstElements() { return {0, 1, 2}; }
  static std::vector<I> SecondElements() { return {0, 2, 2}; }
};

template <typename Matrix>
class SparseMatrix : public ::testing::Test {
 protected:
  // Makes the matrix above in blocks of `pool`, which are taken in the order of the arrays.
  static Matrix Make(Allocator& pool) {
    using S = Sparse<Matrix>;
    using Value = typename S::Value;
    Matrix matrix;
    matrix.mRows = 3;
    matrix.mCols = 3;
    S::First(matrix) = Owned(pool, S::FirstElements());
    S::Second(matrix) = Owned(pool, S::SecondElements());
    matrix.mValues = Owned<Value>(pool, {Value(10), Value(20), Value(30)});
    return matrix;
  }

  static std::size_t FirstBytes() {
    return Sparse<Matrix>::FirstElements().size() * sizeof(typename Sparse<Matrix>::Index);
  }
};

using SparseTypes = EveryInstanceOf<MatrixCOO, MatrixCSR, MatrixCSC>;
TYPED_TEST_SUITE(SparseMatrix, SparseTypes);

TYPED_TEST(SparseMatrix, CountsItsEntries) {
  LedgerPool pool;
  TypeParam const matrix = this->Make(pool);

  EXPECT_EQ(matrix.NNZ(), 3);
}

TYPED_TEST(SparseMatrix, HasNoEntriesWithoutRowsOrColumns) {
  LedgerPool pool;
  TypeParam matrix = this->Make(pool);

  matrix.mRows = 0;
  EXPECT_EQ(matrix.NNZ(), 0);

  matrix.mRows = 3;
  matrix.mCols = 0;
  EXPECT_EQ(matrix.NNZ(), 0);
}

TYPED_TEST(SparseMatrix, ReportsTheStoreTypeOfItsPartCode) {
  int const first = Sparse<TypeParam>::kStoreType;
  TypeParam matrix;
  EXPECT_EQ(matrix.StoreType(), first);

  matrix.mPart = 1;
  EXPECT_EQ(matrix.StoreType(), first + 1);

  matrix.mPart = 2;
  EXPECT_EQ(matrix.StoreType(), first + 2);
}

TYPED_TEST(SparseMatrix, ReportsThe2StoreTypeForEveryOtherPartCode) {
  TypeParam matrix;

  for (std::int32_t const part : {5, 7, 3, -1}) {
    matrix.mPart = part;

    EXPECT_EQ(matrix.StoreType(), Sparse<TypeParam>::kStoreType + 2) << part;
  }
}

TYPED_TEST(SparseMatrix, HasValuesWhenTheirArrayIsNotEmpty) {
  LedgerPool pool;
  TypeParam matrix = this->Make(pool);
  EXPECT_TRUE(matrix.HasValues());

  matrix.mValues = {};

  EXPECT_FALSE(matrix.HasValues());
  EXPECT_EQ(matrix.NNZ(), 3);
}

TYPED_TEST(SparseMatrix, CountsTheElementsInUseNotTheRoomForThem) {
  LedgerPool pool;
  TypeParam matrix = this->Make(pool);

  Sparse<TypeParam>::First(matrix).mSize = 0;
  matrix.mValues.mSize = 0;

  EXPECT_EQ(matrix.NNZ(), 0);
  EXPECT_FALSE(matrix.HasValues());
}

TYPED_TEST(SparseMatrix, GivesItsArraysBackInReverseOrder) {
  using T = typename Sparse<TypeParam>::Value;
  using I = typename Sparse<TypeParam>::Index;
  LedgerPool pool;
  {
    TypeParam const matrix = this->Make(pool);
    EXPECT_EQ(matrix.mValues.mSize, 3);
  }

  Events const& events = pool.Events();
  std::size_t const first = this->FirstBytes();
  ASSERT_EQ(events,
            (Events{Took(first), Took(3 * sizeof(I)), Took(3 * sizeof(T)),
                    GaveBack(3 * sizeof(T)), GaveBack(3 * sizeof(I)), GaveBack(first)}));
  EXPECT_EQ(events[3].block, events[2].block);
  EXPECT_EQ(events[4].block, events[1].block);
  EXPECT_EQ(events[5].block, events[0].block);
}

TYPED_TEST(SparseMatrix, NamesItsIndexArraysInTheirOrder) {
  using I = typename Sparse<TypeParam>::Index;
  LedgerPool pool;
  TypeParam matrix = this->Make(pool);
  TypeParam const& readOnly = matrix;

  Buffer<I>& first = Offsets(matrix);
  Buffer<I>& second = Indices(matrix);
  Buffer<I> const& readOnlyFirst = Offsets(readOnly);
  Buffer<I> const& readOnlySecond = Indices(readOnly);

  EXPECT_EQ(&first, &Sparse<TypeParam>::First(matrix));
  EXPECT_EQ(&second, &Sparse<TypeParam>::Second(matrix));
  EXPECT_EQ(&readOnlyFirst, &first);
  EXPECT_EQ(&readOnlySecond, &second);
}

TYPED_TEST(SparseMatrix, MovesItsArraysAndItsDescription) {
  LedgerPool pool;
  TypeParam source = this->Make(pool);
  source.mPart = 1;
  source.PlaceIn(9, 3, MatrixPartition::RowWise(4));
  auto* const values = source.mValues.mData;

  TypeParam const target(std::move(source));

  EXPECT_EQ(target.mRows, 3);
  EXPECT_EQ(target.mPart, 1);
  EXPECT_EQ(target.mGlobalRows, 9);
  EXPECT_EQ(target.mPartition.begin, 4);
  EXPECT_EQ(target.mValues.mData, values);
  EXPECT_EQ(target.NNZ(), 3);
  EXPECT_FALSE(source.HasValues());
  EXPECT_EQ(source.NNZ(), 0);
}

TYPED_TEST(SparseMatrix, FreesItsOwnArraysWhenAnotherIsMovedIntoIt) {
  LedgerPool pool;
  LedgerPool otherPool;
  TypeParam target = this->Make(pool);
  TypeParam source = this->Make(otherPool);

  target = std::move(source);

  EXPECT_EQ(pool.OutstandingBlocks(), 0U);
  EXPECT_EQ(otherPool.OutstandingBlocks(), 3U);
  EXPECT_EQ(target.mValues.mAllocator, &otherPool);
}

TYPED_TEST(SparseMatrix, SetsABorrowedValueArrayOfItsEntries) {
  using T = typename Sparse<TypeParam>::Value;
  LedgerPool pool;
  TypeParam matrix = this->Make(pool);
  matrix.mValues.mAux = 4;
  std::vector<T> foreign(3, T(7));
  pool.ForgetEvents();

  matrix.SetValues(foreign.data());

  EXPECT_EQ(matrix.mValues.mData, foreign.data());
  EXPECT_EQ(matrix.mValues.mSize, 3);
  EXPECT_EQ(matrix.mValues.mCapacity, 3);
  EXPECT_EQ(matrix.mValues.mAllocator, nullptr);
  EXPECT_EQ(matrix.mValues.mAux, 0U);
  EXPECT_EQ(pool.Events(), (Events{GaveBack(3 * sizeof(T))}));
}

TYPED_TEST(SparseMatrix, GivesTheCapacityOfReplacedValuesBack) {
  using T = typename Sparse<TypeParam>::Value;
  LedgerPool pool;
  TypeParam matrix = this->Make(pool);
  matrix.mValues.mSize = 1;
  pool.ForgetEvents();

  matrix.SetValues(nullptr);

  EXPECT_EQ(pool.Events(), (Events{GaveBack(3 * sizeof(T))}));
}

TYPED_TEST(SparseMatrix, FreesNothingWhenForeignValuesAreSetTwice) {
  using T = typename Sparse<TypeParam>::Value;
  LedgerPool pool;
  TypeParam matrix = this->Make(pool);
  std::vector<T> first(3);
  std::vector<T> second(3);
  matrix.SetValues(first.data());
  pool.ForgetEvents();

  matrix.SetValues(second.data());

  EXPECT_EQ(pool.Events(), Events{});
  EXPECT_EQ(matrix.mValues.mData, second.data());
}

TYPED_TEST(SparseMatrix, SetsNullValuesLikeAnyOther) {
  LedgerPool pool;
  TypeParam matrix = this->Make(pool);

  matrix.SetValues(nullptr);

  EXPECT_EQ(matrix.mValues.mData, nullptr);
  EXPECT_TRUE(matrix.HasValues());
}

TYPED_TEST(SparseMatrix, SetsNoValuesWithoutRows) {
  using T = typename Sparse<TypeParam>::Value;
  LedgerPool pool;
  TypeParam matrix = this->Make(pool);
  matrix.mRows = 0;
  T foreign[1] = {};

  matrix.SetValues(foreign);

  EXPECT_EQ(matrix.mValues.mData, foreign);
  EXPECT_EQ(matrix.mValues.mSize, 0);
  EXPECT_FALSE(matrix.HasValues());
}

// A class of an application that changes how the matrix describes itself.
template <typename Matrix>
class Derived : public Matrix {
 public:
  explicit Derived(Matrix&& matrix) : Matrix(std::move(matrix)) {}
  long NNZ() const override { return 2; }
  PavexMatrixStoreType StoreType() const override { return STORE_TYPE_1; }
};

TYPED_TEST(SparseMatrix, SetsAsManyValuesAsADerivedClassCounts) {
  using T = typename Sparse<TypeParam>::Value;
  LedgerPool pool;
  Derived<TypeParam> matrix(this->Make(pool));
  std::vector<T> foreign(2);

  matrix.SetValues(foreign.data());

  EXPECT_EQ(matrix.mValues.mSize, 2);
}

TYPED_TEST(SparseMatrix, ShowsTheStoreTypeOfADerivedClass) {
  LedgerPool pool;
  Derived<TypeParam> const matrix(this->Make(pool));
  PavexMatrixStore store{};

  matrix.Query(store);

  EXPECT_EQ(store.type, STORE_TYPE_1);
}

TYPED_TEST(SparseMatrix, IsCreatedWithRoomForItsEntries) {
  using T = typename Sparse<TypeParam>::Value;
  using I = typename Sparse<TypeParam>::Index;
  LedgerPool pool;
  TypeParam matrix;

  PavexStatus const status = TypeParam::Create(pool, 3, 3, 3, true, matrix);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_EQ(pool.Events(),
            (Events{Took(this->FirstBytes()), Took(3 * sizeof(I)), Took(3 * sizeof(T))}));
  EXPECT_EQ(matrix.mRows, 3);
  EXPECT_EQ(matrix.mCols, 3);
  EXPECT_EQ(matrix.mGlobalRows, 3);
  EXPECT_EQ(matrix.mGlobalCols, 3);
  EXPECT_EQ(Sparse<TypeParam>::Second(matrix).mSize, 3);
  EXPECT_TRUE(LedgerPool::Untouched(matrix.mValues.mData, 3 * sizeof(T)));
}

TYPED_TEST(SparseMatrix, IsCreatedWithTheShapeAskedFor) {
  LedgerPool pool;
  TypeParam matrix;

  PavexStatus const status = TypeParam::Create(pool, 2, 5, 1, true, matrix);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_EQ(matrix.mRows, 2);
  EXPECT_EQ(matrix.mCols, 5);
  EXPECT_EQ(matrix.mGlobalRows, 2);
  EXPECT_EQ(matrix.mGlobalCols, 5);
}

TYPED_TEST(SparseMatrix, IsCreatedAsAPatternWithoutAValueArray) {
  using I = typename Sparse<TypeParam>::Index;
  LedgerPool pool;
  TypeParam matrix;

  PavexStatus const status = TypeParam::Create(pool, 3, 3, 3, false, matrix);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_EQ(pool.Events(), (Events{Took(this->FirstBytes()), Took(3 * sizeof(I))}));
  EXPECT_FALSE(matrix.HasValues());
}

TYPED_TEST(SparseMatrix, StaysAsItWasWhenItsCreationFails) {
  for (int nth = 1; nth <= 3; ++nth) {
    LedgerPool oldPool;
    LedgerPool pool;
    TypeParam matrix = this->Make(oldPool);
    pool.Fail(Fault::From(nth, 40 + nth));

    PavexStatus const status = TypeParam::Create(pool, 8, 9, 10, true, matrix);

    EXPECT_EQ(status, 40 + nth);
    EXPECT_EQ(matrix.mRows, 3);
    EXPECT_EQ(matrix.NNZ(), 3);
    EXPECT_EQ(oldPool.OutstandingBlocks(), 3U);
    EXPECT_EQ(pool.OutstandingBlocks(), 0U);
  }
}

}  // namespace
}  // namespace Pavex
