// The pool that an application hands to each Aggregator.

#pragma once

#include "pavex/runtime/allocator.h"
#include "pavex/runtime/block_cache.h"

#include <cstddef>

namespace Pavex {

class BlockSource;

// Takes blocks from the system, aligned to 64 bytes, and keeps those that come back for later
// requests of the same size, which then neither ask the system nor fault pages in. An operation
// that repeats an earlier one finds all its blocks from its third repetition on.
//
// The pool limits what it holds, in use and cached together. The default limit is one and a
// half times the most that was in use at once, plus 4 MiB. That is enough for an operation that
// takes its blocks before it returns the earlier ones, and for several aggregators that share
// the pool. If a request would exceed the limit:
// - A larger cached block serves it, if there is one whose unused rest stays within the limit
//   for every later request.
// - Otherwise the pool returns cached blocks to the system, the oldest first. It only trims a
//   block of kMappedBytes and more, whose remaining pages stay warm.
// The limit never refuses a request, and never takes anything from a block in use.
//
// Blocks of kMappedBytes and more are mappings of their own that begin 2 KiB into a page; the
// heap serves the smaller ones. Blocks of kHugeBytes and more start 2 KiB after a 2 MiB
// boundary and ask the system for huge pages. Their first use costs about half.
//
// All numbers count requested bytes. The system hands out more. A small block takes 64 bytes
// more, and its size is rounded up to a multiple of 64. A block of kMappedBytes and more takes
// 2 KiB more, and its size is rounded up to a multiple of 64 KiB; pages that nothing touches
// cost nothing. Requests of 0 bytes share one block that is not null; they count as blocks.
//
// An application may derive from this class: if it overrides Allocate and Deallocate, nothing
// above applies. Blocks in use when the pool is destroyed are lost. Local, and without a lock:
// use one pool per rank.
class PAVEX_API MemoryPool : public Allocator {
 public:
  static constexpr std::size_t kAlignment = 64;                        // bytes
  static constexpr std::size_t kMappedBytes = std::size_t{128} << 10;  // mapped, one by one
  static constexpr std::size_t kHugeBytes = std::size_t{8} << 20;      // served in huge pages

  // The default limit: 1.5 times the most that was in use at once, plus 4 MiB.
  static constexpr std::size_t kDefaultLimit = static_cast<std::size_t>(-1);

  // Holds no block yet.
  MemoryPool();
  ~MemoryPool() override;

  // `bytes` is the size that was requested for `block`. Ignores null.
  void Deallocate(void* block, std::size_t bytes) override;

  // Returns STATUS_OUT_OF_MEMORY if the system cannot give the block even after the pool has
  // returned everything cached to it, so also for a negative size. Throws nothing.
  [[nodiscard]] PavexStatus Allocate(void** block, std::size_t bytes) override;

  // Says that this process will write `bytes` bytes from `from` on, all of them, next. Changes
  // nothing but time: a pool whose new memory would come in small pages makes it in huge ones
  // first. Ignores memory that is not of such a pool.
  void WillWrite(void const* from, std::size_t bytes) const;

  // Limits what the pool holds. 0 keeps nothing. Takes effect at once.
  void SetLimit(std::size_t bytes);

  // Returns every cached block to the system.
  void ReleaseCached();

  // Bytes that are handed out now.
  std::size_t BytesInUse() const { return mBytesInUse; }
  // The most that was handed out at once.
  std::size_t PeakBytesInUse() const { return mPeakBytesInUse; }
  // Bytes held in addition to those in use: the cached blocks without the parts that were
  // returned to the system, and the unused rests of blocks in use.
  std::size_t BytesCached() const { return mCache.Bytes() + mBytesSpare; }
  // Number of the blocks that are handed out now.
  std::size_t BlocksInUse() const { return mBlocksInUse; }
  // Number of the blocks that are held for later requests.
  std::size_t BlocksCached() const { return mCache.Blocks(); }
  // Bytes of the last request that the pool refused; 0 if it has refused none. A negative count
  // of elements shows as the number of bytes that it wraps around to.
  std::size_t LastRefused() const { return mLastRefused; }
  // Bytes that were handed out when the pool refused that request.
  std::size_t InUseWhenRefused() const { return mInUseWhenRefused; }

 protected:
  // Takes its memory from `source`, which outlives the pool and all its blocks.
  explicit MemoryPool(BlockSource& source);

 private:
  std::size_t Limit(std::size_t bytesInUse) const;
  Block* TakeBlock(std::size_t bytes);
  Block* Choose(std::size_t bytes, std::size_t limit) const;
  Block* TakeFromSystem(std::size_t bytes);
  void FitCache(std::size_t limit, std::size_t bytesWanted);

  void* TakeFromSource(std::size_t bytes);
  void GiveBackToSource(Block* block);

  BlockSource* mSource;
  BlockCache mCache;
  std::size_t mBytesInUse = 0;
  std::size_t mBytesSpare = 0;  // the unused rests of blocks in use
  std::size_t mPeakBytesInUse = 0;
  std::size_t mBlocksInUse = 0;
  std::size_t mLimit = kDefaultLimit;
  std::size_t mLastRefused = 0;
  std::size_t mInUseWhenRefused = 0;
};

static_assert(sizeof(MemoryPool) == 616, "part of the binary interface");

}  // namespace Pavex
