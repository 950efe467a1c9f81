#include "pavex/interop/eigen.h"
#include "tests/interop/refusal.h"

#include <complex>
#include <gtest/gtest.h>

namespace Pavex {
namespace {

using Rows = Eigen::SparseMatrix<double, Eigen::RowMajor>;
using Columns = Eigen::SparseMatrix<double>;
using DenseRows = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

// The 2 x 2 matrix with 1 and 2 on its diagonal, whose offsets start at `base`.
struct Diagonal {
  explicit Diagonal(int base) : ptr{base, base + 1, base + 2} {}
  MatrixCSR<double, int> Csr() {
    return MatrixCSR<double, int>::Borrow(2, 2, ptr, idx, values);
  }

  int ptr[3];
  int idx[2] = {0, 1};
  double values[2] = {1, 2};
};

TEST(EigenSparseRefusal, NamesTheCallThatCompressesAMatrix) {
  Rows eigen(2, 2);
  eigen.insert(0, 1) = 1;

  auto const refusal = RefusalOf([&] { BorrowEigenSparse(eigen); });

  EXPECT_EQ(refusal, "The Eigen matrix is not compressed: call its makeCompressed() first.");
}

// --- Indices, if the program requests their check

TEST(EigenIndexCheck, IsMadeOnRequestAlone) {
  Diagonal diagonal(0);
  diagonal.idx[1] = 2;
  auto matrix = diagonal.Csr();

  EXPECT_EQ(RefusalOf([&] { ViewAsEigen<Rows>(matrix); }), "accepted");
  EXPECT_EQ(RefusalOf([&] { ViewAsEigen<Rows>(matrix, IndexCheck::ALL); }),
            "The matrix to view has index 2 in row 1; expected 0 to 1.");
}

TEST(EigenIndexCheck, AcceptsIndicesInside) {
  Diagonal diagonal(0);
  MatrixCSR<double, int> const matrix = diagonal.Csr();

  EXPECT_EQ(RefusalOf([&] { ViewAsEigen<Rows>(matrix, IndexCheck::ALL); }), "accepted");
}

TEST(EigenIndexCheck, NamesTheFirstIndexOutside) {
  Diagonal diagonal(0);
  diagonal.idx[0] = -1;
  diagonal.idx[1] = 9;
  MatrixCSR<double, int> const matrix = diagonal.Csr();

  EXPECT_EQ(RefusalOf([&] { ViewAsEigen<Rows>(matrix, IndexCheck::ALL); }),
            "The matrix to view has index -1 in row 0; expected 0 to 1.");
}

TEST(EigenIndexCheck, NamesTheColumnOfCompressedColumns) {
  int ptr[] = {0, 1, 2};
  int idx[] = {0, 3};
  double values[] = {1, 2};
  MatrixCSC<double, int> const matrix = MatrixCSC<double, int>::Borrow(3, 2, ptr, idx, values);

  EXPECT_EQ(RefusalOf([&] { ViewAsEigen<Columns>(matrix, IndexCheck::ALL); }),
            "The matrix to view has index 3 in column 1; expected 0 to 2.");
}

TEST(EigenIndexCheck, NamesTheFirstOffsetThatDescendsOrLeavesTheEntries) {
  Diagonal diagonal(0);
  MatrixCSR<double, int> const matrix = diagonal.Csr();

  diagonal.ptr[1] = -1;
  EXPECT_EQ(RefusalOf([&] { ViewAsEigen<Rows>(matrix, IndexCheck::ALL); }),
            "The matrix to view has offset -1 behind row 0; expected 0 to 2.");

  diagonal.ptr[1] = 3;
  EXPECT_EQ(RefusalOf([&] { ViewAsEigen<Rows>(matrix, IndexCheck::ALL); }),
            "The matrix to view has offset 3 behind row 0; expected 0 to 2.");
}

TEST(EigenIndexCheck, FindsNothingInADenseMatrix) {
  double values[] = {1, 2};
  auto matrix = MatrixDense<double, int>::Borrow(2, 1, true, 1, values);

  EXPECT_EQ(RefusalOf([&] { ViewAsEigen<DenseRows>(matrix, IndexCheck::ALL); }), "accepted");
}

TEST(EigenSparseRefusal, IsGoneOnceTheMatrixIsCompressed) {
  Rows eigen(2, 2);
  eigen.insert(0, 1) = 1;
  eigen.makeCompressed();

  auto const refusal = RefusalOf([&] { BorrowEigenSparse(eigen); });

  EXPECT_EQ(refusal, "accepted");
}

TEST(EigenSparseRefusal, ConcernsSparseVectors) {
  Eigen::SparseVector<double> const vector(3);

  auto const refusal = RefusalOf([&] { BorrowEigenSparse(vector); });

  EXPECT_EQ(refusal, "The Eigen matrix has no offsets, as a SparseVector has none.");
}

TEST(EigenSparseRefusal, ConcernsCompressedRowsAsColumnMajor) {
  Diagonal diagonal(0);
  auto piece = diagonal.Csr();

  auto const refusal = RefusalOf([&] { ViewAsEigen<Columns>(piece); });

  EXPECT_EQ(refusal, "The matrix to view is not a MatrixCSC.");
}

TEST(EigenSparseRefusal, ConcernsADenseMatrixAsSparse) {
  double values[] = {1, 2};
  auto piece = MatrixDense<double, int>::Borrow(1, 2, true, 2, values);

  auto const refusal = RefusalOf([&] { ViewAsEigen<Rows>(piece); });

  EXPECT_EQ(refusal, "The matrix to view is not a MatrixCSR.");
}

TEST(EigenSparseRefusal, ConcernsAnotherValueType) {
  Diagonal diagonal(0);
  auto piece = diagonal.Csr();

  auto const refusal = RefusalOf(
      [&] { ViewAsEigen<Eigen::SparseMatrix<std::complex<double>, Eigen::RowMajor>>(piece); });

  EXPECT_EQ(refusal, "The matrix to view has another value type.");
}

TEST(EigenSparseRefusal, ConcernsAnotherIndexType) {
  Diagonal diagonal(0);
  auto piece = diagonal.Csr();

  auto const refusal = RefusalOf(
      [&] { ViewAsEigen<Eigen::SparseMatrix<double, Eigen::RowMajor, long>>(piece); });

  EXPECT_EQ(refusal, "The matrix to view has another index type.");
}

TEST(EigenSparseRefusal, ConcernsOffsetsThatStartAtOne) {
  Diagonal diagonal(1);
  auto piece = diagonal.Csr();

  auto const refusal = RefusalOf([&] { ViewAsEigen<Rows>(piece); });

  EXPECT_EQ(refusal, "The offsets of the matrix to view do not start at 0.");
}

TEST(EigenSparseRefusal, ConcernsAMatrixWithoutOffsets) {
  MatrixCSR<double, int> empty;

  auto const refusal = RefusalOf([&] { ViewAsEigen<Rows>(empty); });

  EXPECT_EQ(refusal, "The offsets of the matrix to view do not start at 0.");
}

TEST(EigenSparseRefusal, ConcernsEntriesWithoutIndices) {
  Diagonal diagonal(0);
  double values[] = {1, 2};
  auto piece = MatrixCSR<double, int>::Borrow(2, 2, diagonal.ptr, diagonal.idx, values);
  piece.mColIdx.mData = nullptr;

  for (IndexCheck const check : {IndexCheck::NONE, IndexCheck::ALL})
    EXPECT_EQ(RefusalOf([&] { ViewAsEigen<Rows>(piece, check); }),
              "The matrix to view has no indices.");
}

TEST(EigenSparseRefusal, ConcernsAPattern) {
  Diagonal diagonal(0);
  auto piece = MatrixCSR<double, int>::Borrow(2, 2, diagonal.ptr, diagonal.idx, nullptr);

  auto const refusal = RefusalOf([&] { ViewAsEigen<Rows>(piece); });

  EXPECT_EQ(refusal, "The matrix to view has no values.");
}

TEST(EigenDenseRefusal, ConcernsElementsThatAreNotContiguous) {
  DenseRows eigen = DenseRows::Zero(3, 2);
  auto column = eigen.col(0);

  auto const refusal = RefusalOf([&] { BorrowEigenDense(column); });

  EXPECT_EQ(refusal, "The rows (columns) of the Eigen matrix are not contiguous.");
}

TEST(EigenDenseRefusal, ConcernsRowsThatOverlap) {
  double values[4] = {};
  Eigen::Map<DenseRows, Eigen::Unaligned, Eigen::OuterStride<>> map(values, 2, 3,
                                                                    Eigen::OuterStride<>(1));

  auto const refusal = RefusalOf([&] { BorrowEigenDense(map); });

  EXPECT_EQ(refusal, "The rows (columns) of the Eigen matrix overlap.");
}

TEST(EigenDenseRefusal, ConcernsTheOtherOrderOfElements) {
  double values[] = {1, 2, 3, 4};
  auto rowMajor = MatrixDense<double, int>::Borrow(2, 2, true, 2, values);
  auto columnMajor = MatrixDense<double, int>::Borrow(2, 2, false, 2, values);

  EXPECT_EQ(RefusalOf([&] { ViewAsEigen<Eigen::MatrixXd>(rowMajor); }),
            "The matrix to view is not a column-major MatrixDense.");
  EXPECT_EQ(RefusalOf([&] { ViewAsEigen<DenseRows>(columnMajor); }),
            "The matrix to view is not a row-major MatrixDense.");
}

TEST(EigenDenseRefusal, ConcernsAnotherValueType) {
  double values[] = {1, 2};
  auto piece = MatrixDense<double, int>::Borrow(2, 1, false, 2, values);

  auto const refusal = RefusalOf([&] { ViewAsEigen<Eigen::MatrixXf>(piece); });

  EXPECT_EQ(refusal, "The matrix to view has another value type.");
}

TEST(EigenDenseRefusal, ConcernsAMatrixWithoutValues) {
  auto piece = MatrixDense<double, int>::Borrow(2, 1, false, 2, nullptr);

  auto const refusal = RefusalOf([&] { ViewAsEigen<Eigen::MatrixXd>(piece); });

  EXPECT_EQ(refusal, "The matrix to view has no values.");
}

TEST(EigenDenseRefusal, ConcernsSeveralColumnsAsAVector) {
  double values[] = {1, 2, 3, 4};
  auto piece = MatrixDense<double, int>::Borrow(2, 2, false, 2, values);

  auto const refusal = RefusalOf([&] { ViewAsEigen<Eigen::VectorXd>(piece); });

  EXPECT_EQ(refusal, "The matrix to view has another shape than the Eigen class.");
}

TEST(EigenDenseRefusal, ConcernsAnotherNumberOfRowsThanTheFixedOne) {
  double values[] = {1, 2};
  auto piece = MatrixDense<double, int>::Borrow(2, 1, false, 2, values);

  auto const refusal = RefusalOf([&] { ViewAsEigen<Eigen::Vector3d>(piece); });

  EXPECT_EQ(refusal, "The matrix to view has another shape than the Eigen class.");
}

}  // namespace
}  // namespace Pavex
