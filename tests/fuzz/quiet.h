// Prepares a fuzz target whose inputs are logged and whose pools keep books.

#pragma once

#include "tests/fuzz/require.h"

#include <cstdio>
#include <gtest/gtest.h>

namespace Pavex {

// Lets the log go nowhere and a fault in the books of a pool end the process. For once, before
// anything else: returns true, to be kept in a static variable.
inline bool BeQuiet() {
  testing::GTEST_FLAG(break_on_failure) = true;
  Require(std::freopen("/dev/null", "w", stdout) != nullptr, "there is a place for the log");
  return true;
}

}  // namespace Pavex
