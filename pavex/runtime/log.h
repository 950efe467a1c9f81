// The log of the library: one formatted write per line to standard output. Each line begins
// with its level in brackets. One level of the process decides which lines appear. Lines carry
// no rank and no time stamp. Fixed: see docs/compatibility.md.

#pragma once

#include "pavex/runtime/export.h"
#include "pavex/runtime/status.h"

#include <cstdint>
#include <cstdio>

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

  // Whether lines of that level appear.
  static bool Enabled(std::int32_t level) noexcept { return mMaxLogLevel >= level; }

  // One line if its level is enabled. `format` opens with "[%s]", which takes the level's word,
  // and ends with a newline.
  template <typename... Args>
  static void Error(char const* format, Args... args) {
    if (Enabled(LOG_ERROR)) std::printf(format, "ERROR", args...);
  }
  // Does the same on the level LOG_DEBUG.
  template <typename... Args>
  static void Debug(char const* format, Args... args) {
    if (Enabled(LOG_DEBUG)) std::printf(format, "DEBUG", args...);
  }

  // Every caller of a failed step calls it: logs the line "[ERROR] <status text>" unless
  // `status` is STATUS_OK. Returns `status`.
  static PavexStatus Report(PavexStatus status);

  // Guards a branch that cannot be reached: logs the fatal line, flushes it so that it also
  // reaches a pipe or a file, and calls abort() whatever the level.
  [[noreturn]] static void NeverBeenHere();
};

}  // namespace Pavex
