#include "pavex/comm/local_group.h"

#include "pavex/comm/local_bundle.h"
#include "pavex/comm/local_transfer.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <numeric>
#include <thread>
#include <tuple>
#include <utility>

namespace Pavex {
namespace {

// Up to this size one rank copies everything: to share the work would cost more.
constexpr std::size_t kSmall = std::size_t{1} << 15;

// One rank copies everything also up to this mean size of the pieces. Each rank that helps
// looks at every piece; for n * n small pieces on many ranks that takes far longer than to copy
// them.
constexpr std::size_t kSmallPiece = std::size_t{1} << 10;

// The number of ranks that are woken to copy together.
std::size_t MostHelpers() {
  return static_cast<std::size_t>(std::max(8, Processors()));
}

// Whether rank a comes before rank b, by color, then key, then rank.
bool ComesBefore(std::vector<LocalOperation const*> const& splits, int a, int b) {
  auto const order = [&](int rank) {
    LocalSplit const& split = *splits[static_cast<std::size_t>(rank)]->mSplit;
    return std::tuple(split.mColor, split.mKey, rank);
  };
  return order(a) < order(b);
}

}  // namespace

// The number is read once, because some systems read files for it.
int Processors() {
  static unsigned const processors = std::max(1U, std::thread::hardware_concurrency());
  return static_cast<int>(processors);
}

LocalGroup::LocalGroup(std::shared_ptr<LocalJob> job, std::vector<LocalSlot*> slots)
    : mJob(std::move(job)), mSlots(std::move(slots)), mAll(mSlots.size()) {
  std::iota(mAll.begin(), mAll.end(), 0);
  for (LocalSlot* const slot : mSlots) {
    slot->mGroups.reserve(slot->mGroups.size() + 1);
  }
}

// A group that was not opened may be destroyed with the lock held.
LocalGroup::~LocalGroup() {
  if (!mOpen) return;
  std::lock_guard<std::mutex> const lock(mJob->Mutex());
  for (LocalSlot* const slot : mSlots) {
    auto& groups = slot->mGroups;
    groups.erase(std::find(groups.begin(), groups.end(), this));
  }
}

void LocalGroup::Open() {
  for (LocalSlot* const slot : mSlots) {
    slot->mGroups.push_back(this);  // the constructor has reserved the room
  }
  mOpen = true;
}

PavexStatus LocalGroup::Execute(int rank, LocalOperation const& operation) {
  if (operation.mPeer < 0 || operation.mPeer >= Size()) return STATUS_COMM_FAILED;
  LocalSlot& slot = At(rank);
  bool allHaveEnded = false;
  {
    std::lock_guard<std::mutex> const lock(mJob->Mutex());
    if (slot.mPhase != LocalPhase::RUNNING) return STATUS_COMM_FAILED;
    Enter(rank, operation);
    if (operation.PointToPoint()) {
      MeetPartner(rank);
    } else {
      allHaveEnded = MeetInCollective(rank);
    }
  }
  if (allHaveEnded) Wake(mAll);  // without the lock, which they need soon
  slot.AwaitChange(LocalPhase::WAITING, mJob->Patience());
  auto const transfer = std::move(slot.mTransfer);
  if (slot.mPhase == LocalPhase::COPYING) Copy(rank, transfer.get());
  if (auto const received = std::move(slot.mReceived)) received->Unpack(operation.mRecv);
  return slot.mStatus;
}

bool LocalGroup::NoteGone() {
  ++mGone;
  return mInCollective > 0;
}

void LocalGroup::Enter(int rank, LocalOperation const& operation) {
  At(rank).mOperation = &operation;
  At(rank).mGroup = this;
  At(rank).mPhase = LocalPhase::WAITING;
  if (operation.PointToPoint()) {
    ++At(operation.mPeer).mAwaited;
  } else if (mInCollective++ == 0) {
    mCollective = &operation;
  }
}

// Carries out the collective that `rank` has entered, if it was the last rank. Returns true if
// the operation has ended for all ranks; the caller wakes them. Otherwise the rank waits. That
// leaves ranks stuck only if some are in another collective, have returned, or wait for this
// rank.
bool LocalGroup::MeetInCollective(int rank) {
  bool const one = At(rank).mOperation->SameCollective(*mCollective);
  if (one && mInCollective == Size()) return Start(rank, mAll);
  bool const awaited = At(rank).mAwaited > 0 || AwaitedElsewhere(At(rank));
  if (!one || mGone > 0 || awaited) mJob->FailStuck();
  return false;
}

// Whether ranks wait for this one in a collective of another group.
bool LocalGroup::AwaitedElsewhere(LocalSlot const& slot) const {
  return std::any_of(slot.mGroups.begin(), slot.mGroups.end(), [this](LocalGroup const* group) {
    return group != this && group->mInCollective > 0;
  });
}

// Carries out the message that `rank` sends or receives, if its partner is there. If it is not,
// but the rank can go on, no rank is stuck.
void LocalGroup::MeetPartner(int rank) {
  int const peer = At(rank).mOperation->mPeer;
  if (MeetsPartner(rank)) {
    mPair = {std::min(rank, peer), std::max(rank, peer)};
    if (Start(rank, mPair)) Wake(mPair);
  } else if (!mJob->CanGoOn(At(rank))) {
    mJob->FailStuck();
  }
}

bool LocalGroup::MeetsPartner(int rank) {
  LocalOperation const& own = *At(rank).mOperation;
  if (!WaitsHere(At(own.mPeer))) return false;
  LocalOperation const& other = *At(own.mPeer).mOperation;
  return other.PointToPoint() && other.mKind != own.mKind && other.mPeer == rank &&
         other.mTag == own.mTag;
}

bool LocalGroup::LetCollectiveGoOn() {
  if (mInCollective == 0) return false;
  bool found = false;
  for (LocalSlot const* const slot : mSlots) {
    if (slot->mCanGoOn) continue;
    if (!WaitsHere(*slot) || !slot->mOperation->SameCollective(*mCollective)) return false;
    found = true;
  }
  for (LocalSlot* const slot : mSlots) {
    slot->mCanGoOn = true;
  }
  return found;
}

// Carries out the operations of `partners`, which have met. Returns true if they have ended,
// and false if the partners, `rank` among them, still have to copy.
bool LocalGroup::Start(int rank, std::vector<int> const& partners) {
  try {
    std::vector<LocalOperation const*> operations(mSlots.size(), nullptr);
    for (int const partner : partners) {
      operations[static_cast<std::size_t>(partner)] = At(partner).mOperation;
    }
    if (Bundle(operations)) return true;
    LocalWork work;
    if (!SplitUp(operations) || !PlanLocalWork(operations, work)) {
      End(partners, STATUS_COMM_FAILED);
      return true;
    }
    std::size_t const bytes = work.Bytes();
    if (work.mOrdered || bytes <= kSmall || bytes <= kSmallPiece * work.mPieces.size()) {
      work.DoAll();
      End(partners, STATUS_OK);
      return true;
    }
    ShareCopying(rank, std::make_shared<LocalTransfer>(std::move(work), partners));
    return false;
  } catch (std::bad_alloc const&) {
    End(partners, STATUS_COMM_FAILED);
    return true;
  }
}

// Ends `operations` by a bundle that each rank unpacks, if all ranks receive the same small
// pieces. Otherwise does nothing and returns false.
bool LocalGroup::Bundle(std::vector<LocalOperation const*> const& operations) {
  if (operations.front() == nullptr || !LocalBundle::Fits(operations.front()->mKind)) {
    return false;
  }
  auto const bundle = std::make_shared<LocalBundle>();
  if (!bundle->Plan(operations)) {
    End(mAll, STATUS_COMM_FAILED);
    return true;
  }
  if (bundle->MeanBytes() > kSmallPiece) return false;
  bundle->Pack();
  for (LocalSlot* const slot : mSlots) {
    slot->mReceived = bundle;
  }
  End(mAll, STATUS_OK);
  return true;
}

// Makes the groups of a split, if the `operations` are one, and gives each rank its own.
// Returns false if a rank has no room for its communicator.
bool LocalGroup::SplitUp(std::vector<LocalOperation const*> const& operations) {
  if (operations.front() == nullptr || operations.front()->mKind != LocalKind::SPLIT)
    return true;
  auto const split = [&](int rank) -> LocalSplit& {
    return *operations[static_cast<std::size_t>(rank)]->mSplit;
  };
  if (!std::all_of(mAll.begin(), mAll.end(), [&](int r) { return split(r).mHasRoom; }))
    return false;
  std::vector<int> ranks = mAll;
  std::sort(ranks.begin(), ranks.end(),
            [&](int a, int b) { return ComesBefore(operations, a, b); });
  std::vector<LocalSlot*> members;
  for (auto rank = ranks.begin(); rank != ranks.end(); ++rank) {
    int const color = split(*rank).mColor;
    if (color < 0) continue;
    split(*rank).mRank = static_cast<int>(members.size());
    members.push_back(&At(*rank));
    bool const last = std::next(rank) == ranks.end() || split(*std::next(rank)).mColor != color;
    if (last)
      split(*rank).mGroup =
          std::make_shared<LocalGroup>(mJob, std::exchange(members, std::vector<LocalSlot*>()));
  }
  // Nothing can fail from here on. The last rank of each group has it; the others follow.
  std::shared_ptr<LocalGroup> group;
  for (auto rank = ranks.rbegin(); rank != ranks.rend() && split(*rank).mColor >= 0; ++rank) {
    if (split(*rank).mGroup == nullptr)
      split(*rank).mGroup = group;
    else
      (group = split(*rank).mGroup)->Open();
  }
  return true;
}

// Makes `rank`, which is awake, and some of its partners copy. The others stay asleep: to wake
// many would take longer than they can save.
void LocalGroup::ShareCopying(int rank, std::shared_ptr<LocalTransfer> const& transfer) {
  std::size_t others = MostHelpers() - 1;
  for (int const partner : transfer->Partners()) {
    bool const helps = partner == rank || (others > 0 && others-- > 0);
    if (helps) At(partner).mTransfer = transfer;
    Change(At(partner), LocalPhase::COPYING);
    if (helps) At(partner).Wake();
  }
}

void LocalGroup::Change(LocalSlot& slot, LocalPhase phase) {
  if (slot.mPhase == LocalPhase::WAITING) {
    LocalOperation const& operation = *slot.mOperation;
    LocalGroup& group = *slot.mGroup;
    operation.PointToPoint() ? --group.At(operation.mPeer).mAwaited : --group.mInCollective;
  }
  slot.mPhase = phase;
}

void LocalGroup::End(LocalSlot& slot, PavexStatus status) {
  slot.mStatus = status;
  Change(slot, LocalPhase::RUNNING);
}

void LocalGroup::End(std::vector<int> const& ranks, PavexStatus status) {
  for (int const rank : ranks) {
    End(At(rank), status);
  }
}

void LocalGroup::Wake(std::vector<int> const& ranks) {
  for (int const rank : ranks) {
    At(rank).Wake();
  }
}

// Copies as long as something is left, and waits until everything has been copied. `transfer`
// is null on a rank that does not help.
void LocalGroup::Copy(int rank, LocalTransfer* transfer) {
  if (transfer == nullptr || !transfer->Help(rank)) {
    return At(rank).AwaitChange(LocalPhase::COPYING, mJob->Patience());
  }
  {
    std::lock_guard<std::mutex> const lock(mJob->Mutex());
    End(transfer->Partners(), STATUS_OK);
  }
  Wake(transfer->Partners());
}

}  // namespace Pavex
