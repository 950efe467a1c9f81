// Helpers of the views of other libraries' matrices.

#pragma once

#include "pavex/matrix/matrix_base.h"
#include "pavex/matrix/store.h"
#include "pavex/matrix/store_type.h"

#include <cstdint>
#include <stdexcept>
#include <string>

namespace Pavex {

// Throws std::invalid_argument with `message` unless `condition` holds.
inline void RequireForView(bool condition, char const* message) {
  if (!condition) {
    throw std::invalid_argument(message);
  }
}

// The arrays of a compressed matrix, CSR or CSC, with the types that they have.
template <typename T, typename I>
struct CompressedArrays {
  std::int64_t rows;  // of the whole
  std::int64_t cols;  // of the whole
  long nnz;           // entries
  I* ptr;             // rows + 1 (CSR) or cols + 1 (CSC) offsets
  I* idx;             // column (CSR) or row (CSC) of each entry
  T* values;          // value of each entry
};

// Whether every offset and index is checked before the view is returned.
enum class IndexCheck { NONE, ALL };

// Throws std::invalid_argument with the first line (row of a CSR, column of a CSC) whose
// offsets descend, or the first index outside the matrix; indices count from 0.
template <typename T, typename I>
void RequireIndicesInside(CompressedArrays<T, I> const& arrays, StoreKind kind) {
  bool const byRows = kind == StoreKind::CSR;
  std::int64_t const lines = byRows ? arrays.rows : arrays.cols;
  std::int64_t const extent = byRows ? arrays.cols : arrays.rows;
  std::string const where = byRows ? "row " : "column ";
  for (std::int64_t line = 0; line < lines; ++line) {
    I const end = arrays.ptr[line + 1];
    if (end < arrays.ptr[line] || end > arrays.nnz)
      throw std::invalid_argument("The matrix to view has offset " + std::to_string(end) +
                                  " behind " + where + std::to_string(line) + "; expected " +
                                  std::to_string(arrays.ptr[line]) + " to " +
                                  std::to_string(arrays.nnz) + ".");
    for (I k = arrays.ptr[line]; k < end; ++k)
      if (arrays.idx[k] < 0 || arrays.idx[k] >= extent)
        throw std::invalid_argument(
            "The matrix to view has index " + std::to_string(arrays.idx[k]) + " in " + where +
            std::to_string(line) + "; expected 0 to " + std::to_string(extent - 1) + ".");
  }
}

// The arrays of `matrix` if it is of that kind (CSR or CSC) and of the types T and I, has its
// values and has offsets that start at 0, and, if `check` asks for it, indices inside the
// matrix. Else throws std::invalid_argument.
template <typename T, typename I>
CompressedArrays<T, I> CompressedArraysOf(MatrixBase const& matrix, StoreKind kind,
                                          IndexCheck check) {
  PavexMatrixStore store;
  matrix.Query(store);
  RequireForView(StoreKindOf(store.type) == kind,
                 kind == StoreKind::CSR ? "The matrix to view is not a MatrixCSR."
                                        : "The matrix to view is not a MatrixCSC.");
  RequireForView(matrix.mValueType == ValueTypeOf<T>::kCode,
                 "The matrix to view has another value type.");
  RequireForView(matrix.mIndexType == IndexTypeOf<I>::kCode,
                 "The matrix to view has another index type.");

  // The views of both kinds have the same shape.
  auto const& arrays = kind == StoreKind::CSR ? store.csr : store.csc;
  auto* const ptr = static_cast<I*>(arrays.ptr);
  long const nnz = matrix.NNZ();
  RequireForView(ptr != nullptr && *ptr == 0,
                 "The offsets of the matrix to view do not start at 0.");
  RequireForView(nnz == 0 || arrays.idx != nullptr, "The matrix to view has no indices.");
  RequireForView(nnz == 0 || matrix.HasValues(), "The matrix to view has no values.");
  CompressedArrays<T, I> const found = {store.rows,
                                        store.cols,
                                        nnz,
                                        ptr,
                                        static_cast<I*>(arrays.idx),
                                        static_cast<T*>(arrays.values)};
  if (check == IndexCheck::ALL) RequireIndicesInside(found, kind);
  return found;
}

}  // namespace Pavex
