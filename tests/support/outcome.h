// The outcome of an operation, for tests.

#pragma once

#include "pavex/runtime/status.h"
#include "tests/support/capture.h"

#include <gtest/gtest.h>
#include <string>

namespace Pavex {

// The status of an operation, and what the operation printed.
struct Outcome {
  PavexStatus status = 99;
  std::string output;
};

// Runs `operation`, which returns a status. Not for several ranks at once: see CaptureStdout.
template <typename Operation>
Outcome Watch(Operation operation) {
  Outcome outcome;
  outcome.output = CaptureStdout([&] { outcome.status = operation(); });
  return outcome;
}

inline void ExpectOutcome(Outcome const& outcome, PavexStatus status,
                          std::string const& output) {
  EXPECT_EQ(outcome.status, status);
  EXPECT_EQ(outcome.output, output);
}

// What `count` callers in a row print about a failed status.
inline std::string StatusLines(int count, PavexStatus status) {
  std::string lines;
  for (int i = 0; i < count; ++i)
    lines += std::string("[ERROR] ") + PavexStatusStr(status) + "\n";
  return lines;
}

// What an operation prints if it needs a gather and none came before.
constexpr char kNotGathered[] = "[ERROR] Gather should be executed first\n";

}  // namespace Pavex
