// Uses matrices of Eigen as local pieces, and gathered matrices as matrices of Eigen, without a
// copy in either direction. Header-only and not part of pavex.h. Needs Eigen 3.3 or later.
//
//   Eigen::SparseMatrix<double, Eigen::RowMajor> rows = ...;  // this rank's, global columns
//   auto piece = Pavex::BorrowEigenSparse(rows);              // a MatrixCSR<double, int>
//   piece.PlaceIn(n, n, Pavex::MatrixPartition::RowWise(begin));
//   aggregator.Gather(comm, piece, true);
//   if (aggregator.Target() != nullptr) {
//     auto whole = Pavex::ViewAsEigen<decltype(rows)>(*aggregator.Target());  // an Eigen::Map
//   }
//
// A matrix that cannot be borrowed or viewed is refused with std::invalid_argument and a text
// that says why. All functions are local.

#pragma once

#include "pavex/interop/view.h"
#include "pavex/matrix/csc.h"
#include "pavex/matrix/csr.h"
#include "pavex/matrix/dense.h"

#include <Eigen/Core>
#include <Eigen/SparseCore>
#include <type_traits>

namespace Pavex {

// The class of a piece over a sparse Eigen matrix: MatrixCSR for a row-major, MatrixCSC for a
// column-major one, with its value and index types.
template <typename Sparse>
using EigenSparsePiece =
    std::conditional_t<bool(Sparse::IsRowMajor),
                       MatrixCSR<typename Sparse::Scalar, typename Sparse::StorageIndex>,
                       MatrixCSC<typename Sparse::Scalar, typename Sparse::StorageIndex>>;

// A piece over the arrays of `matrix`, which must outlive its use and keep its pattern until
// then. Takes an Eigen::SparseMatrix, a Map or Ref of one, or whole rows of a row-major
// (columns of a column-major) one, such as middleRows. Each must be compressed. The matrix may
// be const, because aggregation never writes the arrays of a sparse piece.
template <typename Sparse>
EigenSparsePiece<Sparse> BorrowEigenSparse(Eigen::SparseCompressedBase<Sparse> const& matrix) {
  using I = typename Sparse::StorageIndex;
  using T = typename Sparse::Scalar;
  RequireForView(matrix.isCompressed(),
                 "The Eigen matrix is not compressed: call its makeCompressed() first.");
  I* const ptr = const_cast<I*>(matrix.outerIndexPtr());
  RequireForView(ptr != nullptr,
                 "The Eigen matrix has no offsets, as a SparseVector has none.");
  // Rows from the middle of an Eigen matrix have offsets from its start. Pavex counts from
  // ptr[0].
  I* const idx = const_cast<I*>(matrix.innerIndexPtr()) + *ptr;
  T* const values = const_cast<T*>(matrix.valuePtr()) + *ptr;
  return EigenSparsePiece<Sparse>::Borrow(matrix.rows(), matrix.cols(), ptr, idx, values);
}

// Deleted: the arrays of a temporary matrix would not outlive the call.
template <typename T, int Options, typename I>
void BorrowEigenSparse(Eigen::SparseMatrix<T, Options, I> const&&) = delete;

// The piece that the two functions below return.
template <typename I, typename Dense>
MatrixDense<typename Dense::Scalar, I> DensePieceOver(Eigen::DenseBase<Dense> const& matrix) {
  using T = typename Dense::Scalar;
  static_assert(bool(Dense::Flags & Eigen::DirectAccessBit), "an expression without elements");
  Dense const& dense = matrix.derived();
  constexpr bool kRowMajor = bool(Dense::IsRowMajor);
  long const runLength = kRowMajor ? dense.cols() : dense.rows();
  long const runs = kRowMajor ? dense.rows() : dense.cols();
  bool const contiguous = runLength < 2 || dense.innerStride() == 1;
  RequireForView(contiguous, "The rows (columns) of the Eigen matrix are not contiguous.");
  // The outer stride of a single row or column has no meaning.
  long const ld = runs > 1 ? dense.outerStride() : runLength;
  RequireForView(ld >= runLength, "The rows (columns) of the Eigen matrix overlap.");
  return MatrixDense<T, I>::Borrow(dense.rows(), dense.cols(), kRowMajor, ld,
                                   const_cast<T*>(dense.data()));
}

// A piece over the elements of the dense `matrix` for reading only: Gather, Allgather and
// Update take it, Scatter does not compile. Otherwise like BorrowEigenDense.
template <typename I = int, typename Dense>
ConstMatrix<MatrixDense<typename Dense::Scalar, I>> BorrowConstEigenDense(
    Eigen::DenseBase<Dense> const& matrix) {
  return ConstMatrix<MatrixDense<typename Dense::Scalar, I>>(DensePieceOver<I>(matrix));
}

template <typename I = int, typename Dense>
void BorrowConstEigenDense(Eigen::PlainObjectBase<Dense> const&&) = delete;

// A piece over the elements of the dense `matrix`, which must outlive its use; Scatter writes
// them. Takes a matrix, vector or array of Eigen, a Map or Ref of one, or a block of one whose
// rows (row-major) or columns (column-major) are contiguous; its outer stride becomes mLd. `I`
// is the index type of the aggregator, which matters to no dense matrix.
template <typename I = int, typename Dense>
MatrixDense<typename Dense::Scalar, I> BorrowEigenDense(Eigen::DenseBase<Dense>& matrix) {
  static_assert(bool(Dense::Flags & Eigen::LvalueBit), "elements that must not be written");
  return DensePieceOver<I>(matrix);
}

// The view of a matrix as the Eigen class `Matrix`, or `Matrix const`: a Map that has the
// leading dimension as outer stride if it is dense.
template <typename Matrix>
using EigenView = std::conditional_t<
    std::is_base_of_v<Eigen::SparseMatrixBase<std::remove_const_t<Matrix>>, Matrix>,
    Eigen::Map<Matrix>, Eigen::Map<Matrix, Eigen::Unaligned, Eigen::OuterStride<>>>;

// Views of a MatrixCSR as a row-major, of a MatrixCSC as a column-major Eigen::SparseMatrix.
// `View` is the resulting Map.
template <typename View>
View ViewAsEigenSparse(MatrixBase const& matrix, IndexCheck check) {
  using T = typename View::Scalar;
  using I = typename View::StorageIndex;
  auto const kind = View::IsRowMajor ? StoreKind::CSR : StoreKind::CSC;
  CompressedArrays<T, I> const arrays = CompressedArraysOf<T, I>(matrix, kind, check);
  return View(arrays.rows, arrays.cols, arrays.nnz, arrays.ptr, arrays.idx, arrays.values);
}

// Whether the extent of a matrix fits one that Eigen may fix at compile time.
inline bool FitsExtent(std::int64_t extent, long fixed) {
  return fixed == Eigen::Dynamic || fixed == extent;
}

// Views of a MatrixDense as a matrix, vector or array of Eigen with the same order of elements.
template <typename View>
View ViewAsEigenDense(MatrixBase const& matrix) {
  using T = typename View::Scalar;
  PavexMatrixStore store;
  matrix.Query(store);
  auto const type = View::IsRowMajor ? STORE_DENSE_ROW_MAJOR : STORE_DENSE_COL_MAJOR;
  RequireForView(store.type == type,
                 View::IsRowMajor ? "The matrix to view is not a row-major MatrixDense."
                                  : "The matrix to view is not a column-major MatrixDense.");
  RequireForView(matrix.mValueType == ValueTypeOf<T>::kCode,
                 "The matrix to view has another value type.");
  long const nnz = matrix.NNZ();
  bool const hasValues = matrix.HasValues();
  bool const complete = nnz == 0 || hasValues;
  RequireForView(complete, "The matrix to view has no values.");
  bool const fits = FitsExtent(store.rows, View::RowsAtCompileTime) &&
                    FitsExtent(store.cols, View::ColsAtCompileTime);
  RequireForView(fits, "The matrix to view has another shape than the Eigen class.");
  return View(static_cast<T*>(store.dense.values), store.rows, store.cols,
              Eigen::OuterStride<>(store.dense.ld));
}

// A view of `matrix`, usually the target of an aggregator, as `Matrix`: an Eigen::SparseMatrix
// (CSR as row-major, CSC as column-major), or a dense matrix, vector or array class of Eigen.
// Value type, index type (of a sparse matrix) and order must be those of `matrix`. Sparse
// matrices must have offsets that start at 0, which a matrix gathered from pieces has.
//
// The view owns nothing: it is valid until `matrix`, or one of its arrays, goes or is replaced,
// as Update replaces the values. Eigen expects indices that count from 0, lie inside the matrix
// and ascend in each row (column). IndexCheck::ALL checks each index of a sparse matrix first,
// and the refusal names the first one outside; ShiftIndexBase of pavex/matrix/index_base.h
// shifts 1-based indices. The order is not checked, and aggregation keeps that of the pieces.
template <typename Matrix>
EigenView<Matrix> ViewAsEigen(MatrixBase& matrix,
                              [[maybe_unused]] IndexCheck check = IndexCheck::NONE) {
  if constexpr (std::is_base_of_v<Eigen::SparseMatrixBase<Matrix>, Matrix>) {
    return ViewAsEigenSparse<EigenView<Matrix>>(matrix, check);
  } else {
    return ViewAsEigenDense<EigenView<Matrix>>(matrix);
  }
}

// The same, for reading only.
template <typename Matrix>
EigenView<Matrix const> ViewAsEigen(MatrixBase const& matrix,
                                    [[maybe_unused]] IndexCheck check = IndexCheck::NONE) {
  if constexpr (std::is_base_of_v<Eigen::SparseMatrixBase<Matrix>, Matrix>) {
    return ViewAsEigenSparse<EigenView<Matrix const>>(matrix, check);
  } else {
    return ViewAsEigenDense<EigenView<Matrix const>>(matrix);
  }
}

}  // namespace Pavex
