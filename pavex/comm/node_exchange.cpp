#include "pavex/comm/node_exchange.h"

#include "pavex/comm/mpi_call.h"

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
// looks.
constexpr std::uint64_t kBusyWaits = 20;
// MPI has at least this many tags. Far fewer messages of a ring are under way at once.
constexpr std::uint64_t kMpiTags = 32768;

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

int SlotOf(std::uint64_t number) {
  return static_cast<int>(number % NodeRing::kSlots);
}

bool IsNumber(NodeNote::Word word, std::uint64_t number) {
  return NodeNote::NumberOf(word) == number;
}

// Whether a slot can take message `number`, by the answer in it: only the last answer to the
// message before frees it. An early grant of `number` itself follows that.
bool IsFreeFor(NodeNote::Word answer, std::uint64_t number) {
  std::uint64_t const answered = NodeNote::NumberOf(answer);
  if (answered >= number) return true;
  NodeState const state = NodeNote::StateOf(answer);
  return answered + NodeRing::kSlots == number &&
         (state == NodeState::TAKEN || state == NodeState::REFUSED ||
          state == NodeState::OVER_MPI);
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
  mKeptTo = to;
  if (mKept.Fits()) return;
  mFailed = true;
  std::snprintf(mReason, sizeof mReason, "this rank sends itself another size than it expects");
}

void NodeExchange::Add(bool out, int peer, NodeRegion const& region, Datatype type) {
  if (region.Bytes() == 0 && mOperation != NodeOperation::MESSAGE) return;
  NodeTerms const terms{mSequence, static_cast<std::int32_t>(mOperation), mLabel,
                        region.Bytes()};
  try {
    mMessages.push_back(
        {out, Phase::WAITING, peer, region, type, terms, 0, {}, MPI_REQUEST_NULL});
  } catch (std::bad_alloc const&) {
    mFailed = true;
    std::snprintf(mReason, sizeof mReason, "this rank has no memory for its messages");
  }
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
  mLinks.Back(mKeptTo.data, mKeptTo.Span());
  mKept.BeginAt(mLinks.Rank(), mLinks.Size());
  mKept.CopyAll();
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
  if (mWaits <= kBusyWaits) {
    Pause();
    return true;
  }
  auto const now = std::chrono::steady_clock::now();
  if (mWaits == kBusyWaits + 1) mProgressed = mWatched = now;
  if (mWaits % kWaitsPerProgress == 0 || now - mProgressed > kTimePerProgress) {
    mProgressed = now;
    int any = 0;
    MPI_Iprobe(MPI_ANY_SOURCE, MPI_ANY_TAG, mLinks.Messages(), &any, MPI_STATUS_IGNORE);
  }
  if (now - mWatched > kTimePerWatch) {
    mWatched = now;
    int const ended = mLinks.FindEnded();
    if (ended >= 0) {
      Abandon(ended);
      return false;
    }
  }
  sched_yield();
  return true;
}

// The sender.

bool NodeExchange::StepSend(Message& message) {
  NodeLink& link = mLinks.To(message.peer);
  if (link.sendPass == mPass) return false;
  if (message.phase != Phase::WAITING) {
    bool const moved = FollowAnswer(message);
    if (IsUnanswered(message)) link.sendPass = mPass;
    return moved;
  }
  if (!Offer(message)) {
    link.sendPass = mPass;
    return false;
  }
  if (!IsLarge(message)) return Finish(message);
  message.phase = Phase::OFFERED;
  FollowAnswer(message);
  if (IsUnanswered(message)) link.sendPass = mPass;
  return true;
}

// Later messages to the same rank wait for it: an answer that this sender has not seen could
// otherwise be overwritten by one of them.
bool NodeExchange::IsUnanswered(Message const& message) {
  return message.phase == Phase::OFFERED || message.phase == Phase::CLAIMED;
}

// Puts the message into its slot; false while the slot holds an earlier one.
bool NodeExchange::Offer(Message& message) {
  NodeRing& ring = Outgoing(message);
  NodeCounters& counters = Counters(message);
  std::uint64_t const number = counters.sent + 1;
  int const slot = SlotOf(number);
  if (number > NodeRing::kSlots && !IsFreeFor(ring.answers[slot].Read(), number)) return false;
  counters.sent = message.number = number;
  if (!IsLarge(message))
    NodeCopy(NodeRegion::Of(ring.data[slot], message.terms.bytes), message.region).CopyAll();
  ring.offers[slot].Publish(number, NodeState::OFFERED, message.terms, PlaceOf(message));
  return true;
}

bool NodeExchange::FollowAnswer(Message& message) {
  NodeNote& answer = Outgoing(message).answers[SlotOf(message.number)];
  NodeNote::Word const word = answer.Read();
  if (!IsNumber(word, message.number)) return false;
  NodeTerms const terms = answer.Terms();
  switch (NodeNote::StateOf(word)) {
    case NodeState::GRANTED:
      return Claim(message, answer, word);
    case NodeState::TAKEN:
      return Finish(message);
    case NodeState::OVER_MPI:
      return StartMpi(message);
    case NodeState::REVOKED:
      // Of an earlier operation: the receiver answers this one later.
      if (!answer.Is(word) || terms.sequence != message.terms.sequence) return false;
      return FailOffered(message, "rank %d has given up");
    case NodeState::REFUSED:
      return Fail(message, "rank %d expects another operation, root or size");
    default:
      return false;
  }
}

// Takes up the receiver's offer of a place. Data is copied when the pass has seen all messages.
bool NodeExchange::Claim(Message& message, NodeNote& answer, NodeNote::Word word) {
  NodeTerms const terms = answer.Terms();
  NodePlace const place = answer.Place();
  if (!answer.Is(word) || terms.sequence != message.terms.sequence) return false;
  NodeRegion target;
  if (!(terms == message.terms) || !RunsFit(message, place) || !Reach(message, place, &target))
    return FailOffered(message, "rank %d expects another operation, root or size");
  if (!answer.Move(word, NodeState::CLAIMED)) return false;
  mLinks.To(message.peer).peer->HugePages().Back(place.offset, target.Span());
  message.copy = NodeCopy(target, message.region);
  message.copy.BeginAt(mLinks.Rank(), mLinks.Size());
  message.phase = Phase::CLAIMED;
  return true;
}

// In chunks, each to all receivers that want it.
void NodeExchange::CopyClaimed() {
  std::uint64_t most = 0;
  for (Message const& message : mMessages) {
    if (message.phase == Phase::CLAIMED) most = std::max(most, message.copy.Chunks());
  }
  for (std::uint64_t chunk = 0; chunk < most; ++chunk) {
    for (Message const& message : mMessages) {
      if (message.phase == Phase::CLAIMED && chunk < message.copy.Chunks())
        message.copy.CopyChunk(chunk);
    }
  }
  if (most == 0) return;
  for (Message& message : mMessages) {
    if (message.phase != Phase::CLAIMED) continue;
    NodeNote& answer = Outgoing(message).answers[SlotOf(message.number)];
    answer.Move(answer.Read(), NodeState::STORED);
    Finish(message);
  }
}

// The receiver.

bool NodeExchange::StepReceive(Message& message) {
  NodeLink& link = mLinks.To(message.peer);
  if (link.receivePass == mPass) return false;
  if (message.phase == Phase::WAITING) GrantEarly(message);
  NodeNote::Word word = 0;
  NodeNote* const offer = FindOffer(message, &word);
  bool const moved = offer != nullptr && Accept(message, *offer, word);
  if (message.phase != Phase::DONE) link.receivePass = mPass;
  return moved;
}

// Both sides of a collective know the size: the sender need not wait for an answer.
void NodeExchange::GrantEarly(Message& message) {
  if (mOperation == NodeOperation::MESSAGE || mCopier != NodeCopier::SENDER ||
      !IsLarge(message))
    return;
  NodePlace const place = PlaceOf(message);
  if (place.offset == NodeArena::kOutside) return;
  message.number = Counters(message).received + 1;
  Answer(message, NodeState::GRANTED, place);
  message.phase = Phase::GRANTED;
}

// The offer that this message has to match: the next one of a collective, the first with its
// tag of a message. Null while there is none.
NodeNote* NodeExchange::FindOffer(Message& message, NodeNote::Word* word) {
  NodeRing& ring = Incoming(message);
  NodeCounters const& counters = Counters(message);
  int const looks = mOperation == NodeOperation::MESSAGE ? NodeRing::kSlots : 1;
  for (int ahead = 0; ahead < looks; ++ahead) {
    if ((counters.early >> ahead & 1) != 0) continue;
    std::uint64_t const number = counters.received + 1 + static_cast<unsigned>(ahead);
    NodeNote& offer = ring.offers[SlotOf(number)];
    *word = offer.Read();
    if (!IsNumber(*word, number)) return nullptr;
    std::int32_t const label = offer.Terms().label;
    if (mOperation == NodeOperation::MESSAGE && label != mLabel) continue;
    message.number = number;
    return &offer;
  }
  return nullptr;
}

bool NodeExchange::Accept(Message& message, NodeNote& offer, NodeNote::Word word) {
  NodeTerms const terms = offer.Terms();
  NodePlace const source = offer.Place();
  if (!offer.Is(word)) return false;
  if (terms.sequence > message.terms.sequence) {  // the sender has left this operation out
    if (message.phase == Phase::GRANTED) Answer(message, NodeState::REVOKED);
    return Fail(message, "rank %d is in a later operation");
  }
  if (terms.sequence < message.terms.sequence) {  // this rank has left that operation out
    Answer(message, NodeState::REFUSED);
    Consume(message);
    message.phase = Phase::WAITING;
    return true;
  }
  if (NodeNote::StateOf(word) == NodeState::WITHDRAWN) {
    Take(message, NodeState::REFUSED);
    return Fail(message, "rank %d has given up");
  }
  bool const agrees = terms == message.terms && (!IsLarge(message) || RunsFit(message, source));
  if (!agrees) {
    Take(message, NodeState::REFUSED);
    return Fail(message, "rank %d passes another operation, root or size");
  }
  return Place(message, offer, word, source);
}

// The terms agree: the data comes the shortest way.
bool NodeExchange::Place(Message& message, NodeNote& offer, NodeNote::Word word,
                         NodePlace const& source) {
  if (!IsLarge(message)) {
    NodeRing const& ring = Incoming(message);
    NodeCopy(message.region,
             NodeRegion::Of(ring.data[SlotOf(message.number)], message.terms.bytes))
        .CopyAll();
    return Take(message, NodeState::TAKEN);
  }
  if (message.phase == Phase::GRANTED) {
    NodeNote const& answer = Incoming(message).answers[SlotOf(message.number)];
    if (NodeNote::StateOf(answer.Read()) != NodeState::STORED) return false;
    return Take(message, NodeState::TAKEN);
  }
  NodePlace const target = PlaceOf(message);
  bool const pull = source.offset != NodeArena::kOutside &&
                    (mCopier == NodeCopier::RECEIVER || target.offset == NodeArena::kOutside);
  if (pull) return Pull(message, offer, word, source);
  if (target.offset != NodeArena::kOutside) {
    Answer(message, NodeState::GRANTED, target);
    message.phase = Phase::GRANTED;
    return true;
  }
  Answer(message, NodeState::OVER_MPI);
  Consume(message);
  return StartMpi(message);
}

// Whether the runs of both sides can be copied, wherever they lie.
bool NodeExchange::RunsFit(Message const& message, NodePlace const& place) {
  std::uint64_t const mine = message.region.length;
  return mine == place.length || mine == message.terms.bytes ||
         place.length == message.terms.bytes;
}

// Copies out of the sender's memory.
bool NodeExchange::Pull(Message& message, NodeNote& offer, NodeNote::Word word,
                        NodePlace const& source) {
  NodeRegion from;
  if (!Reach(message, source, &from)) {
    Take(message, NodeState::REFUSED);
    return Fail(message, "rank %d names memory outside its arena");
  }
  if (!offer.Move(word, NodeState::CLAIMED)) return false;
  NodeCopy(message.region, from).CopyAll();
  return Take(message, NodeState::TAKEN);
}

// The data of this rank, for the other one.
NodePlace NodeExchange::PlaceOf(Message const& message) const {
  NodeRegion const& region = message.region;
  return {mLinks.Place(region.data, region.Span()), region.length, region.stride};
}

// The data of the other rank, for this one; false if it does not lie inside that rank's arena.
bool NodeExchange::Reach(Message const& message, NodePlace const& place, NodeRegion* region) {
  if (place.length == 0 || message.terms.bytes % place.length != 0) return false;
  *region = {nullptr, place.length, message.terms.bytes / place.length, place.stride};
  region->data = mLinks.To(message.peer).peer->At(place.offset, region->Span());
  return region->data != nullptr;
}

void NodeExchange::Answer(Message& message, NodeState state, NodePlace const& place) {
  Incoming(message).answers[SlotOf(message.number)].Publish(message.number, state,
                                                            message.terms, place);
}

// The last answer to a message.
bool NodeExchange::Take(Message& message, NodeState state) {
  Answer(message, state);
  Consume(message);
  return Finish(message);
}

// Messages are usually taken in order; where a tag makes one overtake others, the counter waits
// for them.
void NodeExchange::Consume(Message& message) {
  NodeCounters& counters = Counters(message);
  counters.early |= 1U << (message.number - counters.received - 1);
  while ((counters.early & 1) != 0) {
    counters.early >>= 1;
    ++counters.received;
  }
}

// MPI.

bool NodeExchange::StartMpi(Message& message) {
  // Between nodes messages match in their order. On a node the answers, and so the messages,
  // may pass each other on the way: there the number tells them apart.
  bool const near = mLinks.To(message.peer).peer != nullptr;
  std::uint64_t const number = near ? message.number : message.terms.sequence;
  int const tag = static_cast<int>(number % kMpiTags);
  MPI_Datatype type = MPI_DATATYPE_NULL;
  int code = MakeMpiType(message.region, message.type, &type);
  if (code != MPI_SUCCESS) return FailMpi(message, code);
  code = message.out ? MPI_Isend(message.region.data, 1, type, message.peer, tag,
                                 mLinks.Messages(), &message.request)
                     : MPI_Irecv(message.region.data, 1, type, message.peer, tag,
                                 mLinks.Messages(), &message.request);
  MPI_Type_free(&type);  // MPI keeps it until the message has arrived
  if (code != MPI_SUCCESS) return FailMpi(message, code);
  message.phase = Phase::OVER_MPI;
  return true;
}

bool NodeExchange::StepMpi(Message& message) {
  int done = 0;
  MPI_Status status;
  int const code = MPI_Test(&message.request, &done, &status);
  if (code != MPI_SUCCESS) return FailMpi(message, code);
  if (done == 0) return false;
  auto bytes = static_cast<MPI_Count>(message.terms.bytes);
  if (!message.out) MPI_Get_elements_x(&status, MPI_BYTE, &bytes);
  if (bytes != static_cast<MPI_Count>(message.terms.bytes))
    return Fail(message, "the message of rank %d is shorter");
  return Finish(message);
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

bool NodeExchange::FailMpi(Message& message, int code) {
  char text[MPI_MAX_ERROR_STRING + 1] = "";
  int length = 0;
  MPI_Error_string(code, text, &length);
  std::replace(text, text + length, '\n', ' ');
  Finish(message);
  if (!mFailed) std::snprintf(mReason, sizeof mReason, "%s", text);
  mFailed = true;
  return true;
}

// No process may copy from or to this rank's arrays once it has left.
void NodeExchange::Abandon(int ended) {
  if (!mFailed)
    std::snprintf(mReason, sizeof mReason, "the process of rank %d has ended", ended);
  mFailed = true;
  for (Message& message : mMessages) {
    if (message.phase == Phase::OFFERED) AbandonOffer(message);
    if (message.phase == Phase::GRANTED) AbandonGrant(message);
    if (message.phase != Phase::OVER_MPI) continue;
    MPI_Cancel(&message.request);
    MPI_Request_free(&message.request);
  }
  mOpen = 0;
}

void NodeExchange::AbandonOffer(Message& message) {
  NodeNote& offer = Outgoing(message).offers[SlotOf(message.number)];
  NodeNote::Word const word = offer.Read();
  if (NodeNote::StateOf(word) == NodeState::OFFERED && offer.Move(word, NodeState::WITHDRAWN))
    return;
  NodeNote const& answer = Outgoing(message).answers[SlotOf(message.number)];
  NodePeer const& peer = *mLinks.To(message.peer).peer;
  auto const isTaken = [&](NodeNote::Word answered) {
    return IsNumber(answered, message.number) &&
           NodeNote::StateOf(answered) == NodeState::TAKEN;
  };
  while (!isTaken(answer.Read()) && peer.IsAlive())
    sched_yield();
}

void NodeExchange::AbandonGrant(Message& message) {
  NodeNote& answer = Incoming(message).answers[SlotOf(message.number)];
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
