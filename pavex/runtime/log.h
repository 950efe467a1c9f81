// The log of the library: one formatted write per line to standard output. Each line begins
// with its level in brackets. One level of the process decides which lines appear. Lines carry
// no rank and no time stamp. Fixed: see docs/compatibility.md.

#pragma once

#include "pavex/runtime/export.h"
#include "pavex/runtime/status.h"

#include <cstdint>

namespace Pavex {

constexpr std::int32_t LOG_FATAL = 0;  // the line before an abort
constexpr std::int32_t LOG_ERROR = 1;  // failed steps
constexpr std::int32_t LOG_DEBUG = 4;  // notices

// Any thread may log. Local.
class PAVEX_API Log {
 public:
  // Lines of level L appear while mMaxLogLevel >= L. It starts as LOG_ERROR; a negative level
  // silences everything. It is read without synchronisation: set it before threads that log
  // start.
  static std::int32_t mMaxLogLevel;

  static constexpr int kMostFormat = 240;  // characters

  // Whether lines of that level appear.
  static bool Enabled(std::int32_t level) noexcept { return mMaxLogLevel >= level; }

  // Writes the line "[ERROR] <text>" if its level is enabled. `format` and its arguments make
  // the text, as those of printf do. It has at most kMostFormat characters; a longer one calls
  // NeverBeenHere.
  __attribute__((format(printf, 1, 2))) static void Error(char const* format, ...);
  // Does the same with "[DEBUG]" on the level LOG_DEBUG.
  __attribute__((format(printf, 1, 2))) static void Debug(char const* format, ...);

  // Every caller of a failed step calls it: logs the line "[ERROR] <status text>" unless
  // `status` is STATUS_OK. Returns `status`.
  static PavexStatus Report(PavexStatus status);

  // Guards a branch that cannot be reached: logs the fatal line, flushes it so that it also
  // reaches a pipe or a file, and calls abort() whatever the level.
  [[noreturn]] static void NeverBeenHere();
};

}  // namespace Pavex
