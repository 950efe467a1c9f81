#include "pavex/runtime/block_cache.h"

#include <cstdint>

namespace Pavex {

void BlockCache::Put(Block& block) noexcept {
  Block*& chain = mChains[ChainOf(block.capacity)];
  block.next = chain;
  chain = &block;
  block.older = mNewest;
  block.newer = nullptr;
  (mNewest == nullptr ? mOldest : mNewest->newer) = &block;
  mNewest = &block;
  mBytes += block.backed;
  ++mBlocks;
}

void BlockCache::Remove(Block& block) noexcept {
  Block** link = &mChains[ChainOf(block.capacity)];
  while (*link != &block)
    link = &(*link)->next;
  *link = block.next;
  (block.older == nullptr ? mOldest : block.older->newer) = block.newer;
  (block.newer == nullptr ? mNewest : block.newer->older) = block.older;
  mBytes -= block.backed;
  --mBlocks;
}

void BlockCache::Trim(Block& block, std::size_t backed) noexcept {
  mBytes -= block.backed - backed;
  block.backed = backed;
}

Block* BlockCache::FindSame(std::size_t bytes) const noexcept {
  Block* block = mChains[ChainOf(bytes)];
  while (block != nullptr && block->capacity != bytes)
    block = block->next;
  return block;
}

Block* BlockCache::FindBacked(std::size_t least, std::size_t most) const noexcept {
  Block* best = nullptr;
  for (Block* block = mNewest; block != nullptr; block = block->older) {
    bool const fits = least <= block->backed && block->backed <= most;
    if (fits && (best == nullptr || block->backed < best->backed)) best = block;
  }
  return best;
}

// The high bits of the product depend on all bits of the capacity.
std::size_t BlockCache::ChainOf(std::size_t capacity) noexcept {
  return capacity * std::uint64_t{0x9E3779B97F4A7C15} >> (64 - kChainBits);
}

}  // namespace Pavex
