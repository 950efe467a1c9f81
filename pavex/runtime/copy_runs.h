// Copies between arrays whose runs lie apart. Not installed.

#pragma once

#include "pavex/runtime/export.h"

#include <cstddef>

namespace Pavex {

// Where run 0 of an array begins that is written, and the bytes from one run to the next.
struct Target {
  char* data;
  std::size_t stride;
};
// The same for an array that is read.
struct Source {
  char const* data;
  std::size_t stride;
};

// Copies `count` runs of `length` bytes, at least 1, between arrays that do not overlap.
PAVEX_API void CopyRuns(Target to, Source from, std::size_t length, std::size_t count) noexcept;

}  // namespace Pavex
