#include "pavex/runtime/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace Pavex {

namespace {

// Writes one line. Prefix and newline are part of the format of its only write, so that lines
// of several threads do not mix. Takes no memory: a line may report that there is none.
void Print(char const* word, char const* format, std::va_list arguments) {
  char line[Log::kMostFormat + sizeof("[ERROR] \n")];
  auto const length = std::snprintf(line, sizeof(line), "[%s] %s\n", word, format);
  if (length < 0 || static_cast<std::size_t>(length) >= sizeof(line)) Log::NeverBeenHere();
  std::vprintf(line, arguments);
}

}  // namespace

std::int32_t Log::mMaxLogLevel = LOG_ERROR;

void Log::Error(char const* format, ...) {
  if (!Enabled(LOG_ERROR)) return;
  std::va_list arguments;
  va_start(arguments, format);
  Print("ERROR", format, arguments);
  va_end(arguments);
}

void Log::Debug(char const* format, ...) {
  if (!Enabled(LOG_DEBUG)) return;
  std::va_list arguments;
  va_start(arguments, format);
  Print("DEBUG", format, arguments);
  va_end(arguments);
}

PavexStatus Log::Report(PavexStatus status) {
  if (status != STATUS_OK) Error("%s", PavexStatusStr(status));
  return status;
}

// Coverage cannot count these lines, because the process ends here. GCOVR_EXCL_START
void Log::NeverBeenHere() {
  if (Enabled(LOG_FATAL)) {
    std::printf("[FATAL] Never been here\n");
    std::fflush(stdout);
  }
  std::abort();
}
// GCOVR_EXCL_STOP

}  // namespace Pavex
