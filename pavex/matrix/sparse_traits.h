// The differences of the sparse classes, for code that serves all of them.

#pragma once

#include "pavex/matrix/coo.h"
#include "pavex/matrix/csc.h"
#include "pavex/matrix/csr.h"
#include "pavex/matrix/store.h"

#include <cstdint>
#include <type_traits>

namespace Pavex {

// The index arrays of each class in their order; for the compressed classes whether the first
// holds row or column offsets, the store type for part code 0, and the view that they fill.
template <typename M>
struct SparseTraits;

template <typename T, typename I>
struct SparseTraits<MatrixCOO<T, I>> {
  static constexpr auto kFirst = &MatrixCOO<T, I>::mRowIdx;
  static constexpr auto kSecond = &MatrixCOO<T, I>::mColIdx;
};

template <typename T, typename I>
struct SparseTraits<MatrixCSR<T, I>> {
  static constexpr auto kFirst = &MatrixCSR<T, I>::mRowPtr;
  static constexpr auto kSecond = &MatrixCSR<T, I>::mColIdx;
  static constexpr bool kByRows = true;
  static constexpr PavexMatrixStoreType kStoreType = STORE_CSR_0;
  static PavexMatrixStore::CompressedView& View(PavexMatrixStore& store) { return store.csr; }
};

template <typename T, typename I>
struct SparseTraits<MatrixCSC<T, I>> {
  static constexpr auto kFirst = &MatrixCSC<T, I>::mColPtr;
  static constexpr auto kSecond = &MatrixCSC<T, I>::mRowIdx;
  static constexpr bool kByRows = false;
  static constexpr PavexMatrixStoreType kStoreType = STORE_CSC_0;
  static PavexMatrixStore::CompressedView& View(PavexMatrixStore& store) { return store.csc; }
};

// The first index array of a sparse matrix: the offsets of CSR and CSC, the rows of COO. Const
// if the matrix is.
template <typename M>
auto& Offsets(M& matrix) {
  return matrix.*SparseTraits<std::remove_const_t<M>>::kFirst;
}

// The second index array: the columns of CSR and COO, the rows of CSC. Const if the matrix is.
template <typename M>
auto& Indices(M& matrix) {
  return matrix.*SparseTraits<std::remove_const_t<M>>::kSecond;
}

// Rows for CSR, columns for CSC.
template <typename M>
std::int64_t PickCompressed(std::int64_t rows, std::int64_t cols) {
  return SparseTraits<M>::kByRows ? rows : cols;
}

}  // namespace Pavex
