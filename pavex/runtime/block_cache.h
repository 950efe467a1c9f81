// The blocks that a pool keeps for later requests, found by their size.

#pragma once

#include <cstddef>

namespace Pavex {

// Needs no memory of its own: while a block is kept, its first bytes hold the links. The sizes
// form a binary trie over the bits of a hash that is one-to-one, so a search takes about log2
// of the number of different sizes, and never more than 64 steps. The blocks themselves belong
// to whoever put them in. Local; not shared between threads.
class BlockCache {
 public:
  // Room for the links; every block is at least this large, whatever its size is called.
  static constexpr std::size_t kMinBlockBytes = 64;

  BlockCache() = default;
  BlockCache(BlockCache const&) = delete;
  BlockCache& operator=(BlockCache const&) = delete;
  ~BlockCache() = default;

  // A kept block: the size that it serves, and how much of that, counted from the start, is
  // backed by memory.
  struct Kept {
    void* block;         // its first byte
    std::size_t bytes;   // the size of the requests that it serves
    std::size_t backed;  // bytes that memory stands behind
  };

  // Keeps `block`, fully backed, for a request of `bytes` bytes.
  void Put(void* block, std::size_t bytes) noexcept;

  // Hands out a block that was kept for `bytes` bytes; null if there is none.
  void* Take(std::size_t bytes) noexcept;

  // The next block to give up: one of the size that was not put in for the longest time. Not to
  // be called on an empty cache.
  Kept Oldest() const noexcept;

  // Hands Oldest() out.
  void TakeOldest() noexcept;

  // Notes that of Oldest() only the first `backed` bytes, at least kMinBlockBytes, still are.
  void TrimOldest(std::size_t backed) noexcept;

  // Number of the blocks kept.
  std::size_t Blocks() const noexcept { return mBlocks; }
  // The sum of their backed bytes.
  std::size_t Bytes() const noexcept { return mBytes; }

 private:
  // The first kept block of a size is in the trie and in the list of ages; further blocks of
  // that size hang behind it by `next` alone and are handed out before it.
  struct Node {
    std::size_t bytes;
    std::size_t backed;
    Node* next;
    Node* child[2];
    Node* older;
    Node* newer;
  };
  static_assert(sizeof(Node) <= kMinBlockBytes, "the links fit into every block");

  // The link that leads to the node of that size, or where it would be inserted.
  Node** Find(std::size_t bytes) noexcept;
  Node* Pop(Node** link) noexcept;
  static Node* NextToPop(Node* first) noexcept;
  static void RemoveFromTrie(Node** link) noexcept;
  void AppendAsNewest(Node* node) noexcept;
  void RemoveFromAges(Node* node) noexcept;

  Node* mRoot = nullptr;
  Node* mOldest = nullptr;
  Node* mNewest = nullptr;
  std::size_t mBytes = 0;
  std::size_t mBlocks = 0;
};

}  // namespace Pavex
