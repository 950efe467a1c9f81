#include "pavex/runtime/memory_pool.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <sys/mman.h>

namespace Pavex {

namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;
constexpr std::size_t kMapGranule = std::size_t{64} << 10;  // a multiple of every page size

// How far behind the start of a page a mapped block begins. The system copies between processes
// several times more slowly where the target lies a few bytes further into its page than the
// source. A large array of the application usually begins right behind a page's start: half a
// small page keeps well away from it, whichever side is the target.
constexpr std::size_t kIntoPage = 2048;

// Far above any real block, far below where sums of sizes wrap around.
constexpr std::size_t kMaxBytes = std::size_t{1} << 62;

static_assert(MemoryPool::kAlignment >= BlockCache::kMinBlockBytes,
              "a block rounded up to the alignment can be cached");

alignas(MemoryPool::kAlignment) unsigned char gEmptyBlock[MemoryPool::kAlignment];

constexpr std::size_t RoundUp(std::size_t value, std::size_t unit) {
  return (value + unit - 1) / unit * unit;
}

// What is mapped for a block of `bytes` bytes.
constexpr std::size_t MappedBytes(std::size_t bytes) {
  return RoundUp(kIntoPage + bytes, kMapGranule);
}

// A block in a mapping that starts at a huge page, cut out of one that is a huge page longer.
// Null if the system refuses.
void* MapHuge(std::size_t bytes) {
  std::size_t const size = MappedBytes(bytes);
  void* const mapped = mmap(nullptr, size + kHugePage, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) return nullptr;
  auto const address = reinterpret_cast<std::uintptr_t>(mapped);
  std::size_t const before = RoundUp(address, kHugePage) - address;
  unsigned char* const mapping = static_cast<unsigned char*>(mapped) + before;
  if (before > 0) munmap(mapped, before);
  munmap(mapping + size, kHugePage - before);
  madvise(mapping, size, MADV_HUGEPAGE);  // a wish: small pages serve too
  return mapping + kIntoPage;
}

void* SystemTake(std::size_t bytes) {
  if (bytes >= MemoryPool::kHugeBytes) return MapHuge(bytes);
  return std::aligned_alloc(MemoryPool::kAlignment, RoundUp(bytes, MemoryPool::kAlignment));
}

// How much of a kept block stays backed when at least `excess` bytes of it go; 0 if it goes as
// a whole.
std::size_t BackedAfterTrim(BlockCache::Kept const& kept, std::size_t excess) {
  if (kept.bytes < MemoryPool::kHugeBytes || kept.backed <= excess) return 0;
  std::size_t const end = (kIntoPage + kept.backed - excess) / kMapGranule * kMapGranule;
  return end - std::min(end, kIntoPage);
}

void SystemGiveBack(void* block, std::size_t bytes) {
  if (bytes >= MemoryPool::kHugeBytes)
    munmap(static_cast<unsigned char*>(block) - kIntoPage, MappedBytes(bytes));
  else
    std::free(block);
}

}  // namespace

MemoryPool::MemoryPool() = default;

MemoryPool::~MemoryPool() {
  ReleaseCached();
}

PavexStatus MemoryPool::Allocate(void** block, std::size_t bytes) {
  void* const taken = TakeBlock(bytes);
  if (taken == nullptr) {
    mLastRefused = bytes;
    return STATUS_OUT_OF_MEMORY;
  }
  ++mBlocksInUse;
  mBytesInUse += bytes;
  mPeakBytesInUse = std::max(mPeakBytesInUse, mBytesInUse);
  *block = taken;
  return STATUS_OK;
}

void MemoryPool::Deallocate(void* block, std::size_t bytes) {
  if (block == nullptr) return;
  --mBlocksInUse;
  mBytesInUse -= bytes;
  if (bytes == 0) return;
  mCache.Put(block, bytes);
  FitCache(mBytesInUse);
}

void MemoryPool::SetLimit(std::size_t bytes) {
  mLimit = bytes;
  FitCache(mBytesInUse);
}

void MemoryPool::ReleaseCached() {
  while (mCache.Blocks() > 0)
    GiveBackOldest();
}

// A block kept for that size, or a new one; null if there is none.
void* MemoryPool::TakeBlock(std::size_t bytes) {
  if (bytes > kMaxBytes) return nullptr;
  void* const kept = bytes == 0 ? gEmptyBlock : mCache.Take(bytes);
  FitCache(mBytesInUse + bytes);  // also for a partly released block, which grows again
  return kept != nullptr ? kept : TakeFromSystem(bytes);
}

void* MemoryPool::TakeFromSystem(std::size_t bytes) {
  void* const block = SystemTake(bytes);
  if (block != nullptr || mCache.Blocks() == 0) return block;
  ReleaseCached();
  return SystemTake(bytes);
}

// Gives cached memory back until it fits into the limit beside `bytesInUse` bytes in use.
void MemoryPool::FitCache(std::size_t bytesInUse) {
  std::size_t const limit = mLimit == kPeakInUse ? mPeakBytesInUse : mLimit;
  std::size_t const room = limit - std::min(limit, bytesInUse);
  while (mCache.Bytes() > room) {
    BlockCache::Kept const oldest = mCache.Oldest();
    std::size_t const kept = BackedAfterTrim(oldest, mCache.Bytes() - room);
    if (kept == 0) {
      GiveBackOldest();
      continue;
    }
    madvise(static_cast<unsigned char*>(oldest.block) + kept,
            MappedBytes(oldest.bytes) - kIntoPage - kept, MADV_DONTNEED);
    mCache.TrimOldest(kept);
  }
}

void MemoryPool::GiveBackOldest() {
  BlockCache::Kept const oldest = mCache.Oldest();
  mCache.TakeOldest();
  SystemGiveBack(oldest.block, oldest.bytes);
}

}  // namespace Pavex
