// The meeting place of the ranks of a LocalComm.

#pragma once

#include "pavex/comm/local_job.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace Pavex {

// The number of processors, at least 1.
int Processors();

// Matches the operations of n ranks, makes the ranks copy the data, and fails operations that
// can never meet. Every rank has at most one operation at a time, so operations meet in the
// order in which each rank calls them without any further numbering. Used by all ranks at once.
// All groups of a job share its lock. Ranks are counted within the group.
class LocalGroup {
 public:
  // A group of the ranks with the places `slots` of `job`, in this order.
  LocalGroup(std::shared_ptr<LocalJob> job, std::vector<LocalSlot*> slots);
  ~LocalGroup();

  int Size() const { return static_cast<int>(mSlots.size()); }

  // Makes the group known to its ranks' places; required once, before any operation. Call it
  // with the lock of the job held, or before the ranks run.
  void Open();

  // Carries out `operation` for `rank`. Returns its status when no rank uses its buffers any
  // more.
  PavexStatus Execute(int rank, LocalOperation const& operation);

  // Notes that the rank has returned and takes part in nothing from now on.
  void Leave(int rank) { mJob->Leave(At(rank)); }

  // These are called with the lock held.

  // Notes that one of the ranks has returned. Returns whether others wait in a collective.
  bool NoteGone();
  bool BeginsWith(LocalSlot const& slot) const { return mSlots.front() == &slot; }
  // The other rank of a message.
  LocalSlot const& Partner(LocalOperation const& message) const {
    return *mSlots[static_cast<std::size_t>(message.mPeer)];
  }
  // Marks the ranks that wait in a collective if all others are marked as able to go on.
  // Returns whether it marked any.
  bool LetCollectiveGoOn();
  // Ends the operation of a rank; the caller then wakes it. The rank may return from its
  // operation as soon as its phase has changed.
  static void End(LocalSlot& slot, PavexStatus status);

 private:
  LocalSlot& At(int rank) { return *mSlots[static_cast<std::size_t>(rank)]; }

  // These are called with the lock held.
  bool WaitsHere(LocalSlot const& slot) const {
    return slot.mPhase == LocalPhase::WAITING && slot.mGroup == this;
  }
  void Enter(int rank, LocalOperation const& operation);
  bool MeetInCollective(int rank);
  bool AwaitedElsewhere(LocalSlot const& slot) const;
  void MeetPartner(int rank);
  bool MeetsPartner(int rank);
  bool Start(int rank, std::vector<int> const& partners);
  bool Bundle(std::vector<LocalOperation const*> const& operations);
  bool SplitUp(std::vector<LocalOperation const*> const& operations);
  void ShareCopying(int rank, std::shared_ptr<LocalTransfer> const& transfer);
  static void Change(LocalSlot& slot, LocalPhase phase);
  void End(std::vector<int> const& ranks, PavexStatus status);

  void Wake(std::vector<int> const& ranks);
  void Copy(int rank, LocalTransfer* transfer);

  std::shared_ptr<LocalJob> const mJob;
  std::vector<LocalSlot*> const mSlots;
  std::vector<int> mAll;  // 0 .. n - 1
  bool mOpen = false;
  int mGone = 0;  // ranks that have returned

  // The collective that ranks wait in, and how many. There is never more than one: ranks in two
  // can never go on.
  LocalOperation const* mCollective = nullptr;  // of one of them; unused while there are none
  int mInCollective = 0;

  std::vector<int> mPair = {0, 0};  // used with the lock held; kept so that it needs no memory
};

}  // namespace Pavex
