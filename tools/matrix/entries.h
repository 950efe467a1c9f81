// Walks over the entries of a sparse matrix of the library, whatever its format.

#pragma once

#include "pavex/matrix/matrix_base.h"

#include <cstddef>

namespace Pavex::Tool {

// Calls visit(row, col, k) for each entry, with its global position and its place k in the
// value array, in the order of that array. `matrix` is coordinate or compressed, whole or a
// piece; a whole one begins at row and column 0.
template <typename I, typename Visit>
void ForEachEntry(MatrixBase const& matrix, Visit const& visit) {
  PavexMatrixStore store;
  matrix.Query(store);
  auto const entries = static_cast<std::size_t>(matrix.NNZ());
  if (store.type == STORE_COO_0) {
    auto const* const rows = static_cast<I const*>(store.coo.row);
    auto const* const cols = static_cast<I const*>(store.coo.col);
    for (std::size_t k = 0; k < entries; ++k)
      visit(static_cast<long>(rows[k]), static_cast<long>(cols[k]), k);
    return;
  }
  if (entries == 0) return;
  bool const byRows = store.type == STORE_CSR_0;
  auto const* const offsets = static_cast<I const*>(store.csr.ptr);
  auto const* const others = static_cast<I const*>(store.csr.idx);
  long const begin = matrix.mPartition.type == PARTITION_NONE ? 0 : matrix.mPartition.begin;
  long const count = byRows ? store.rows : store.cols;
  for (long i = 0; i < count; ++i) {
    auto const end = static_cast<std::size_t>(offsets[i + 1] - offsets[0]);
    for (auto k = static_cast<std::size_t>(offsets[i] - offsets[0]); k < end; ++k) {
      long const other = static_cast<long>(others[k]);
      visit(byRows ? begin + i : other, byRows ? other : begin + i, k);
    }
  }
}

// The value array of a sparse matrix.
template <typename T>
T const* ValuesOf(MatrixBase const& matrix) {
  PavexMatrixStore store;
  matrix.Query(store);
  return static_cast<T const*>(store.type == STORE_COO_0 ? store.coo.values : store.csr.values);
}

}  // namespace Pavex::Tool
