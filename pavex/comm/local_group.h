// The meeting place of the ranks of a LocalComm.

#pragma once

#include "pavex/comm/local_operation.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace Pavex {

class LocalTransfer;

// Matches the operations of n ranks, has the ranks copy the data, and fails operations that can
// never meet. Every rank has at most one operation at a time, so operations meet in the order
// in which each rank calls them without any further numbering. Used by all ranks at once.
class LocalGroup {
 public:
  explicit LocalGroup(int ranks);
  ~LocalGroup();

  int Size() const { return static_cast<int>(mSlots.size()); }

  // Carries out `operation` for `rank`; returns its status when no rank touches its buffers any
  // more.
  PavexStatus Execute(int rank, LocalOperation const& operation);

  // The rank has returned and takes part in nothing from now on.
  void Leave(int rank);

 private:
  enum class Phase {
    RUNNING,  // outside an operation, or with the status of one that has ended
    WAITING,  // in an operation that has not met its partners yet
    COPYING,  // in an operation that has met its partners and helps to copy
    GONE      // returned
  };

  // One rank. The phase changes under the lock only; it is read without it by its own rank.
  struct alignas(64) Slot {
    std::atomic<Phase> mPhase{Phase::RUNNING};
    LocalOperation const* mOperation = nullptr;  // while WAITING or COPYING
    PavexStatus mStatus = STATUS_OK;             // of the last operation, once RUNNING
    std::shared_ptr<LocalTransfer> mTransfer;    // from COPYING to the end of the operation
    std::condition_variable mChanged;
  };

  Slot& At(int rank) { return mSlots[static_cast<std::size_t>(rank)]; }
  bool Waits(int rank) { return At(rank).mPhase == Phase::WAITING; }

  // These are called with the lock held.
  void Meet(int rank);
  bool MeetsPartner(int rank);
  bool OneCollective(std::vector<int> const& ranks);
  void Start(std::vector<int> const& partners);
  void FailStuck();
  template <typename Predicate>
  bool ReleaseStuck(Predicate released);
  bool PartnerCanGoOn(int rank);
  void Change(int rank, Phase phase);
  void End(std::vector<int> const& ranks, PavexStatus status);

  void AwaitChange(Slot& slot, Phase from);
  void Copy(int rank);

  std::mutex mMutex;
  std::vector<Slot> mSlots;
  bool mProcessorEach;    // no more ranks than processors
  std::vector<int> mAll;  // 0 .. n - 1

  // Scratch, used with the lock held; kept so that waiting and leaving need no memory.
  std::vector<int> mPair = {0, 0};
  std::vector<int> mStuck;
  std::vector<char> mCanGoOn;
};

}  // namespace Pavex
