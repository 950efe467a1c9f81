#include "pavex/comm/local_group.h"

#include "pavex/comm/local_bundle.h"
#include "pavex/comm/local_transfer.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <numeric>
#include <thread>
#include <utility>

namespace Pavex {
namespace {

// Up to this size one rank copies everything: to share the work would cost more.
constexpr std::size_t kSmall = std::size_t{1} << 15;

// One rank copies everything also up to this mean size of the pieces. Each rank that helps
// looks at every piece; for n * n small pieces on many ranks that takes far longer than to copy
// them.
constexpr std::size_t kSmallPiece = std::size_t{1} << 10;

// The number is read once, because some systems read files for it.
int Processors() {
  static unsigned const processors = std::max(1U, std::thread::hardware_concurrency());
  return static_cast<int>(processors);
}

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

// The number of ranks that are woken to copy together.
std::size_t MostHelpers() {
  return static_cast<std::size_t>(std::max(8, Processors()));
}

}  // namespace

LocalGroup::LocalGroup(int ranks)
    : mSlots(static_cast<std::size_t>(ranks)),
      mPatience(PatienceOf(ranks)),
      mAll(mSlots.size()) {
  std::iota(mAll.begin(), mAll.end(), 0);
  mStuck.reserve(mSlots.size());
}

LocalGroup::~LocalGroup() = default;

PavexStatus LocalGroup::Execute(int rank, LocalOperation const& operation) {
  if (operation.mPeer < 0 || operation.mPeer >= Size()) return STATUS_COMM_FAILED;
  LocalSlot& slot = At(rank);
  bool allHaveEnded = false;
  {
    std::lock_guard<std::mutex> const lock(mMutex);
    if (slot.mPhase != LocalPhase::RUNNING) return STATUS_COMM_FAILED;
    Enter(rank, operation);
    if (operation.PointToPoint()) {
      MeetPartner(rank);
    } else {
      allHaveEnded = MeetInCollective(rank);
    }
  }
  if (allHaveEnded) Wake(mAll);  // without the lock, which they need soon
  slot.AwaitChange(LocalPhase::WAITING, mPatience);
  auto const transfer = std::move(slot.mTransfer);
  if (slot.mPhase == LocalPhase::COPYING) Copy(rank, transfer.get());
  if (auto const received = std::move(slot.mReceived)) received->Unpack(operation.mRecv);
  return slot.mStatus;
}

void LocalGroup::Leave(int rank) {
  std::lock_guard<std::mutex> const lock(mMutex);
  At(rank).mPhase = LocalPhase::GONE;
  ++mGone;
  if (mInCollective > 0 || At(rank).mAwaited > 0) FailStuck();
}

void LocalGroup::Enter(int rank, LocalOperation const& operation) {
  At(rank).mOperation = &operation;
  At(rank).mPhase = LocalPhase::WAITING;
  if (operation.PointToPoint()) {
    ++At(operation.mPeer).mAwaited;
  } else if (mInCollective++ == 0) {
    mCollective = &operation;
  }
}

// Carries out the collective that `rank` has entered, if it was the last rank. Returns true if
// the operation has ended for all ranks; the caller wakes them. Otherwise the rank waits. That
// leaves others stuck only if they are in another collective, have returned, or wait for this
// rank.
bool LocalGroup::MeetInCollective(int rank) {
  bool const one = At(rank).mOperation->SameCollective(*mCollective);
  if (one && mInCollective == Size()) return Start(rank, mAll);
  if (!one || mGone > 0 || At(rank).mAwaited > 0) FailStuck();
  return false;
}

// Carries out the message that `rank` sends or receives, if its partner is there. If it is not,
// but the rank can go on, no rank is stuck.
void LocalGroup::MeetPartner(int rank) {
  int const peer = At(rank).mOperation->mPeer;
  if (MeetsPartner(rank)) {
    mPair = {std::min(rank, peer), std::max(rank, peer)};
    if (Start(rank, mPair)) Wake(mPair);
  } else if (!CanGoOn(rank)) {
    FailStuck();
  }
}

bool LocalGroup::MeetsPartner(int rank) {
  LocalOperation const& own = *At(rank).mOperation;
  if (!Waits(own.mPeer)) return false;
  LocalOperation const& other = *At(own.mPeer).mOperation;
  return other.PointToPoint() && other.mKind != own.mKind && other.mPeer == rank &&
         other.mTag == own.mTag;
}

// Whether all `ranks` wait in the same collective.
bool LocalGroup::OneCollective(std::vector<int> const& ranks) {
  return std::all_of(ranks.begin(), ranks.end(), [&](int r) {
    return Waits(r) && At(r).mOperation->SameCollective(*At(ranks.front()).mOperation);
  });
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
    if (!PlanLocalWork(operations, work)) {
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
  for (LocalSlot& slot : mSlots) {
    slot.mReceived = bundle;
  }
  End(mAll, STATUS_OK);
  return true;
}

// Makes `rank`, which is awake, and some of its partners copy. The others stay asleep: to wake
// many would take longer than they can save.
void LocalGroup::ShareCopying(int rank, std::shared_ptr<LocalTransfer> const& transfer) {
  std::size_t others = MostHelpers() - 1;
  for (int const partner : transfer->Partners()) {
    bool const helps = partner == rank || (others > 0 && others-- > 0);
    if (helps) At(partner).mTransfer = transfer;
    Change(partner, LocalPhase::COPYING);
    if (helps) At(partner).Wake();
  }
}

// Whether `rank` runs or copies, or waits for a message of a rank that can go on. For a rank in
// a collective the answer depends on all others: it is false here, and FailStuck decides.
bool LocalGroup::CanGoOn(int rank) {
  for (int steps = 0; steps < Size(); ++steps) {  // more steps than ranks: a ring
    LocalPhase const phase = At(rank).mPhase;
    if (phase == LocalPhase::RUNNING || phase == LocalPhase::COPYING) return true;
    if (phase == LocalPhase::GONE || !At(rank).mOperation->PointToPoint()) return false;
    rank = At(rank).mOperation->mPeer;
  }
  return false;
}

// Fails every waiting rank that can never go on. The ranks in a collective can if all the ranks
// outside it can; so of the remaining ranks, either all are in one collective and can go on, or
// each of them waits for another one that cannot.
void LocalGroup::FailStuck() {
  mStuck.clear();
  std::copy_if(mAll.begin(), mAll.end(), std::back_inserter(mStuck),
               [this](int rank) { return !CanGoOn(rank); });
  if (OneCollective(mStuck)) return;
  mStuck.erase(
      std::remove_if(mStuck.begin(), mStuck.end(), [this](int rank) { return !Waits(rank); }),
      mStuck.end());
  End(mStuck, STATUS_COMM_FAILED);
  Wake(mStuck);
}

void LocalGroup::Change(int rank, LocalPhase phase) {
  LocalSlot& slot = At(rank);
  if (Waits(rank)) {
    LocalOperation const& operation = *slot.mOperation;
    operation.PointToPoint() ? --At(operation.mPeer).mAwaited : --mInCollective;
  }
  slot.mPhase = phase;
}

// Ends the operations of `ranks`; the caller then wakes them. A rank may return from its
// operation as soon as its phase has changed.
void LocalGroup::End(std::vector<int> const& ranks, PavexStatus status) {
  for (int const rank : ranks) {
    At(rank).mStatus = status;
    Change(rank, LocalPhase::RUNNING);
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
    return At(rank).AwaitChange(LocalPhase::COPYING, mPatience);
  }
  {
    std::lock_guard<std::mutex> const lock(mMutex);
    End(transfer->Partners(), STATUS_OK);
  }
  Wake(transfer->Partners());
}

}  // namespace Pavex
