// Makes buffers with contents, for tests.

#pragma once

#include "pavex/runtime/buffer.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace Pavex {

// A buffer that owns a block of `allocator` with the given elements in it. Throws if the
// allocator fails.
template <typename T>
Buffer<T> Owned(Allocator& allocator, std::vector<T> const& elements) {
  Buffer<T> buffer;
  if (allocator.Get(buffer, static_cast<long>(elements.size())) != STATUS_OK)
    throw std::runtime_error("no memory for the elements of a test");
  std::copy(elements.begin(), elements.end(), buffer.mData);
  return buffer;
}

// Copies the elements in use.
template <typename T>
std::vector<T> Elements(Buffer<T> const& buffer) {
  return {buffer.mData, buffer.mData + buffer.mSize};
}

}  // namespace Pavex
