// How NodeExchange receives a message from a process that shares memory with this one.

#include "pavex/comm/node_exchange.h"

namespace Pavex {

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
    NodeNote& offer = ring.offers[NodeRing::SlotOf(number)];
    *word = offer.Read();
    if (!NodeNote::IsNumber(*word, number)) return nullptr;
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
             NodeRegion::Of(ring.data[NodeRing::SlotOf(message.number)], message.terms.bytes))
        .CopyAll();
    return Take(message, NodeState::TAKEN);
  }
  if (message.phase == Phase::GRANTED) {
    NodeNote const& answer = Incoming(message).answers[NodeRing::SlotOf(message.number)];
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

// The data of this rank, for the other one. Where another one is to store, it sees what is
// ordinary memory here.
NodePlace NodeExchange::PlaceOf(Message const& message) const {
  NodeRegion const& region = message.region;
  if (!message.out) mLinks.MakeOrdinary(region, true);
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
  Incoming(message).answers[NodeRing::SlotOf(message.number)].Publish(message.number, state,
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

}  // namespace Pavex
