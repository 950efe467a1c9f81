// How much of a gathered matrix had to travel.

#pragma once

#include "pavex/matrix/matrix_base.h"

#include <algorithm>
#include <vector>

namespace Pavex::Tool {

// Bytes of the arrays of `gathered`, null where nothing was received, that are new on this rank
// (or, with `borrowed`, those of its piece `local`); of the values alone or of all arrays.
template <typename T, typename I>
long GatheredBytes(MatrixBase const* gathered, MatrixBase const& local, bool borrowed,
                   bool valuesOnly) {
  struct Array {
    void const* mData;
    long mBytes;
  };
  auto const arrays = [valuesOnly](MatrixBase const& matrix) {
    PavexMatrixStore store;
    matrix.Query(store);
    long const entries = matrix.NNZ();
    long const valueBytes = entries * static_cast<long>(sizeof(T));
    long const indexBytes = valuesOnly ? 0 : entries * static_cast<long>(sizeof(I));
    if (store.type == STORE_COO_0)
      return std::vector<Array>{{store.coo.row, indexBytes},
                                {store.coo.col, indexBytes},
                                {store.coo.values, store.coo.values ? valueBytes : 0}};
    if (store.type != STORE_CSR_0 && store.type != STORE_CSC_0)
      return std::vector<Array>{{store.dense.values, valueBytes}};
    long const count = store.type == STORE_CSR_0 ? store.rows : store.cols;
    long const offsetBytes = valuesOnly ? 0 : (count + 1) * static_cast<long>(sizeof(I));
    return std::vector<Array>{{store.csr.ptr, offsetBytes},
                              {store.csr.idx, indexBytes},
                              {store.csr.values, store.csr.values ? valueBytes : 0}};
  };
  if (gathered == nullptr) return 0;
  auto const own = arrays(local);
  long bytes = 0;
  for (Array const& array : arrays(*gathered)) {
    bool const isOwn = std::any_of(own.begin(), own.end(), [&](Array const& other) {
      return other.mData != nullptr && other.mData == array.mData;
    });
    if (isOwn == borrowed) bytes += array.mBytes;
  }
  return bytes;
}

}  // namespace Pavex::Tool
