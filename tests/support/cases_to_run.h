// How many random cases a test runs.

#pragma once

#include <cstdlib>

namespace Pavex {

// `cases`, or their n-th part if the environment variable PAVEX_ONE_CASE_IN is n. For trees in
// which each case takes much longer than in others.
inline long CasesToRun(long cases) {
  char const* const text = std::getenv("PAVEX_ONE_CASE_IN");
  long const part = text == nullptr ? 1 : std::atol(text);
  return part > 1 ? cases / part : cases;
}

}  // namespace Pavex
