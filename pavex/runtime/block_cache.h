// The blocks that a pool keeps for later requests, ordered by age.

#pragma once

#include <cstddef>

namespace Pavex {

// The header of one block of a pool. It lies directly in front of the block's data, so neither
// the pool nor its cache needs memory of its own.
struct Block {
  std::size_t capacity;  // the largest request that the block serves, in bytes
  std::size_t backed;    // bytes of its data, from the start, that have memory
  Block* older;          // in the cache that keeps the block; null for the oldest
  Block* newer;          // the same; null for the newest
  Block* next;           // in its chain
};

// A list of blocks from the oldest to the newest, and a hash table that finds one by its
// capacity: each block is also in one of kChains chains. The blocks belong to the pool. Local;
// not shared between threads.
class BlockCache {
 public:
  BlockCache() = default;
  BlockCache(BlockCache const&) = delete;
  BlockCache& operator=(BlockCache const&) = delete;
  ~BlockCache() = default;

  // Keeps `block` as the newest.
  void Put(Block& block) noexcept;

  // Stops keeping `block`.
  void Remove(Block& block) noexcept;

  // Notes that only the first `backed` bytes of `block`, which is kept, have memory.
  void Trim(Block& block, std::size_t backed) noexcept;

  // The newest block for exactly `bytes` bytes; null if there is none.
  Block* FindSame(std::size_t bytes) const noexcept;

  // The block that has the fewest backed bytes from `least` to `most`; null if there is none.
  Block* FindBacked(std::size_t least, std::size_t most) const noexcept;

  // The block that was put in first; null in an empty cache.
  Block* Oldest() const noexcept { return mOldest; }

  // Number of the blocks kept.
  std::size_t Blocks() const noexcept { return mBlocks; }
  // The sum of their backed bytes.
  std::size_t Bytes() const noexcept { return mBytes; }

 private:
  static constexpr int kChainBits = 6;
  static constexpr std::size_t kChains = std::size_t{1} << kChainBits;

  static std::size_t ChainOf(std::size_t capacity) noexcept;

  Block* mChains[kChains] = {};  // the newest first
  Block* mOldest = nullptr;
  Block* mNewest = nullptr;
  std::size_t mBytes = 0;
  std::size_t mBlocks = 0;
};

}  // namespace Pavex
