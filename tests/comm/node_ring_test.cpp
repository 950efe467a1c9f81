// Two threads in place of two processes, so that a sanitizer sees both sides of the memory.

#include "pavex/comm/node_ring.h"

#include <array>
#include <atomic>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

namespace Pavex {
namespace {

int SlotOf(std::uint64_t number) {
  return static_cast<int>(number % NodeRing::kSlots);
}

NodeTerms TermsOf(std::uint64_t number, std::uint64_t bytes) {
  return {number, static_cast<std::int32_t>(number % 7), static_cast<std::int32_t>(number % 5),
          bytes};
}

// Waits until the note is at message `number` in one of two states; returns its word.
NodeNote::Word Await(NodeNote const& note, std::uint64_t number, NodeState state,
                     NodeState orState) {
  for (;;) {
    NodeNote::Word const word = note.Read();
    NodeState const is = NodeNote::StateOf(word);
    if (NodeNote::NumberOf(word) == number && (is == state || is == orState)) return word;
    std::this_thread::yield();
  }
}

NodeNote::Word Await(NodeNote const& note, std::uint64_t number, NodeState state) {
  return Await(note, number, state, state);
}

class NodeRingThreads : public ::testing::Test {
 protected:
  static constexpr std::uint64_t kMessages = 20000;

  template <typename Sender, typename Receiver>
  static void Run(Sender const& send, Receiver const& receive) {
    std::thread sender([&] {
      for (std::uint64_t number = 1; number <= kMessages; ++number)
        send(number);
    });
    for (std::uint64_t number = 1; number <= kMessages; ++number)
      receive(number);
    sender.join();
  }

  std::unique_ptr<NodeRing> mRing = std::make_unique<NodeRing>();
};

TEST_F(NodeRingThreads, SmallMessagesArriveInTheirSlots) {
  long wrong = 0;
  auto const send = [&](std::uint64_t number) {
    int const slot = SlotOf(number);
    if (number > NodeRing::kSlots)
      Await(mRing->answers[slot], number - NodeRing::kSlots, NodeState::TAKEN);
    std::memset(mRing->data[slot], static_cast<int>(number % 251), 64);
    mRing->offers[slot].Publish(number, NodeState::OFFERED, TermsOf(number, 64), {number * 3});
  };
  auto const receive = [&](std::uint64_t number) {
    int const slot = SlotOf(number);
    NodeNote const& offer = mRing->offers[slot];
    NodeNote::Word const word = Await(offer, number, NodeState::OFFERED);
    bool const asOffered = offer.Terms() == TermsOf(number, 64) &&
                           offer.Place().offset == number * 3 && offer.Is(word) &&
                           mRing->data[slot][63] == number % 251;
    wrong += asOffered ? 0 : 1;
    mRing->answers[slot].Publish(number, NodeState::TAKEN, TermsOf(number, 64), {0});
  };

  Run(send, receive);

  EXPECT_EQ(wrong, 0);
}

// The receiver gives up every message at about the time when the sender begins to store. Either
// the sender stores and the receiver waits for that, or nothing is stored.
TEST_F(NodeRingThreads, AGrantIsTakenUpOrRevokedButNeverBoth) {
  std::array<unsigned char, 64> target{};
  std::uint64_t stored = 0;
  std::uint64_t taken = 0;
  std::uint64_t wrong = 0;
  NodeNote& offer = mRing->offers[0];
  NodeNote& answer = mRing->answers[0];
  auto const send = [&](std::uint64_t number) {
    NodeNote::Word const word = Await(answer, number, NodeState::GRANTED, NodeState::REVOKED);
    if (NodeNote::StateOf(word) == NodeState::GRANTED &&
        answer.Move(word, NodeState::CLAIMED)) {
      target.fill(static_cast<unsigned char>(number % 251));
      ++stored;
      answer.Move(answer.Read(), NodeState::STORED);
    }
    offer.Publish(number, NodeState::OFFERED, TermsOf(number, 64), {0});
  };
  auto const receive = [&](std::uint64_t number) {
    answer.Publish(number, NodeState::GRANTED, TermsOf(number, 64), {0});
    for (std::uint64_t i = 0; i < number % 4; ++i)
      std::this_thread::yield();
    NodeNote::Word const word = answer.Read();
    bool const revoked =
        NodeNote::StateOf(word) == NodeState::GRANTED && answer.Move(word, NodeState::REVOKED);
    if (revoked) {
      target.fill(0xFF);  // the receiver's own again
    } else {
      Await(answer, number, NodeState::STORED);
      ++taken;
      wrong += target[63] == number % 251 ? 0U : 1U;
    }
    Await(offer, number, NodeState::OFFERED);
  };

  Run(send, receive);

  EXPECT_EQ(stored, taken);
  EXPECT_EQ(wrong, 0U);
}

// Terms that are read while the note changes are never taken for those of its word.
TEST_F(NodeRingThreads, TermsBelongToTheWordThatTheyWereReadWith) {
  NodeNote& note = mRing->offers[0];
  std::atomic<bool> ended{false};
  std::atomic<std::uint64_t> seen{0};
  std::uint64_t wrong = 0;
  std::thread reader([&] {
    while (!ended.load()) {
      NodeNote::Word const word = note.Read();
      NodeTerms const terms = note.Terms();
      std::uint64_t const place = note.Place().offset;
      std::uint64_t const number = NodeNote::NumberOf(word);
      if (number == 0 || !note.Is(word)) continue;
      ++seen;
      wrong += terms == TermsOf(number, number * 2) && place == number * 3 ? 0U : 1U;
    }
  });
  for (std::uint64_t number = 1; number <= kMessages || seen < 1000; ++number) {
    note.Publish(number, NodeState::OFFERED, TermsOf(number, number * 2), {number * 3});
    if (number % 64 == 0) std::this_thread::yield();
  }
  ended.store(true);
  reader.join();

  EXPECT_EQ(wrong, 0U);
}

}  // namespace
}  // namespace Pavex
