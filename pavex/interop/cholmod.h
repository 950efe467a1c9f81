// Views a compressed-column matrix as a cholmod_sparse of SuiteSparse, and the other way round,
// without a copy. Header-only and not part of pavex.h. Needs CHOLMOD's header of version 3 or
// later.
//
//   cholmod_sparse a = Pavex::ViewAsCholmod<double, int>(*aggregator.Target());
//   a.stype = -1;  // if it is symmetric and holds its lower triangle
//   cholmod_factor* factor = cholmod_analyze(&a, &common);
//
// A matrix that cannot be viewed or borrowed is refused with std::invalid_argument and a text
// that says why. All functions are local.

#pragma once

#include "pavex/interop/view.h"
#include "pavex/matrix/csc.h"

#include <cholmod.h>
#include <complex>
#include <cstddef>
#include <cstdint>

namespace Pavex {

// CHOLMOD's code of a value type. Complex numbers are interleaved, as in std::complex.
template <typename T>
struct CholmodValue;
template <>
struct CholmodValue<double> {
  static constexpr int kType = CHOLMOD_REAL;
};
template <>
struct CholmodValue<std::complex<double>> {
  static constexpr int kType = CHOLMOD_COMPLEX;
};

// CHOLMOD's code of an index type: int for its cholmod_..., long for its cholmod_l_...
// functions.
template <typename I>
struct CholmodIndex;
template <>
struct CholmodIndex<int> {
  static constexpr int kType = CHOLMOD_INT;
};
template <>
struct CholmodIndex<long> {
  static constexpr int kType = CHOLMOD_LONG;
};

// A view of `matrix`, usually the target of an aggregator, which must be a MatrixCSC<T, I> with
// values and with offsets that start at 0. It owns nothing and is never to be freed by CHOLMOD:
// it is valid until `matrix`, or one of its arrays, goes or is replaced, as Update replaces the
// values. It is marked as unsymmetric and as not sorted, because the library does not check
// either. Indices must count from 0 and lie inside the matrix: IndexCheck::ALL checks each of
// them first, and the refusal names the first one outside. ShiftIndexBase of
// pavex/matrix/index_base.h shifts 1-based indices.
template <typename T, typename I>
cholmod_sparse ViewAsCholmod(MatrixBase& matrix, IndexCheck check = IndexCheck::NONE) {
  CompressedArrays<T, I> const arrays = CompressedArraysOf<T, I>(matrix, StoreKind::CSC, check);
  cholmod_sparse view = {};
  view.nrow = static_cast<std::size_t>(arrays.rows);
  view.ncol = static_cast<std::size_t>(arrays.cols);
  view.nzmax = static_cast<std::size_t>(arrays.nnz);
  view.p = arrays.ptr;
  view.i = arrays.idx;
  view.x = arrays.values;
  view.itype = CholmodIndex<I>::kType;
  view.xtype = CholmodValue<T>::kType;
  view.dtype = CHOLMOD_DOUBLE;
  view.packed = 1;
  return view;
}

// A piece over the arrays of `matrix`, which must outlive its use. The piece holds the stored
// entries and nothing else: of a symmetric matrix (stype not 0) the one triangle.
template <typename T, typename I>
MatrixCSC<T, I> BorrowCholmod(cholmod_sparse const& matrix) {
  RequireForView(matrix.packed != 0, "The CHOLMOD matrix is not packed.");
  RequireForView(matrix.xtype == CholmodValue<T>::kType && matrix.dtype == CHOLMOD_DOUBLE,
                 "The CHOLMOD matrix has another value type.");
  RequireForView(matrix.itype == CholmodIndex<I>::kType,
                 "The CHOLMOD matrix has another index type.");
  return MatrixCSC<T, I>::Borrow(
      static_cast<std::int64_t>(matrix.nrow), static_cast<std::int64_t>(matrix.ncol),
      static_cast<I*>(matrix.p), static_cast<I*>(matrix.i), static_cast<T*>(matrix.x));
}

}  // namespace Pavex
