#include "tools/files/unlink_on_signal.h"

#include <atomic>
#include <climits>
#include <csignal>
#include <cstring>
#include <mutex>
#include <unistd.h>

namespace Pavex::Tool {

namespace {

// The data of the signal handler, which must not allocate or lock.
struct Slot {
  char mPath[PATH_MAX];
  std::atomic<bool> mUsed;
};

Slot slots[4];
std::mutex slotsInUse;

// SA_RESETHAND has restored the default action, which runs after the return.
void UnlinkAndDie(int signal) {
  for (Slot const& slot : slots)
    if (slot.mUsed) unlink(slot.mPath);
  raise(signal);
}

void InstallHandlers() {
  for (int const signal : {SIGHUP, SIGINT, SIGPIPE, SIGTERM}) {
    struct sigaction former {};
    sigaction(signal, nullptr, &former);
    if (former.sa_handler != SIG_DFL) continue;  // nohup, for example, ignores SIGHUP
    struct sigaction action {};
    action.sa_handler = UnlinkAndDie;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(signal, &action, nullptr);
  }
}

}  // namespace

void UnlinkOnSignal(std::string const& path) {
  std::lock_guard const lock(slotsInUse);
  for (Slot& slot : slots) {
    if (slot.mUsed || path.size() >= sizeof slot.mPath) continue;
    std::memcpy(slot.mPath, path.c_str(), path.size() + 1);
    slot.mUsed = true;
    return InstallHandlers();
  }
}

void KeepOnSignal(std::string const& path) {
  std::lock_guard const lock(slotsInUse);
  for (Slot& slot : slots)
    if (slot.mUsed && path == slot.mPath) slot.mUsed = false;
}

}  // namespace Pavex::Tool
