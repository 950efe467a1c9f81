#include "pavex/comm/node_process.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Pavex {

namespace {

// The start time in the text of /proc/PID/stat; 0 for a process that has ended. The name of the
// program is in brackets and may contain anything; state and start are the 3rd and 22nd field.
std::uint64_t StartIn(char const* text) {
  char const* field = std::strrchr(text, ')');
  if (field == nullptr || field[1] != ' ') return 0;
  char const state = field[2];
  if (state == 'Z' || state == 'X') return 0;
  constexpr int kFieldsFromNameToStart = 20;
  for (int i = 0; i < kFieldsFromNameToStart && field != nullptr; ++i)
    field = std::strchr(field + 1, ' ');
  return field == nullptr ? 0 : std::strtoull(field + 1, nullptr, 10);
}

// False if /proc could not be read, for any reason except that the process is gone.
bool ReadStart(std::int64_t pid, std::uint64_t* start) {
  *start = 0;
  char text[1024];
  std::snprintf(text, sizeof text, "/proc/%lld/stat", static_cast<long long>(pid));
  int const file = open(text, O_RDONLY | O_CLOEXEC);
  if (file < 0) return errno == ENOENT;
  ssize_t const bytes = read(file, text, sizeof text - 1);
  bool const gone = bytes < 0 && errno == ESRCH;
  close(file);
  if (bytes <= 0) return gone;
  text[bytes] = '\0';
  *start = StartIn(text);
  return true;
}

}  // namespace

std::uint64_t NodeProcess::StartOf(std::int64_t pid) {
  std::uint64_t start = 0;
  ReadStart(pid, &start);
  return start;
}

NodeProcess::NodeProcess(std::int64_t pid, std::uint64_t start)
    : mPid(pid),
      mStart(start),
      mDescriptor(static_cast<int>(syscall(SYS_pidfd_open, static_cast<pid_t>(pid), 0))) {}

NodeProcess::~NodeProcess() {
  if (mDescriptor >= 0) close(mDescriptor);
}

bool NodeProcess::IsAlive() const {
  if (mDescriptor >= 0) {
    pollfd ended{mDescriptor, POLLIN, 0};
    return poll(&ended, 1, 0) <= 0;
  }
  std::uint64_t start = 0;
  return !ReadStart(mPid, &start) || start == mStart;
}

}  // namespace Pavex
