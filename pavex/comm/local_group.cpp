#include "pavex/comm/local_group.h"

#include "pavex/comm/local_transfer.h"

#include <algorithm>
#include <new>
#include <numeric>
#include <thread>
#include <utility>

namespace Pavex {
namespace {

// Up to this size one rank copies everything at once: handing out the work would cost more.
constexpr std::size_t kSmall = std::size_t{1} << 15;

// Likewise up to this mean size of the pieces: each rank that helps looks at every piece, which
// of n * n small ones on many ranks takes far longer than to copy them.
constexpr std::size_t kSmallPiece = std::size_t{1} << 10;

// How often a rank looks for its partners before it sleeps: shortly with the
// processor to itself, then letting other threads run in between.
constexpr int kPauses = 20;
constexpr int kYields = 100;

void Pause() {
#if defined(__x86_64__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  asm volatile("yield");
#endif
}

}  // namespace

LocalGroup::LocalGroup(int ranks)
    : mSlots(static_cast<std::size_t>(ranks)),
      mProcessorEach(static_cast<unsigned>(ranks) <= std::thread::hardware_concurrency()),
      mAll(mSlots.size()),
      mCanGoOn(mSlots.size()) {
  std::iota(mAll.begin(), mAll.end(), 0);
  mStuck.reserve(mSlots.size());
}

LocalGroup::~LocalGroup() = default;

PavexStatus LocalGroup::Execute(int rank, LocalOperation const& operation) {
  if (operation.mPeer < 0 || operation.mPeer >= Size()) return STATUS_COMM_FAILED;
  Slot& slot = At(rank);
  {
    std::lock_guard<std::mutex> const lock(mMutex);
    if (slot.mPhase != Phase::RUNNING) return STATUS_COMM_FAILED;
    slot.mOperation = &operation;
    slot.mPhase = Phase::WAITING;
    Meet(rank);
  }
  AwaitChange(slot, Phase::WAITING);
  if (slot.mPhase == Phase::COPYING) Copy(rank);
  slot.mTransfer.reset();
  return slot.mStatus;
}

void LocalGroup::Leave(int rank) {
  std::lock_guard<std::mutex> const lock(mMutex);
  At(rank).mPhase = Phase::GONE;
  FailStuck();
}

// Carries out the operations that meet now that `rank` waits, if they do.
void LocalGroup::Meet(int rank) {
  int const peer = At(rank).mOperation->mPeer;
  if (MeetsPartner(rank)) {
    mPair = {std::min(rank, peer), std::max(rank, peer)};
    Start(mPair);
  } else if (OneCollective(mAll)) {
    Start(mAll);
  } else {
    FailStuck();
  }
}

bool LocalGroup::MeetsPartner(int rank) {
  LocalOperation const& own = *At(rank).mOperation;
  if (!own.PointToPoint() || !Waits(own.mPeer)) return false;
  LocalOperation const& other = *At(own.mPeer).mOperation;
  return other.PointToPoint() && other.mKind != own.mKind && other.mPeer == rank &&
         other.mTag == own.mTag;
}

// All `ranks` wait in the same collective.
bool LocalGroup::OneCollective(std::vector<int> const& ranks) {
  return std::all_of(ranks.begin(), ranks.end(), [&](int r) {
    return Waits(r) && At(r).mOperation->SameCollective(*At(ranks.front()).mOperation);
  });
}

// Carries the met operations of `partners` out, or hands the copying to all of them.
void LocalGroup::Start(std::vector<int> const& partners) {
  try {
    std::vector<LocalOperation const*> operations(mSlots.size(), nullptr);
    for (int const rank : partners) {
      operations[static_cast<std::size_t>(rank)] = At(rank).mOperation;
    }
    LocalWork work;
    if (!PlanLocalWork(operations, work)) return End(partners, STATUS_COMM_FAILED);
    std::size_t const bytes = work.Bytes();
    if (work.mOrdered || bytes <= kSmall || bytes <= kSmallPiece * work.mPieces.size()) {
      work.DoAll();
      return End(partners, STATUS_OK);
    }
    auto const transfer = std::make_shared<LocalTransfer>(std::move(work), partners);
    for (int const rank : partners) {
      At(rank).mTransfer = transfer;
      Change(rank, Phase::COPYING);
    }
  } catch (std::bad_alloc const&) {
    End(partners, STATUS_COMM_FAILED);
  }
}

// Fails every waiting rank that can never go on. Running and copying ranks can go on, whatever
// they do next. A rank in Send or Recv can if its partner can. The ranks in a collective can if
// all the ranks outside it can; so of the ranks that are left in the end, either all are in one
// collective and can go on, or each of them waits for another one that cannot.
void LocalGroup::FailStuck() {
  mStuck.clear();
  for (int const rank : mAll) {
    bool const stuck = Waits(rank) || At(rank).mPhase == Phase::GONE;
    mCanGoOn[static_cast<std::size_t>(rank)] = !stuck;
    if (stuck) mStuck.push_back(rank);
  }
  while (ReleaseStuck([this](int rank) { return PartnerCanGoOn(rank); })) {
  }
  if (!OneCollective(mStuck)) {
    ReleaseStuck([this](int rank) { return !Waits(rank); });
    End(mStuck, STATUS_COMM_FAILED);
  }
}

// Takes the ranks for which `released` holds out of the stuck ones; false if there are none.
template <typename Predicate>
bool LocalGroup::ReleaseStuck(Predicate released) {
  auto const end =
      std::partition(mStuck.begin(), mStuck.end(), [&](int rank) { return !released(rank); });
  bool const any = end != mStuck.end();
  for (auto rank = end; rank != mStuck.end(); ++rank) {
    mCanGoOn[static_cast<std::size_t>(*rank)] = true;
  }
  mStuck.erase(end, mStuck.end());
  return any;
}

bool LocalGroup::PartnerCanGoOn(int rank) {
  return Waits(rank) && At(rank).mOperation->PointToPoint() &&
         mCanGoOn[static_cast<std::size_t>(At(rank).mOperation->mPeer)];
}

void LocalGroup::Change(int rank, Phase phase) {
  At(rank).mPhase = phase;
  At(rank).mChanged.notify_one();
}

// Ends the operations of `ranks`. A rank may return from its operation as soon as its phase has
// changed.
void LocalGroup::End(std::vector<int> const& ranks, PavexStatus status) {
  for (int const rank : ranks) {
    At(rank).mStatus = status;
    At(rank).mOperation = nullptr;
    Change(rank, Phase::RUNNING);
  }
}

// Sleeping and waking cost more than a small operation, so a rank looks for a while first. It
// keeps its processor meanwhile only if every rank can have one of its own.
void LocalGroup::AwaitChange(Slot& slot, Phase from) {
  int const pauses = mProcessorEach ? kPauses : 0;
  for (int i = 0; i < pauses + kYields; ++i) {
    if (slot.mPhase != from) return;
    i < pauses ? Pause() : std::this_thread::yield();
  }
  std::unique_lock<std::mutex> lock(mMutex);
  slot.mChanged.wait(lock, [&] { return slot.mPhase != from; });
}

void LocalGroup::Copy(int rank) {
  Slot& slot = At(rank);
  if (slot.mTransfer->Help(rank)) {
    std::lock_guard<std::mutex> const lock(mMutex);
    return End(slot.mTransfer->Helpers(), STATUS_OK);
  }
  AwaitChange(slot, Phase::COPYING);
}

}  // namespace Pavex
