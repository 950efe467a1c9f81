#include "pavex/comm/node_exchange.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <new>
#include <sched.h>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace Pavex {

namespace {

// A process that waits watches the memory for this many looks, then gives its core away between
// looks. Where processes take turns on the cores, the one that it waits for probably needs this
// core: it gives it away at once.
constexpr std::uint64_t kBusyWaits = 20;

// How often a long wait lets MPI work, and looks whether all processes still live. Where others
// have the core, a look of this process takes long: so time counts as well.
constexpr std::uint64_t kWaitsPerProgress = 64;
constexpr auto kTimePerProgress = std::chrono::milliseconds(1);
constexpr auto kTimePerWatch = std::chrono::milliseconds(5);

void Pause() {
#if defined(__x86_64__)
  _mm_pause();
#endif
}

}  // namespace

bool NodeExchange::Reserve(int ranks) try {
  // An exchange with every rank needs two for each. What a rank passes on in its group is less:
  // the ranks of a group share that evenly.
  mMessages.reserve(4 * static_cast<std::size_t>(ranks));
  return true;
} catch (std::bad_alloc const&) {
  return false;
}

void NodeExchange::Begin(NodeOperation operation, std::uint64_t sequence, int label,
                         NodeCopier copier) {
  mOperation = operation;
  mSequence = sequence;
  mLabel = label;
  mCopier = copier;
  mMessages.clear();
  mKept = {};
  mFailed = false;
  mMayStillReceive = false;
}

void NodeExchange::Send(int to, NodeRegion const& region, Datatype type) {
  Add(true, to, region, type);
}

void NodeExchange::Receive(int from, NodeRegion const& region, Datatype type) {
  Add(false, from, region, type);
}

void NodeExchange::Label(int label) {
  mLabel = label;
}

void NodeExchange::Keep(NodeRegion const& from, NodeRegion const& to) {
  mKept = NodeCopy(to, from);
  if (mKept.Fits()) return;
  mFailed = true;
  std::snprintf(mReason, sizeof mReason, "this rank sends itself another size than it expects");
}

void NodeExchange::Add(bool out, int peer, NodeRegion const& region, Datatype type) {
  bool const counts = region.Bytes() > 0 || mOperation == NodeOperation::MESSAGE ||
                      (TellsAll() && mLinks.To(peer).peer != nullptr);
  if (!counts) return;
  NodeTerms const terms{mSequence, static_cast<std::int32_t>(mOperation), mLabel,
                        region.Bytes()};
  try {
    mMessages.push_back(
        {out, Phase::WAITING, peer, region, type, terms, 0, {}, 0, MPI_REQUEST_NULL, 0, false});
  } catch (std::bad_alloc const&) {
    mFailed = true;
    std::snprintf(mReason, sizeof mReason, "this rank has no memory for its messages");
  }
}

// Whether the operation brings every rank's piece to all.
bool NodeExchange::TellsAll() const {
  return mOperation == NodeOperation::ALLGATHER || mOperation == NodeOperation::ALLGATHERV ||
         mOperation == NodeOperation::ALLGATHER_RUNS;
}

char const* NodeExchange::Run() {
  mOpen = mMessages.size();
  mWaits = 0;
  Pass();  // offers and grants first: the others can work while this rank copies its own piece
  CopyKept();
  while (mOpen > 0) {
    if (Pass())
      mWaits = 0;
    else if (!Wait())
      break;
  }
  return mFailed ? mReason : nullptr;
}

void NodeExchange::CopyKept() {
  if (mKept.Chunks() == 0) return;
  mKept.BeginAt(mLinks.Rank(), mLinks.Size());
  mLinks.Store(mKept);
}

// One look at every message. Whether anything has moved.
bool NodeExchange::Pass() {
  ++mPass;
  bool moved = false;
  for (Message& message : mMessages) {
    if (message.phase != Phase::DONE) moved |= Step(message);
  }
  CopyClaimed();
  return moved;
}

bool NodeExchange::Step(Message& message) {
  if (message.phase == Phase::OVER_MPI) return StepMpi(message);
  if (mLinks.To(message.peer).peer == nullptr) return StartMpi(message);
  return message.out ? StepSend(message) : StepReceive(message);
}

// False if a process has ended that this one may be waiting for.
bool NodeExchange::Wait() {
  ++mWaits;
  std::uint64_t const busy = mLinks.Crowded() ? 0 : kBusyWaits;
  if (mWaits <= busy) {
    Pause();
    return true;
  }
  auto const now = std::chrono::steady_clock::now();
  if (mWaits == busy + 1) mProgressed = mWatched = now;
  if (mWaits % kWaitsPerProgress == 0 || now - mProgressed > kTimePerProgress) {
    mProgressed = now;
    int any = 0;
    MPI_Iprobe(MPI_ANY_SOURCE, MPI_ANY_TAG, mLinks.Messages(), &any, MPI_STATUS_IGNORE);
  }
  if (now - mWatched > kTimePerWatch) {
    mWatched = now;
    // What a peer has sent before it ended or went on is there now: it is taken first.
    int const ended = mLinks.FindEnded();
    bool const missed = FindMissed();
    if ((ended < 0 && !missed) || Pass()) return true;
    if (ended >= 0) {
      Abandon(ended);
      return false;
    }
    FailMissed();
  }
  sched_yield();
  return true;
}

// The end.

bool NodeExchange::Finish(Message& message) {
  if (message.phase == Phase::DONE) return true;
  message.phase = Phase::DONE;
  --mOpen;
  return true;
}

bool NodeExchange::Fail(Message& message, char const* reason) {
  Finish(message);
  if (mFailed) return true;
  mFailed = true;
  std::snprintf(mReason, sizeof mReason, reason, message.peer);
  return true;
}

// The receiver will not answer, or this sender will not store: it may not be offered for ever.
bool NodeExchange::FailOffered(Message& message, char const* reason) {
  AbandonOffer(message);
  return Fail(message, reason);
}

// Marks the messages whose peers have no part in this collective. Whether there are any.
bool NodeExchange::FindMissed() {
  bool found = false;
  for (Message& message : mMessages) {
    message.missed = mOperation != NodeOperation::MESSAGE && message.phase != Phase::DONE &&
                     message.phase != Phase::OVER_MPI &&
                     mLinks.To(message.peer).peer != nullptr && mLinks.Misses(message.peer);
    found |= message.missed;
  }
  return found;
}

// Those that have not moved since.
void NodeExchange::FailMissed() {
  for (Message& message : mMessages) {
    if (!message.missed) continue;
    if (message.phase == Phase::OFFERED) AbandonOffer(message);
    if (message.phase == Phase::GRANTED) AbandonGrant(message);
    Fail(message, "rank %d is in a later operation");
  }
}

// No process of the node copies from or to this rank's arrays once it has left. What MPI has
// begun to carry cannot be taken back, and to wait for it could last for ever: it may still
// arrive.
void NodeExchange::Abandon(int ended) {
  if (!mFailed)
    std::snprintf(mReason, sizeof mReason, "the process of rank %d has ended", ended);
  mFailed = true;
  for (Message& message : mMessages) {
    if (message.phase == Phase::OFFERED) AbandonOffer(message);
    if (message.phase == Phase::GRANTED) AbandonGrant(message);
    if (message.phase != Phase::OVER_MPI) continue;
    int done = 0;
    MPI_Cancel(&message.request);
    MPI_Test(&message.request, &done, MPI_STATUS_IGNORE);
    if (done != 0) continue;
    MPI_Request_free(&message.request);
    mMayStillReceive |= !message.out;
  }
  mOpen = 0;
}

void NodeExchange::AbandonOffer(Message& message) {
  NodeNote& offer = Outgoing(message).offers[NodeRing::SlotOf(message.number)];
  NodeNote::Word const word = offer.Read();
  if (NodeNote::StateOf(word) == NodeState::OFFERED && offer.Move(word, NodeState::WITHDRAWN))
    return;
  NodeNote const& answer = Outgoing(message).answers[NodeRing::SlotOf(message.number)];
  NodePeer const& peer = *mLinks.To(message.peer).peer;
  auto const isTaken = [&](NodeNote::Word answered) {
    return NodeNote::IsNumber(answered, message.number) &&
           NodeNote::StateOf(answered) == NodeState::TAKEN;
  };
  while (!isTaken(answer.Read()) && peer.IsAlive())
    sched_yield();
}

void NodeExchange::AbandonGrant(Message& message) {
  NodeNote& answer = Incoming(message).answers[NodeRing::SlotOf(message.number)];
  NodeNote::Word const word = answer.Read();
  if (NodeNote::StateOf(word) == NodeState::GRANTED && answer.Move(word, NodeState::REVOKED))
    return;
  NodePeer const& peer = *mLinks.To(message.peer).peer;
  while (NodeNote::StateOf(answer.Read()) == NodeState::CLAIMED && peer.IsAlive())
    sched_yield();
}

bool NodeExchange::IsLarge(Message const& message) const {
  return message.terms.bytes > NodeRing::kSmallBytes;
}

NodeRing& NodeExchange::Incoming(Message const& message) {
  NodeChannel& channel = *mLinks.To(message.peer).in;
  return mOperation == NodeOperation::MESSAGE ? channel.direct : channel.collective;
}

NodeRing& NodeExchange::Outgoing(Message const& message) {
  NodeChannel& channel = *mLinks.To(message.peer).out;
  return mOperation == NodeOperation::MESSAGE ? channel.direct : channel.collective;
}

NodeCounters& NodeExchange::Counters(Message const& message) {
  NodeLink& link = mLinks.To(message.peer);
  return mOperation == NodeOperation::MESSAGE ? link.direct : link.collective;
}

}  // namespace Pavex
