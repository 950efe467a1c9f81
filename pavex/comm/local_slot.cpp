#include "pavex/comm/local_slot.h"

#include <thread>

namespace Pavex {
namespace {

void Pause() {
#if defined(__x86_64__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  asm volatile("yield");
#endif
}

}  // namespace

// Sleeping and waking cost more than a small operation, so a rank looks for a while first.
void LocalSlot::AwaitChange(LocalPhase from, LocalPatience patience) {
  for (int i = 0; i < patience.mPauses + patience.mYields; ++i) {
    if (mPhase != from) return;
    i < patience.mPauses ? Pause() : std::this_thread::yield();
  }
  std::unique_lock<std::mutex> lock(mMutex);
  mAsleep = true;  // before the phase is read: see Wake
  mChanged.wait(lock, [&] { return mPhase != from; });
  mAsleep = false;
}

// The phase is written before mAsleep is read here, and AwaitChange writes mAsleep before it
// reads the phase. So at least one of them sees the other's write. The mutex ensures that a
// rank that has read the old phase has gone to sleep.
void LocalSlot::Wake() {
  if (!mAsleep) return;
  { std::lock_guard<std::mutex> const lock(mMutex); }
  mChanged.notify_one();
}

}  // namespace Pavex
