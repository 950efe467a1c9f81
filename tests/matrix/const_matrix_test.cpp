// Matrices over const arrays: which operations take them and which do not.

#include "pavex/matrix/const_matrix.h"

#include "pavex/pavex.h"

#include <complex>
#include <gtest/gtest.h>
#include <memory>
#include <type_traits>
#include <utility>

namespace Pavex {
namespace {

using Csr = MatrixCSR<double, int>;
using Csc = MatrixCSC<double, int>;
using Coo = MatrixCOO<double, int>;
using Dense = MatrixDense<double, int>;

int const kOffsets[] = {0, 1, 2};
int const kIndices[] = {0, 1};
double const kValues[] = {10, 20};

// Whether Scatter compiles with an M.
template <typename M, typename = void>
constexpr bool kScatters = false;
template <typename M>
constexpr bool kScatters<M, std::void_t<decltype(std::declval<Aggregator<double, int>&>()
                                                     .Scatter(std::declval<M&>()))>> = true;

TEST(ConstMatrix, ConvertsToAMatrixToReadAlone) {
  EXPECT_TRUE((std::is_convertible_v<ConstMatrix<Dense>&, MatrixBase const&>));
  EXPECT_FALSE((std::is_convertible_v<ConstMatrix<Dense>&, MatrixBase&>));
  EXPECT_FALSE((std::is_convertible_v<ConstMatrix<Dense>&, Dense const&>));
  EXPECT_FALSE((std::is_convertible_v<ConstMatrix<Dense>&, Dense&>));
}

TEST(ConstMatrix, DoesNotCompileInAScatter) {
  EXPECT_TRUE(kScatters<Dense>);
  EXPECT_FALSE(kScatters<ConstMatrix<Dense>>);
}

TEST(ConstMatrix, IsWhatBorrowReturnsForConstArrays) {
  int offsets[] = {0, 1, 2};
  int indices[] = {0, 1};
  double values[] = {10, 20};

  auto const csr = Csr::Borrow(2, 2, kOffsets, kIndices, kValues);
  auto const mixed = Csc::Borrow(2, 2, kOffsets, indices, values);
  auto const pattern = Coo::Borrow(2, 2, 2, kIndices, kIndices, nullptr);
  auto const dense = Dense::Borrow(2, 1, true, 1, kValues);
  auto const writable = Csr::Borrow(2, 2, offsets, indices, values);

  EXPECT_TRUE((std::is_same_v<decltype(csr), ConstMatrix<Csr> const>));
  EXPECT_TRUE((std::is_same_v<decltype(mixed), ConstMatrix<Csc> const>));
  EXPECT_TRUE((std::is_same_v<decltype(pattern), ConstMatrix<Coo> const>));
  EXPECT_TRUE((std::is_same_v<decltype(dense), ConstMatrix<Dense> const>));
  EXPECT_TRUE((std::is_same_v<decltype(writable), Csr const>));
}

TEST(ConstMatrix, IsNotWhatBorrowReturnsForNullPointers) {
  auto const csr = Csr::Borrow(0, 0, nullptr, nullptr, nullptr);
  auto const coo = Coo::Borrow(0, 0, 0, nullptr, nullptr, nullptr);
  auto const dense = Dense::Borrow(2, 1, true, 1, nullptr);

  EXPECT_TRUE((std::is_same_v<decltype(csr), Csr const>));
  EXPECT_TRUE((std::is_same_v<decltype(coo), Coo const>));
  EXPECT_TRUE((std::is_same_v<decltype(dense), Dense const>));
}

TEST(ConstMatrix, CarriesItsPlaceAndItsCodes) {
  auto piece = Csr::Borrow(2, 2, kOffsets, kIndices, kValues);

  piece.PlaceIn(8, 2, MatrixPartition::RowWise(4));
  piece.SetPattern(5);
  piece.SetAttribute(6);
  piece.SetPart(1);

  MatrixBase const& matrix = piece;
  EXPECT_EQ(matrix.mGlobalRows, 8);
  EXPECT_EQ(matrix.mGlobalCols, 2);
  EXPECT_EQ(matrix.mPartition.type, PARTITION_ROW_WISE);
  EXPECT_EQ(matrix.mPartition.begin, 4);
  EXPECT_EQ(matrix.mPattern, 5);
  EXPECT_EQ(matrix.mAttribute, 6);
  EXPECT_EQ(matrix.StoreType(), STORE_CSR_1);
}

TEST(ConstMatrix, IsGatheredAndUpdated) {
  double const next[] = {30, 40};
  MemoryPool pool;
  Aggregator<double, int> aggregator(&pool);
  auto piece = Coo::Borrow(2, 2, 2, kIndices, kIndices, kValues);

  ASSERT_EQ(aggregator.Gather(std::make_shared<SelfComm>(), piece, true), STATUS_OK);
  EXPECT_EQ(aggregator.TargetAs<Coo>()->mRowIdx.mData, kIndices);
  EXPECT_EQ(aggregator.TargetAs<Coo>()->mValues.mData, kValues);

  piece.SetValues(next);
  ASSERT_EQ(aggregator.Update(piece), STATUS_OK);
  EXPECT_EQ(aggregator.TargetAs<Coo>()->mValues.mData, next);
}

TEST(ConstMatrix, TakesTheRealAndImaginaryPartsOfComplexValues) {
  using Complex = MatrixCOO<std::complex<double>, int>;
  std::complex<double> const values[] = {{1, 2}, {3, 4}};
  double const parts[] = {5, 6, 7, 8};
  auto piece = Complex::Borrow(2, 2, 2, kIndices, kIndices, values);

  piece.SetValues(parts);

  PavexMatrixStore store;
  static_cast<MatrixBase const&>(piece).Query(store);
  EXPECT_EQ(store.coo.values, static_cast<void const*>(parts));
}

}  // namespace
}  // namespace Pavex
