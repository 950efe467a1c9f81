// Ends a fuzz target if a property does not hold.

#pragma once

#include <cstdio>
#include <cstdlib>

namespace Pavex {

// Prints `property`, a sentence, and aborts unless it `holds`.
inline void Require(bool holds, char const* property) {
  if (holds) return;
  std::fprintf(stderr, "This does not hold: %s\n", property);
  std::abort();
}

}  // namespace Pavex
