// One rank's place in the group of a LocalComm.

#pragma once

#include "pavex/comm/local_operation.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

namespace Pavex {

class LocalBundle;
class LocalTransfer;

enum class LocalPhase {
  RUNNING,  // outside an operation, or with the status of one that has ended
  WAITING,  // in an operation that has not met its partners yet
  COPYING,  // in an operation that has met its partners, until all the data has been copied
  GONE      // returned
};

// How often a rank looks for a change before it sleeps: first with the processor to itself,
// then letting other threads run in between.
struct LocalPatience {
  int mPauses;
  int mYields;
};

// The phase of one rank, and what it is to do next. The group changes everything here under its
// lock; the rank itself reads without that lock what came before a change of its phase.
struct alignas(64) LocalSlot {
  std::atomic<LocalPhase> mPhase{LocalPhase::RUNNING};
  LocalOperation const* mOperation = nullptr;  // while WAITING or COPYING
  int mAwaited = 0;                            // ranks that WAIT to send to this one or receive
  PavexStatus mStatus = STATUS_OK;             // of the last operation, once RUNNING
  std::shared_ptr<LocalTransfer> mTransfer;    // while COPYING, if this rank is to help
  std::shared_ptr<LocalBundle const> mReceived;  // to be unpacked by this rank, once RUNNING

  // Returns when the phase is no longer `from`; sleeps when patience has run out.
  void AwaitChange(LocalPhase from, LocalPatience patience);

  // Wakes the rank if it sleeps. To be called after each change of its phase, by any thread and
  // with or without the lock of the group.
  void Wake();

 private:
  std::mutex mMutex;  // for sleeping; never held while another lock is taken
  std::condition_variable mChanged;
  std::atomic<bool> mAsleep{false};
};

}  // namespace Pavex
