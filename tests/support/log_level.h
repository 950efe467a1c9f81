// The process-wide log level for the span of a test.

#pragma once

#include "pavex/runtime/log.h"

namespace Pavex {

// Sets the level and restores the earlier one when it goes.
class LogLevel {
 public:
  explicit LogLevel(std::int32_t level) : mEarlier(Log::mMaxLogLevel) {
    Log::mMaxLogLevel = level;
  }
  ~LogLevel() { Log::mMaxLogLevel = mEarlier; }
  LogLevel(LogLevel const&) = delete;
  LogLevel& operator=(LogLevel const&) = delete;

 private:
  std::int32_t const mEarlier;
};

}  // namespace Pavex
