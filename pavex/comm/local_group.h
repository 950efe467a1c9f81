// The meeting place of the ranks of a LocalComm.

#pragma once

#include "pavex/comm/local_slot.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace Pavex {

// Matches the operations of n ranks, makes the ranks copy the data, and fails operations that
// can never meet. Every rank has at most one operation at a time, so operations meet in the
// order in which each rank calls them without any further numbering. Used by all ranks at once.
class LocalGroup {
 public:
  explicit LocalGroup(int ranks);
  ~LocalGroup();

  int Size() const { return static_cast<int>(mSlots.size()); }

  // Carries out `operation` for `rank`. Returns its status when no rank uses its buffers any
  // more.
  PavexStatus Execute(int rank, LocalOperation const& operation);

  // Notes that the rank has returned and takes part in nothing from now on.
  void Leave(int rank);

 private:
  LocalSlot& At(int rank) { return mSlots[static_cast<std::size_t>(rank)]; }
  bool Waits(int rank) { return At(rank).mPhase == LocalPhase::WAITING; }

  // These are called with the lock held.
  void Enter(int rank, LocalOperation const& operation);
  bool MeetInCollective(int rank);
  void MeetPartner(int rank);
  bool MeetsPartner(int rank);
  bool OneCollective(std::vector<int> const& ranks);
  bool Start(int rank, std::vector<int> const& partners);
  bool Bundle(std::vector<LocalOperation const*> const& operations);
  void ShareCopying(int rank, std::shared_ptr<LocalTransfer> const& transfer);
  void FailStuck();
  bool CanGoOn(int rank);
  void Change(int rank, LocalPhase phase);
  void End(std::vector<int> const& ranks, PavexStatus status);

  void Wake(std::vector<int> const& ranks);
  void Copy(int rank, LocalTransfer* transfer);

  std::mutex mMutex;
  std::vector<LocalSlot> mSlots;
  LocalPatience const mPatience;
  std::vector<int> mAll;  // 0 .. n - 1
  int mGone = 0;          // ranks that have returned

  // The collective that ranks wait in, and how many. There is never more than one: ranks in two
  // can never go on.
  LocalOperation const* mCollective = nullptr;  // of one of them; unused while there are none
  int mInCollective = 0;

  // Scratch arrays, used with the lock held. They are kept so that waiting and leaving need no
  // memory.
  std::vector<int> mPair = {0, 0};
  std::vector<int> mStuck;
};

}  // namespace Pavex
