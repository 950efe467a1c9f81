// Rules that the three sparse classes share.

#pragma once

#include "pavex/matrix/store.h"
#include "pavex/runtime/buffer.h"

#include <cstdint>

namespace Pavex {

// `first` is the class's store type for part code 0. Part codes other than 0 and 1 count as 2.
// Fixed: see docs/compatibility.md.
inline PavexMatrixStoreType SparseStoreType(PavexMatrixStoreType first, std::int32_t part) {
  std::int32_t const offset = part == 0 ? 0 : (part == 1 ? 1 : 2);
  return static_cast<PavexMatrixStoreType>(first + offset);
}

// Sizes the three arrays of a new sparse matrix.
template <typename T, typename I>
PavexStatus GetSparseArrays(Allocator& allocator, std::int64_t firstSize, Buffer<I>& first,
                            std::int64_t nnz, Buffer<I>& second, bool withValues,
                            Buffer<T>& values) {
  PavexStatus status = allocator.Get(first, firstSize);
  if (status == STATUS_OK) status = allocator.Get(second, nnz);
  if (status == STATUS_OK && withValues) status = allocator.Get(values, nnz);
  return status;
}

}  // namespace Pavex
