// How NodeExchange sends a message to a process that shares memory with this one.

#include "pavex/comm/node_exchange.h"

#include <algorithm>

namespace Pavex {

namespace {

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
  int const slot = NodeRing::SlotOf(number);
  if (number > NodeRing::kSlots && !IsFreeFor(ring.answers[slot].Read(), number)) return false;
  counters.sent = message.number = number;
  NodePlace place{NodeArena::kOutside};
  if (IsLarge(message))
    place = PlaceOf(message);
  else
    NodeCopy(NodeRegion::Of(ring.data[slot], message.terms.bytes), message.region).CopyAll();
  ring.offers[slot].Publish(number, NodeState::OFFERED, message.terms, place);
  return true;
}

bool NodeExchange::FollowAnswer(Message& message) {
  NodeNote& answer = Outgoing(message).answers[NodeRing::SlotOf(message.number)];
  NodeNote::Word const word = answer.Read();
  if (!NodeNote::IsNumber(word, message.number)) return false;
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
  message.target = place.offset;
  message.copy = NodeCopy(target, message.region);
  message.copy.BeginAt(mLinks.Rank(), mLinks.Size());
  message.phase = Phase::CLAIMED;
  return true;
}

void NodeExchange::CopyClaimed() {
  int claimed = 0;
  for (Message const& message : mMessages) {
    if (message.phase == Phase::CLAIMED) ++claimed;
  }
  if (claimed == 0) return;
  if (claimed > 1) CopyInTurn();
  for (Message& message : mMessages) {
    if (message.phase != Phase::CLAIMED) continue;
    if (claimed == 1) message.copy.Store(PagesOf(message), message.target);
    NodeNote& answer = Outgoing(message).answers[NodeRing::SlotOf(message.number)];
    answer.Move(answer.Read(), NodeState::STORED);
    Finish(message);
  }
}

// In chunks, each to all receivers that want it.
void NodeExchange::CopyInTurn() {
  std::uint64_t most = 0;
  for (Message const& message : mMessages) {
    if (message.phase != Phase::CLAIMED) continue;
    PagesOf(message).Back(NodeHugePages::ForBlock(message.target, message.copy.Span()));
    most = std::max(most, message.copy.Chunks());
  }
  for (std::uint64_t chunk = 0; chunk < most; ++chunk) {
    for (Message const& message : mMessages) {
      if (message.phase == Phase::CLAIMED && chunk < message.copy.Chunks())
        message.copy.CopyChunk(chunk);
    }
  }
}

// Those of the receiver's arena.
NodeHugePages const& NodeExchange::PagesOf(Message const& message) {
  return mLinks.To(message.peer).peer->HugePages();
}

}  // namespace Pavex
