#include "pavex/comm/local_job.h"

#include "pavex/comm/local_group.h"

#include <algorithm>
#include <cstddef>

namespace Pavex {
namespace {

// With a processor for each rank, looking harms no other rank. With fewer processors, every
// look of one rank lets another one run, which costs far less than sleeping and waking. With
// many ranks, most looks come before all others have run, so each rank keeps only a few: when
// all ranks are ready to run, one round of them brings the last one to the operation. More
// looks gained nothing in measurements, and pauses cost most when the system has put two ranks
// on one processor.
LocalPatience PatienceOf(int ranks) {
  constexpr int kPauses = 20;
  constexpr int kYields = 100;
  constexpr int kFewestYields = 4;
  constexpr int kRanksPerProcessor = 8;  // up to here each rank keeps all its looks
  if (ranks <= Processors()) return {kPauses, kYields};
  int const share = kYields * kRanksPerProcessor * Processors() / ranks;
  return {0, std::clamp(share, kFewestYields, kYields)};
}

}  // namespace

LocalJob::LocalJob(int ranks)
    : mSlots(static_cast<std::size_t>(ranks)), mPatience(PatienceOf(ranks)) {
  mStuck.reserve(mSlots.size());
}

LocalJob::~LocalJob() = default;

std::vector<LocalSlot*> LocalJob::Slots() {
  std::vector<LocalSlot*> slots;
  slots.reserve(mSlots.size());
  for (LocalSlot& slot : mSlots) {
    slots.push_back(&slot);
  }
  return slots;
}

void LocalJob::Leave(LocalSlot& slot) {
  std::lock_guard<std::mutex> const lock(mMutex);
  slot.mPhase = LocalPhase::GONE;
  bool awaited = slot.mAwaited > 0;
  for (LocalGroup* const group : slot.mGroups) {
    if (group->NoteGone()) awaited = true;
  }
  if (awaited) FailStuck();
}

bool LocalJob::CanGoOn(LocalSlot const& slot) const {
  LocalSlot const* at = &slot;
  for (std::size_t steps = 0; steps < mSlots.size(); ++steps) {  // more than ranks: a ring
    LocalPhase const phase = at->mPhase;
    if (phase == LocalPhase::RUNNING || phase == LocalPhase::COPYING || at->mCanGoOn)
      return true;
    if (phase == LocalPhase::GONE || !at->mOperation->PointToPoint()) return false;
    at = &at->mGroup->Partner(*at->mOperation);
  }
  return false;
}

// A rank in a message can go on if its partner can, and the ranks in a collective can if all
// the ranks of their group outside it can. So the ranks that can go on are found step by step,
// beginning with those that run; the others never can.
void LocalJob::FailStuck() {
  while (FindMore()) {
  }
  mStuck.clear();
  for (LocalSlot& slot : mSlots) {
    if (!slot.mCanGoOn && slot.mPhase == LocalPhase::WAITING) mStuck.push_back(&slot);
    slot.mCanGoOn = false;
  }
  for (LocalSlot* const slot : mStuck) {
    LocalGroup::End(*slot, STATUS_COMM_FAILED);
  }
  for (LocalSlot* const slot : mStuck) {
    slot->Wake();
  }
}

// Marks ranks that can go on because ranks that are marked can. Returns whether it found any.
bool LocalJob::FindMore() {
  bool found = false;
  for (LocalSlot& slot : mSlots) {
    if (slot.mCanGoOn || !CanGoOn(slot)) continue;
    slot.mCanGoOn = true;
    found = true;
  }
  for (LocalSlot& slot : mSlots) {
    for (LocalGroup* const group : slot.mGroups) {
      if (group->BeginsWith(slot) && group->LetCollectiveGoOn()) found = true;
    }
  }
  return found;
}

}  // namespace Pavex
