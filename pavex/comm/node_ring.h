// How a process hands messages to another process of its node through memory that both map. Not
// installed.

#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace Pavex {

// What both sides of a message must agree on before a byte is stored.
struct NodeTerms {
  std::uint64_t sequence =
      0;  // of the collective operation on this communicator; 0: Send, Recv
  std::int32_t operation = 0;  // NodeOperation
  std::int32_t label = 0;      // the root of a collective, the tag of a message
  std::uint64_t bytes = 0;

  bool operator==(NodeTerms const& other) const {
    return sequence == other.sequence && operation == other.operation && label == other.label &&
           bytes == other.bytes;
  }
};

// Where data lies in the publisher's arena: runs of `length` bytes, `stride` bytes apart.
struct NodePlace {
  std::uint64_t offset;  // of the first run; ~0 if the data is elsewhere
  std::uint64_t length = 0;
  std::uint64_t stride = 0;
};

// How far a message has come. The comment names the side that sets it.
enum class NodeState : std::uint8_t {
  NONE,
  // In the sender's note.
  OFFERED,    // sender: small data is in the slot, large data is ready
  WITHDRAWN,  // sender: it has given up
  // In the receiver's note.
  GRANTED,   // receiver: the sender may store at the named place
  REVOKED,   // receiver: it has given up
  REFUSED,   // receiver: the terms differ
  OVER_MPI,  // receiver: neither side's data lies in an arena
  TAKEN,     // receiver: it has copied the data
  STORED,    // sender: it has stored the data
  // In either: the other side copies now, and the note may not change before it is done.
  CLAIMED
};

// One cache line that one side publishes and both sides move on. The word holds the number of
// the message, a version and the state. A change of hands goes by compare and exchange on the
// word: it succeeds only if no other note has been published since the fields were read.
class alignas(64) NodeNote {
 public:
  using Word = std::uint64_t;

  static std::uint64_t NumberOf(Word word) { return word >> 16; }
  static bool IsNumber(Word word, std::uint64_t number) { return NumberOf(word) == number; }
  static NodeState StateOf(Word word) { return static_cast<NodeState>(word & 0xF); }

  Word Read() const { return mWord.load(std::memory_order_acquire); }

  // Written by the owner of the note alone, while no other side has claimed it. `place`: of the
  // data of the publisher.
  void Publish(std::uint64_t number, NodeState state, NodeTerms const& terms,
               NodePlace const& place) {
    Word const old = mWord.load(std::memory_order_relaxed);
    Word const version = ((old >> 4) + 1) & 0xFFF;
    // Whoever sees one of the new fields sees that the old word is gone.
    mWord.store(0, std::memory_order_relaxed);
    mSequence.store(terms.sequence, std::memory_order_release);
    mOperation.store(terms.operation, std::memory_order_release);
    mLabel.store(terms.label, std::memory_order_release);
    mBytes.store(terms.bytes, std::memory_order_release);
    mOffset.store(place.offset, std::memory_order_release);
    mLength.store(place.length, std::memory_order_release);
    mStride.store(place.stride, std::memory_order_release);
    mWord.store(number << 16 | version << 4 | static_cast<Word>(state),
                std::memory_order_release);
  }

  // Valid if the word is unchanged afterwards (or Move succeeds).
  NodeTerms Terms() const {
    return {mSequence.load(std::memory_order_acquire),
            mOperation.load(std::memory_order_acquire), mLabel.load(std::memory_order_acquire),
            mBytes.load(std::memory_order_acquire)};
  }
  NodePlace Place() const {
    return {mOffset.load(std::memory_order_acquire), mLength.load(std::memory_order_acquire),
            mStride.load(std::memory_order_acquire)};
  }

  // Whether the note still is the one that `word` was read from.
  bool Is(Word word) const { return mWord.load(std::memory_order_relaxed) == word; }

  // From the note that `word` was read from to another state; false if it has changed.
  bool Move(Word word, NodeState state) {
    return mWord.compare_exchange_strong(word, WithState(word, state),
                                         std::memory_order_acq_rel);
  }

  static Word WithState(Word word, NodeState state) {
    return (word & ~Word{0xF}) | static_cast<Word>(state);
  }

 private:
  std::atomic<Word> mWord{0};
  std::atomic<std::uint64_t> mSequence{0};
  std::atomic<std::int32_t> mOperation{0};
  std::atomic<std::int32_t> mLabel{0};
  std::atomic<std::uint64_t> mBytes{0};
  std::atomic<std::uint64_t> mOffset{0};
  std::atomic<std::uint64_t> mLength{0};
  std::atomic<std::uint64_t> mStride{0};
};

static_assert(sizeof(NodeNote) == 64, "one cache line");
static_assert(std::atomic<std::uint64_t>::is_always_lock_free, "works between processes");

// The messages of one process to another, in the receiver's control block. Message n, counted
// from 1, uses slot n % kSlots:
//
//   offers[slot]   sender: terms, and where its data lies if that is in its arena
//   answers[slot]  receiver: where to store, or how else the data comes
//   data[slot]     a small message itself
//
// Small messages (kSmallBytes and fewer) are in the slot when they are offered, and the sender
// goes on. It waits before it uses a slot again whose message has not been taken. The receiver
// of a large message of a collective publishes its answer as soon as it enters the operation:
// the terms are known to both sides.
struct NodeRing {
  static constexpr int kSlots = 8;
#ifdef PAVEX_NODE_SMALL_BYTES
  static constexpr std::size_t kSmallBytes = PAVEX_NODE_SMALL_BYTES;
#else
  static constexpr std::size_t kSmallBytes = 4096;
#endif

  static int SlotOf(std::uint64_t number) {
    return static_cast<int>(number % kSlots);
  }

  NodeNote offers[kSlots];
  NodeNote answers[kSlots];
  alignas(64) unsigned char data[kSlots][kSmallBytes];
};

// Which collective a process has entered last, in its control block. It has sent, or given up,
// everything of the operations before: a peer that still waits for it in one of them waits in
// vain. The word holds the number of the operation, what it is, and the lower part of its root.
struct NodeEntry {
  using Word = std::uint64_t;
  static constexpr int kShift = 12;

  static Word WordOf(std::uint64_t sequence, std::int32_t operation, int root) {
    return sequence << kShift | static_cast<Word>(operation & 0xF) << 8 |
           static_cast<Word>(root & 0xFF);
  }
  // Whether a process that has entered `theirs` has no part in the operation `mine`: it is in a
  // later one, or takes the same one as another.
  static bool Misses(Word theirs, Word mine) {
    return theirs != mine && theirs >> kShift >= mine >> kShift;
  }

  alignas(64) std::atomic<Word> entered{0};
};

// Collectives and messages of Send do not meet: either may overtake the other.
struct NodeChannel {
  NodeRing collective;
  NodeRing direct;
};

}  // namespace Pavex
