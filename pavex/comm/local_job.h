// What all groups of the ranks of one LocalComm::Run share.

#pragma once

#include "pavex/comm/local_slot.h"

#include <mutex>
#include <vector>

namespace Pavex {

// The places of the ranks, one lock for all their groups, and the decision which waiting ranks
// can never go on. A rank has at most one operation at a time, in whichever group, so ranks of
// different groups may wait for each other.
class LocalJob {
 public:
  explicit LocalJob(int ranks);
  ~LocalJob();

  // The places of ranks 0 .. n - 1. They live as long as the job.
  std::vector<LocalSlot*> Slots();
  std::mutex& Mutex() { return mMutex; }
  LocalPatience Patience() const { return mPatience; }

  // Notes that the rank has returned and takes part in nothing from now on.
  void Leave(LocalSlot& slot);

  // These are called with the lock held.

  // Whether the rank runs or copies, or waits for a message of a rank that can go on. For a
  // rank in a collective the answer depends on all others: it is false here, and FailStuck
  // decides.
  bool CanGoOn(LocalSlot const& slot) const;
  // Fails every waiting rank that can never go on.
  void FailStuck();

 private:
  bool FindMore();

  std::mutex mMutex;
  std::vector<LocalSlot> mSlots;
  LocalPatience const mPatience;
  std::vector<LocalSlot*> mStuck;  // of FailStuck; kept so that leaving needs no memory
};

}  // namespace Pavex
