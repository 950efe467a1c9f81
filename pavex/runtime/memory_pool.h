// The pool that an application hands to each Aggregator.

#pragma once

#include "pavex/runtime/allocator.h"
#include "pavex/runtime/block_cache.h"

#include <cstddef>

namespace Pavex {

// Takes blocks from the system, aligned to 64 bytes, and keeps those that come back: a later
// request of exactly the same size gets one of them without touching the system, and its pages
// need not be faulted in again. Blocks of kHugeBytes and more start 2 KiB behind a 2 MiB
// boundary and ask the system for huge pages, whose first use costs about half.
//
// What it holds, in use and cached together, is limited: by default to the most that was in use
// at once so far, so that caching never raises the peak of the process. Where that would be
// exceeded, cached blocks go back to the system first, those of the sizes that were not given
// back for the longest time before others; of a block of kHugeBytes and more only as much as is
// needed goes, and its remaining pages stay warm. The limit never refuses a request.
//
// All numbers count requested bytes. What the system hands out is more by rounding each block
// up to a multiple of 64 bytes, from kHugeBytes on by 2 KiB in front and then to a multiple of
// 64 KiB, of which the untouched pages cost nothing. Requests of 0 bytes share one block that
// is not null; they count as blocks.
//
// Meant to be derived from: an application that overrides Allocate and Deallocate leaves all of
// the above unused. Blocks in use when the pool is destroyed are lost. Local, and no lock: one
// pool per rank.
class PAVEX_API MemoryPool : public Allocator {
 public:
  static constexpr std::size_t kAlignment = 64;                    // bytes
  static constexpr std::size_t kHugeBytes = std::size_t{8} << 20;  // served in huge pages

  // The default limit: the most that was in use at once.
  static constexpr std::size_t kPeakInUse = static_cast<std::size_t>(-1);

  // Holds no block yet.
  MemoryPool();
  ~MemoryPool() override;

  // `bytes` is the size that was requested for `block`. Null is ignored.
  void Deallocate(void* block, std::size_t bytes) override;

  // STATUS_OUT_OF_MEMORY when the system cannot give the block even after everything cached
  // went back to it, so also for a negative size; never an exception.
  PavexStatus Allocate(void** block, std::size_t bytes) override;

  // Limits what is held; 0 keeps nothing. Takes effect at once.
  void SetLimit(std::size_t bytes);

  // Gives every cached block back to the system.
  void ReleaseCached();

  // Bytes that are handed out now.
  std::size_t BytesInUse() const { return mBytesInUse; }
  // The most that was handed out at once.
  std::size_t PeakBytesInUse() const { return mPeakBytesInUse; }
  // Bytes held for later requests, without what the system got back of partly released blocks.
  std::size_t BytesCached() const { return mCache.Bytes(); }
  // Number of the blocks that are handed out now.
  std::size_t BlocksInUse() const { return mBlocksInUse; }
  // Number of the blocks that are held for later requests.
  std::size_t BlocksCached() const { return mCache.Blocks(); }
  // Bytes of the last request that the pool refused; 0 if it has refused none. A negative count
  // of elements shows as the number of bytes that it wraps around to.
  std::size_t LastRefused() const { return mLastRefused; }

 private:
  void* TakeBlock(std::size_t bytes);
  void* TakeFromSystem(std::size_t bytes);
  void FitCache(std::size_t bytesInUse);
  void GiveBackOldest();

  BlockCache mCache;
  std::size_t mBytesInUse = 0;
  std::size_t mPeakBytesInUse = 0;
  std::size_t mBlocksInUse = 0;
  std::size_t mLimit = kPeakInUse;
  std::size_t mLastRefused = 0;
};

static_assert(sizeof(MemoryPool) == 88, "part of the binary interface");

}  // namespace Pavex
