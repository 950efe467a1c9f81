// One rank's place in the group of a LocalComm.

#pragma once

#include "pavex/comm/local_operation.h"

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

namespace Pavex {

class LocalBundle;
class LocalGroup;
class LocalTransfer;

enum class LocalPhase {
  RUNNING,  // outside an operation, or with the status of one that has ended
  WAITING,  // in an operation that has not met its partners yet
  COPYING,  // in an operation that has met its partners, until all the data has been copied
  GONE      // returned
};

// How often a rank looks for a change before it sleeps: first without a pause, then letting
// other threads run in between.
struct LocalPatience {
  int mPauses;
  int mYields;
};

// The phase of one rank, and what it does next, in whichever group. The groups change
// everything here under the lock of the job. The rank itself reads, without that lock, what was
// written before a change of its phase.
struct alignas(64) LocalSlot {
  std::atomic<LocalPhase> mPhase{LocalPhase::RUNNING};
  LocalOperation const* mOperation = nullptr;  // while WAITING or COPYING
  LocalGroup* mGroup = nullptr;                // in which it is carried out
  int mAwaited = 0;                            // ranks that WAIT to send to this one or receive
  PavexStatus mStatus = STATUS_OK;             // of the last operation, once RUNNING
  std::shared_ptr<LocalTransfer> mTransfer;    // while COPYING, if this rank helps
  std::shared_ptr<LocalBundle const> mReceived;  // this rank unpacks it, once RUNNING
  std::vector<LocalGroup*> mGroups;              // all that the rank belongs to
  bool mCanGoOn = false;  // found by LocalJob::FailStuck; false outside of it

  // Returns when the phase is no longer `from`. Sleeps after the looks are used up.
  void AwaitChange(LocalPhase from, LocalPatience patience);

  // Wakes the rank if it sleeps. Call it after each change of its phase, on any thread and with
  // or without the lock of the job.
  void Wake();

 private:
  std::mutex mMutex;  // for sleeping; never held while another lock is taken
  std::condition_variable mChanged;
  std::atomic<bool> mAsleep{false};
};

}  // namespace Pavex
