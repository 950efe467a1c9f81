// How many elements one call moves at most, for the models of the tests. The library under test
// is built with the same number: see pavex_few_per_call.

#pragma once

#include <algorithm>
#include <limits>

namespace Pavex {

#ifdef PAVEX_MOST_PER_CALL
inline constexpr long kMostOfACall = PAVEX_MOST_PER_CALL;
#else
inline constexpr long kMostOfACall = std::numeric_limits<int>::max();
#endif

// How many calls move `count` elements.
inline long CallsFor(long count) {
  return std::max(1L, (count + kMostOfACall - 1) / kMostOfACall);
}

}  // namespace Pavex
