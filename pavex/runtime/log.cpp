#include "pavex/runtime/log.h"

#include <cstdlib>

namespace Pavex {

std::int32_t Log::mMaxLogLevel = LOG_ERROR;

PavexStatus Log::Report(PavexStatus status) {
  if (status != STATUS_OK) Error("[%s] %s\n", PavexStatusStr(status));
  return status;
}

void Log::NeverBeenHere() {
  if (Enabled(LOG_FATAL)) {
    std::printf("[%s] Never been here\n", "FATAL");
    std::fflush(stdout);
  }
  std::abort();
}

}  // namespace Pavex
