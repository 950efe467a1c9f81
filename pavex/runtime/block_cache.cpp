#include "pavex/runtime/block_cache.h"

#include <cstdint>
#include <new>

namespace Pavex {

namespace {

// Multiplying by an odd number is one-to-one, so different sizes part within 64 bits; the high
// bits, which the search reads first, depend on all bits of the size.
std::uint64_t Hash(std::size_t bytes) {
  return bytes * std::uint64_t{0x9E3779B97F4A7C15};
}

}  // namespace

void BlockCache::Put(void* block, std::size_t bytes) noexcept {
  Node** const link = Find(bytes);
  Node* const added =
      new (block) Node{bytes, bytes, nullptr, {nullptr, nullptr}, nullptr, nullptr};
  if (Node* const first = *link) {
    added->next = first->next;
    first->next = added;
    RemoveFromAges(first);
  } else {
    *link = added;
  }
  AppendAsNewest(*link);
  mBytes += bytes;
  ++mBlocks;
}

void* BlockCache::Take(std::size_t bytes) noexcept {
  Node** const link = Find(bytes);
  return *link == nullptr ? nullptr : Pop(link);
}

BlockCache::Kept BlockCache::Oldest() const noexcept {
  Node* const node = NextToPop(mOldest);
  return {node, node->bytes, node->backed};
}

void BlockCache::TakeOldest() noexcept {
  Take(mOldest->bytes);
}

void BlockCache::TrimOldest(std::size_t backed) noexcept {
  Node* const node = NextToPop(mOldest);
  mBytes -= node->backed - backed;
  node->backed = backed;
}

BlockCache::Node** BlockCache::Find(std::size_t bytes) noexcept {
  Node** link = &mRoot;
  for (std::uint64_t bits = Hash(bytes); *link != nullptr && (*link)->bytes != bytes;
       bits <<= 1)
    link = &(*link)->child[bits >> 63];
  return link;
}

BlockCache::Node* BlockCache::NextToPop(Node* first) noexcept {
  return first->next == nullptr ? first : first->next;
}

BlockCache::Node* BlockCache::Pop(Node** link) noexcept {
  Node* const first = *link;
  Node* const popped = NextToPop(first);
  if (popped == first) {
    RemoveFromTrie(link);
    RemoveFromAges(first);
  } else {
    first->next = popped->next;
  }
  mBytes -= popped->backed;
  --mBlocks;
  return popped;
}

// Any leaf below a node may take its place: their bits agree down to there.
void BlockCache::RemoveFromTrie(Node** link) noexcept {
  Node* const removed = *link;
  Node** leaf = link;
  while ((*leaf)->child[0] != nullptr || (*leaf)->child[1] != nullptr)
    leaf = &(*leaf)->child[(*leaf)->child[0] == nullptr ? 1 : 0];
  Node* const moved = *leaf;
  *leaf = nullptr;
  if (moved == removed) return;
  moved->child[0] = removed->child[0];
  moved->child[1] = removed->child[1];
  *link = moved;
}

void BlockCache::AppendAsNewest(Node* node) noexcept {
  node->older = mNewest;
  node->newer = nullptr;
  (mNewest == nullptr ? mOldest : mNewest->newer) = node;
  mNewest = node;
}

void BlockCache::RemoveFromAges(Node* node) noexcept {
  (node->older == nullptr ? mOldest : node->older->newer) = node->newer;
  (node->newer == nullptr ? mNewest : node->newer->older) = node->older;
}

}  // namespace Pavex
