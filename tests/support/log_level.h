// Sets the process-wide log level for one test.

#pragma once

#include "pavex/runtime/log.h"

namespace Pavex {

// Sets the level; the destructor restores the earlier one.
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
