// Prepares a fuzz target that logs and uses pools with ledgers.

#pragma once

#include "tests/fuzz/require.h"

#include <cstdio>
#include <gtest/gtest.h>

namespace Pavex {

// Discards the log, and makes a fault in the ledger of a pool end the process. Call it once,
// before anything else. Returns true, so that a static variable can make the call.
inline bool BeQuiet() {
  testing::GTEST_FLAG(break_on_failure) = true;
  Require(std::freopen("/dev/null", "w", stdout) != nullptr, "there is a place for the log");
  return true;
}

}  // namespace Pavex
