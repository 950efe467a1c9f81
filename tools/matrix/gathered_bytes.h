// Counts the bytes of a gathered matrix that had to travel.

#pragma once

#include "tools/matrix/elements.h"

#include <algorithm>
#include <vector>

namespace Pavex::Tool {

// Bytes of the arrays of `gathered` that are new on this rank, or with `borrowed` of those that
// belong to its piece `local`. Counts the values alone or all arrays. `gathered` is null on a
// rank that received nothing.
template <typename T, typename I>
long GatheredBytes(MatrixBase const* gathered, MatrixBase const& local, bool borrowed,
                   bool valuesOnly) {
  struct Array {
    void const* mData;
    long mBytes;
  };
  auto const arrays = [valuesOnly](MatrixBase const& matrix) {
    Elements<T, I> const elements(matrix);
    constexpr long kIndex = sizeof(I);
    long const entries = matrix.NNZ();
    long const indices = valuesOnly ? 0 : entries;
    long const offsets = valuesOnly ? 0 : elements.Lines() + 1;
    return std::vector<Array>{{elements.mOffsets, offsets * kIndex},
                              {elements.mRow, indices * kIndex},
                              {elements.mCol, indices * kIndex},
                              {elements.mValues, entries * static_cast<long>(sizeof(T))}};
  };
  if (gathered == nullptr) return 0;
  auto const own = arrays(local);
  long bytes = 0;
  for (Array const& array : arrays(*gathered)) {
    if (array.mData == nullptr) continue;
    bool const isOwn = std::any_of(
        own.begin(), own.end(), [&](Array const& other) { return other.mData == array.mData; });
    if (isOwn == borrowed) bytes += array.mBytes;
  }
  return bytes;
}

}  // namespace Pavex::Tool
