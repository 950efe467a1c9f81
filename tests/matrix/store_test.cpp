#include "pavex/matrix/store.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <type_traits>

namespace {

TEST(MatrixStore, LaysItsMembersOutInOrder) {
  EXPECT_EQ(sizeof(PavexMatrixStore), 56U);
  EXPECT_EQ(offsetof(PavexMatrixStore, rows), 0U);
  EXPECT_EQ(offsetof(PavexMatrixStore, cols), 8U);
  EXPECT_EQ(offsetof(PavexMatrixStore, type), 16U);
  EXPECT_EQ(offsetof(PavexMatrixStore, dense), 24U);
  EXPECT_EQ(offsetof(PavexMatrixStore, csr), 24U);
  EXPECT_EQ(offsetof(PavexMatrixStore, csc), 24U);
  EXPECT_EQ(offsetof(PavexMatrixStore, coo), 24U);
}

TEST(MatrixStore, LaysTheDenseViewOutInOrder) {
  EXPECT_EQ(offsetof(PavexMatrixStore::DenseView, values), 0U);
  EXPECT_EQ(offsetof(PavexMatrixStore::DenseView, ld), 8U);
}

TEST(MatrixStore, GivesCsrAndCscOneView) {
  EXPECT_TRUE(
      (std::is_same_v<decltype(PavexMatrixStore::csr), decltype(PavexMatrixStore::csc)>));
  EXPECT_EQ(offsetof(PavexMatrixStore::CompressedView, ptr), 0U);
  EXPECT_EQ(offsetof(PavexMatrixStore::CompressedView, idx), 8U);
  EXPECT_EQ(offsetof(PavexMatrixStore::CompressedView, values), 16U);
}

TEST(MatrixStore, LaysTheCooViewOutInOrder) {
  EXPECT_EQ(offsetof(PavexMatrixStore::CooView, nnz), 0U);
  EXPECT_EQ(offsetof(PavexMatrixStore::CooView, row), 8U);
  EXPECT_EQ(offsetof(PavexMatrixStore::CooView, col), 16U);
  EXPECT_EQ(offsetof(PavexMatrixStore::CooView, values), 24U);
}

TEST(MatrixStore, IsAPlainRecord) {
  EXPECT_TRUE(std::is_trivial_v<PavexMatrixStore>);
  EXPECT_TRUE(std::is_standard_layout_v<PavexMatrixStore>);
}

TEST(MatrixStoreType, NumbersTheThirteenTypesIn32Bits) {
  EXPECT_EQ(sizeof(PavexMatrixStoreType), 4U);
  EXPECT_EQ(STORE_TYPE_0, 0);
  EXPECT_EQ(STORE_TYPE_1, 1);
  EXPECT_EQ(STORE_CSR_0, 2);
  EXPECT_EQ(STORE_CSR_1, 3);
  EXPECT_EQ(STORE_CSR_2, 4);
  EXPECT_EQ(STORE_CSC_0, 5);
  EXPECT_EQ(STORE_CSC_1, 6);
  EXPECT_EQ(STORE_CSC_2, 7);
  EXPECT_EQ(STORE_COO_0, 8);
  EXPECT_EQ(STORE_COO_1, 9);
  EXPECT_EQ(STORE_COO_2, 10);
  EXPECT_EQ(STORE_DENSE_ROW_MAJOR, 11);
  EXPECT_EQ(STORE_DENSE_COL_MAJOR, 12);
}

TEST(MatrixStoreType, IsVisibleInTheNamespaceToo) {
  EXPECT_TRUE((std::is_same_v<Pavex::PavexMatrixStoreType, PavexMatrixStoreType>));
  EXPECT_TRUE((std::is_same_v<Pavex::PavexMatrixStore, PavexMatrixStore>));
  EXPECT_EQ(Pavex::STORE_COO_1, STORE_COO_1);
}

}  // namespace
