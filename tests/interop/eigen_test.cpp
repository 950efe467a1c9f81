#include "pavex/interop/eigen.h"

#include "pavex/comm/local_comm.h"
#include "pavex/pavex.h"
#include "tests/support/instances.h"

#include <gtest/gtest.h>
#include <type_traits>

namespace Pavex {
namespace {

// The matrix
//   1 0 2
//   0 3 0
//   4 0 5
// as an Eigen matrix with the given order of storage; entry k of the rows has value k + 1.
template <typename Sparse>
Sparse ThreeByThree() {
  using Entry = Eigen::Triplet<typename Sparse::Scalar, typename Sparse::StorageIndex>;
  Entry const entries[] = {{0, 0, 1}, {0, 2, 2}, {1, 1, 3}, {2, 0, 4}, {2, 2, 5}};
  Sparse matrix(3, 3);
  matrix.setFromTriplets(std::begin(entries), std::end(entries));
  return matrix;
}

// Gathers `piece` on the one rank of SelfComm, where the target borrows its arrays.
template <typename T, typename I>
MatrixBase& GatherAlone(Aggregator<T, I>& aggregator, MatrixBase const& piece) {
  EXPECT_EQ(aggregator.Gather(std::make_shared<SelfComm>(), piece, true), STATUS_OK);
  return *aggregator.Target();
}

template <typename Instance>
class EigenInstanceTest : public ::testing::Test {
 public:
  using T = typename Instance::Value;
  using I = typename Instance::Index;
  using Rows = Eigen::SparseMatrix<T, Eigen::RowMajor, I>;
  using Columns = Eigen::SparseMatrix<T, Eigen::ColMajor, I>;
  using DenseRows = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
  using DenseColumns = Eigen::Matrix<T, Eigen::Dynamic, Eigen::Dynamic, Eigen::ColMajor>;
};
TYPED_TEST_SUITE(EigenInstanceTest, AllInstances);

TYPED_TEST(EigenInstanceTest, BorrowsTheArraysOfARowMajorSparseMatrixAsCsr) {
  auto const eigen = ThreeByThree<typename TestFixture::Rows>();

  MatrixCSR<typename TestFixture::T, typename TestFixture::I> const piece =
      BorrowEigenSparse(eigen);

  EXPECT_EQ(piece.mRows, 3);
  EXPECT_EQ(piece.mCols, 3);
  EXPECT_EQ(piece.NNZ(), 5);
  EXPECT_EQ(piece.mRowPtr.mData, eigen.outerIndexPtr());
  EXPECT_EQ(piece.mColIdx.mData, eigen.innerIndexPtr());
  EXPECT_EQ(piece.mValues.mData, eigen.valuePtr());
  EXPECT_EQ(piece.mValues.mAllocator, nullptr);
}

TYPED_TEST(EigenInstanceTest, BorrowsTheArraysOfAColumnMajorSparseMatrixAsCsc) {
  auto const eigen = ThreeByThree<typename TestFixture::Columns>();

  MatrixCSC<typename TestFixture::T, typename TestFixture::I> const piece =
      BorrowEigenSparse(eigen);

  EXPECT_EQ(piece.mRows, 3);
  EXPECT_EQ(piece.mCols, 3);
  EXPECT_EQ(piece.NNZ(), 5);
  EXPECT_EQ(piece.mColPtr.mData, eigen.outerIndexPtr());
  EXPECT_EQ(piece.mRowIdx.mData, eigen.innerIndexPtr());
  EXPECT_EQ(piece.mValues.mData, eigen.valuePtr());
  EXPECT_EQ(piece.mValues.mAllocator, nullptr);
}

TYPED_TEST(EigenInstanceTest, ViewsTheArraysOfAGatheredCsrMatrix) {
  using Sparse = typename TestFixture::Rows;
  auto const eigen = ThreeByThree<Sparse>();
  MemoryPool pool;
  Aggregator<typename TestFixture::T, typename TestFixture::I> aggregator(&pool);
  MatrixBase& target = GatherAlone(aggregator, BorrowEigenSparse(eigen));

  Eigen::Map<Sparse> const view = ViewAsEigen<Sparse>(target);

  EXPECT_EQ(view.outerIndexPtr(), eigen.outerIndexPtr());
  EXPECT_EQ(view.innerIndexPtr(), eigen.innerIndexPtr());
  EXPECT_EQ(view.valuePtr(), eigen.valuePtr());
  EXPECT_EQ(view.nonZeros(), 5);
}

TYPED_TEST(EigenInstanceTest, ViewsTheArraysOfAGatheredCscMatrix) {
  using Sparse = typename TestFixture::Columns;
  auto const eigen = ThreeByThree<Sparse>();
  MemoryPool pool;
  Aggregator<typename TestFixture::T, typename TestFixture::I> aggregator(&pool);
  MatrixBase& target = GatherAlone(aggregator, BorrowEigenSparse(eigen));

  Eigen::Map<Sparse> const view = ViewAsEigen<Sparse>(target);

  EXPECT_EQ(view.outerIndexPtr(), eigen.outerIndexPtr());
  EXPECT_EQ(view.innerIndexPtr(), eigen.innerIndexPtr());
  EXPECT_EQ(view.valuePtr(), eigen.valuePtr());
  EXPECT_EQ(view.nonZeros(), 5);
}

TYPED_TEST(EigenInstanceTest, BorrowsAndViewsADenseRowMajorMatrix) {
  using Dense = typename TestFixture::DenseRows;
  Dense eigen = Dense::Zero(2, 3);

  MatrixDense<typename TestFixture::T, typename TestFixture::I> piece =
      BorrowEigenDense<typename TestFixture::I>(eigen);
  auto const view = ViewAsEigen<Dense>(piece);

  EXPECT_EQ(piece.StoreType(), STORE_DENSE_ROW_MAJOR);
  EXPECT_EQ(piece.mLd, 3);
  EXPECT_EQ(piece.mValues.mData, eigen.data());
  EXPECT_EQ(view.data(), eigen.data());
  EXPECT_EQ(view.rows(), 2);
  EXPECT_EQ(view.cols(), 3);
}

TYPED_TEST(EigenInstanceTest, BorrowsAndViewsADenseColumnMajorMatrix) {
  using Dense = typename TestFixture::DenseColumns;
  Dense eigen = Dense::Zero(2, 3);

  MatrixDense<typename TestFixture::T, typename TestFixture::I> piece =
      BorrowEigenDense<typename TestFixture::I>(eigen);
  auto const view = ViewAsEigen<Dense>(piece);

  EXPECT_EQ(piece.StoreType(), STORE_DENSE_COL_MAJOR);
  EXPECT_EQ(piece.mLd, 2);
  EXPECT_EQ(piece.mValues.mData, eigen.data());
  EXPECT_EQ(view.data(), eigen.data());
  EXPECT_EQ(view.rows(), 2);
  EXPECT_EQ(view.cols(), 3);
}

using Rows = Eigen::SparseMatrix<double, Eigen::RowMajor>;
using DenseRows = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

TEST(EigenSparse, BorrowsRowsFromTheMiddleOfAMatrix) {
  Rows const whole = ThreeByThree<Rows>();

  MatrixCSR<double, int> const piece = BorrowEigenSparse(whole.middleRows(1, 2));

  EXPECT_EQ(piece.mRows, 2);
  EXPECT_EQ(piece.NNZ(), 3);
  EXPECT_EQ(piece.mRowPtr.mData, whole.outerIndexPtr() + 1);
  EXPECT_EQ(piece.mColIdx.mData, whole.innerIndexPtr() + 2);
  EXPECT_EQ(piece.mValues.mData, whole.valuePtr() + 2);
}

TEST(EigenSparse, BorrowsAMatrixWithoutEntries) {
  Rows const empty(2, 3);

  MatrixCSR<double, int> const piece = BorrowEigenSparse(empty);

  EXPECT_EQ(piece.mRows, 2);
  EXPECT_EQ(piece.mCols, 3);
  EXPECT_EQ(piece.NNZ(), 0);
}

TEST(EigenSparse, ViewsAMatrixWithoutEntries) {
  int ptr[] = {0, 0, 0};
  auto piece = MatrixCSR<double, int>::Borrow(2, 3, ptr, nullptr, nullptr);

  auto const view = ViewAsEigen<Rows>(piece);

  EXPECT_EQ(view.rows(), 2);
  EXPECT_EQ(view.cols(), 3);
  EXPECT_EQ(view.nonZeros(), 0);
}

TEST(EigenSparse, ViewsTheMatrixThatRanksGatherFromTheirRows) {
  LocalComm::Run(3, [](std::shared_ptr<Comm> const& comm) {
    Rows const whole = ThreeByThree<Rows>();
    Rows const mine = whole.middleRows(comm->Rank(), 1);
    auto piece = BorrowEigenSparse(mine);
    piece.PlaceIn(3, 3, MatrixPartition::RowWise(comm->Rank()));
    MemoryPool pool;
    Aggregator<double, int> aggregator(&pool);

    ASSERT_EQ(aggregator.Allgather(comm, piece, true), STATUS_OK);
    auto const view = ViewAsEigen<Rows>(*aggregator.Target());

    auto const& target = dynamic_cast<MatrixCSR<double, int> const&>(*aggregator.Target());
    EXPECT_EQ(view.valuePtr(), target.mValues.mData);
    EXPECT_EQ(view.innerIndexPtr(), target.mColIdx.mData);
    EXPECT_EQ(view.outerIndexPtr(), target.mRowPtr.mData);
    EXPECT_EQ(view.toDense(), whole.toDense());
  });
}

TEST(EigenSparse, ViewsAConstMatrixForReadingOnly) {
  Rows const eigen = ThreeByThree<Rows>();
  auto const piece = BorrowEigenSparse(eigen);

  auto const view = ViewAsEigen<Rows>(piece);

  static_assert(std::is_same_v<decltype(view), Eigen::Map<Rows const> const>);
  EXPECT_EQ(view.valuePtr(), eigen.valuePtr());
}

TEST(EigenSparse, ChangesTheMatrixThroughItsView) {
  Rows const eigen = ThreeByThree<Rows>();
  auto piece = BorrowEigenSparse(eigen);

  ViewAsEigen<Rows>(piece).coeffRef(2, 0) = 40;

  EXPECT_EQ(eigen.coeff(2, 0), 40);
}

TEST(EigenDense, BorrowsABlockWithTheOuterStrideAsLeadingDimension) {
  Eigen::MatrixXd eigen = Eigen::MatrixXd::Zero(5, 4);
  auto block = eigen.block(1, 1, 2, 3);

  MatrixDense<double, int> const piece = BorrowEigenDense(block);

  EXPECT_EQ(piece.mRows, 2);
  EXPECT_EQ(piece.mCols, 3);
  EXPECT_EQ(piece.mLd, 5);
  EXPECT_EQ(piece.mValues.mData, &eigen(1, 1));
  EXPECT_EQ(piece.mValues.mSize, 12);
}

TEST(EigenDense, BorrowsAMapWithAnOuterStride) {
  double values[11] = {};
  Eigen::Map<DenseRows, Eigen::Unaligned, Eigen::OuterStride<>> map(values, 3, 3,
                                                                    Eigen::OuterStride<>(4));

  MatrixDense<double, int> const piece = BorrowEigenDense(map);

  EXPECT_EQ(piece.mLd, 4);
  EXPECT_EQ(piece.mValues.mData, values);
  EXPECT_EQ(piece.mValues.mSize, 11);
}

TEST(EigenDense, BorrowsColumnsOfOneElementWithAnyInnerStride) {
  double values[9] = {};
  using Stride = Eigen::Stride<Eigen::Dynamic, Eigen::Dynamic>;
  Eigen::Map<Eigen::MatrixXd, Eigen::Unaligned, Stride> map(values, 1, 3, Stride(4, 2));

  MatrixDense<double, int> const piece = BorrowEigenDense(map);

  EXPECT_EQ(piece.mRows, 1);
  EXPECT_EQ(piece.mCols, 3);
  EXPECT_EQ(piece.mLd, 4);
  EXPECT_EQ(piece.mValues.mSize, 9);
}

TEST(EigenDense, BorrowsAReferenceToAConstMatrixForAGather) {
  Eigen::MatrixXd const eigen = Eigen::MatrixXd::Zero(4, 2);
  Eigen::Ref<Eigen::MatrixXd const> const reference(eigen);

  ConstMatrix<MatrixDense<double, int>> const piece = BorrowConstEigenDense(reference);
  PavexMatrixStore store{};
  static_cast<MatrixBase const&>(piece).Query(store);

  EXPECT_EQ(store.type, STORE_DENSE_COL_MAJOR);
  EXPECT_EQ(store.dense.ld, 4);
  EXPECT_EQ(store.dense.values, eigen.data());
}

TEST(EigenDense, BorrowsAVectorAsOneColumn) {
  Eigen::VectorXd eigen = Eigen::VectorXd::Zero(4);

  MatrixDense<double, int> const piece = BorrowEigenDense(eigen);

  EXPECT_EQ(piece.StoreType(), STORE_DENSE_COL_MAJOR);
  EXPECT_EQ(piece.mRows, 4);
  EXPECT_EQ(piece.mCols, 1);
  EXPECT_EQ(piece.mValues.mData, eigen.data());
}

TEST(EigenDense, ViewsTheLeadingDimensionAsOuterStride) {
  double values[] = {11, 12, 0, 21, 22, 0, 31, 32};
  auto const piece = MatrixDense<double, int>::Borrow(3, 2, true, 3, values);

  auto const view = ViewAsEigen<DenseRows>(piece);

  EXPECT_EQ(view.outerStride(), 3);
  EXPECT_EQ(view.data(), values);
  EXPECT_EQ(view, (DenseRows(3, 2) << 11, 12, 21, 22, 31, 32).finished());
}

TEST(EigenDense, ViewsOneColumnAsAVector) {
  double values[] = {1, 2, 3};
  auto piece = MatrixDense<double, long>::Borrow(3, 1, false, 3, values);

  auto view = ViewAsEigen<Eigen::VectorXd>(piece);
  view *= 2;

  EXPECT_EQ(view.data(), values);
  EXPECT_EQ(values[2], 6);
}

TEST(EigenDense, ViewsAMatrixWithoutElements) {
  auto const piece = MatrixDense<double, int>::Borrow(0, 3, false, 1, nullptr);

  auto const view = ViewAsEigen<Eigen::MatrixXd>(piece);

  EXPECT_EQ(view.rows(), 0);
  EXPECT_EQ(view.cols(), 3);
}

TEST(EigenDense, ScattersIntoTheColumnsOfEachRank) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    Eigen::MatrixXd mine = Eigen::MatrixXd::Constant(2, 2, comm->Rank());
    auto piece = BorrowEigenDense(mine);
    piece.PlaceIn(2, 4, MatrixPartition::ColumnWise(2 * comm->Rank()));
    MemoryPool pool;
    Aggregator<double, int> aggregator(&pool);
    ASSERT_EQ(aggregator.Gather(comm, piece, true), STATUS_OK);
    if (comm->Rank() == 0) {
      auto whole = ViewAsEigen<Eigen::MatrixXd>(*aggregator.Target());
      whole << 1, 2, 3, 4,  //
          5, 6, 7, 8;
    }

    ASSERT_EQ(aggregator.Scatter(piece), STATUS_OK);

    int const first = 2 * comm->Rank();
    EXPECT_EQ(mine,
              (Eigen::MatrixXd(2, 2) << 1 + first, 2 + first, 5 + first, 6 + first).finished());
  });
}

}  // namespace
}  // namespace Pavex
