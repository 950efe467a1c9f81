#include "pavex/runtime/log.h"

#include <cstdlib>

namespace Pavex {

std::int32_t Log::mMaxLogLevel = LOG_ERROR;

PavexStatus Log::Report(PavexStatus status) {
  if (status != STATUS_OK) Error("[%s] %s\n", PavexStatusStr(status));
  return status;
}

// Ends the process before it can count its lines. GCOVR_EXCL_START
void Log::NeverBeenHere() {
  if (Enabled(LOG_FATAL)) {
    std::printf("[%s] Never been here\n", "FATAL");
    std::fflush(stdout);
  }
  std::abort();
}
// GCOVR_EXCL_STOP

}  // namespace Pavex
