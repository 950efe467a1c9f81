#include "pavex/runtime/memory_pool.h"

#include "pavex/runtime/block_source.h"

#include <algorithm>
#include <new>

namespace Pavex {

namespace {

constexpr std::size_t kMapGranule = std::size_t{64} << 10;  // a multiple of every page size

// How far after the start of a page a mapped block begins. The system copies between processes
// several times more slowly if the target lies a few bytes further into its page than the
// source. A large array of the application usually begins right after a page's start. Half a
// small page is far from that, for a source and for a target.
constexpr std::size_t kIntoPage = 2048;

// This is far more than any real block, and so little that sums of sizes do not wrap around.
constexpr std::size_t kMaxBytes = std::size_t{1} << 62;

constexpr std::size_t kSlack = std::size_t{4} << 20;  // in the default limit

// The bytes in front of the data of each block; the data stays aligned.
constexpr std::size_t kHeader = MemoryPool::kAlignment;
static_assert(sizeof(Block) <= kHeader, "the header has room in front of the data");

alignas(MemoryPool::kAlignment) unsigned char gEmptyBlock[MemoryPool::kAlignment];

unsigned char* DataOf(Block* block) {
  return reinterpret_cast<unsigned char*>(block) + kHeader;
}

Block* BlockOf(void* data) {
  return reinterpret_cast<Block*>(static_cast<unsigned char*>(data) - kHeader);
}

constexpr std::size_t RoundUp(std::size_t value, std::size_t unit) {
  return (value + unit - 1) / unit * unit;
}

// The bytes that are mapped for a block of `bytes` bytes.
constexpr std::size_t MappedBytes(std::size_t bytes) {
  return RoundUp(kIntoPage + bytes, kMapGranule);
}

// How many bytes of a kept block stay backed if at least `excess` bytes of it go; 0 if the
// whole block goes.
std::size_t BackedAfterTrim(Block const& block, std::size_t excess) {
  if (block.capacity < MemoryPool::kMappedBytes || block.backed <= excess) return 0;
  std::size_t const end = (kIntoPage + block.backed - excess) / kMapGranule * kMapGranule;
  return end - std::min(end, kIntoPage);
}

}  // namespace

MemoryPool::MemoryPool() : MemoryPool(BlockSource::System()) {}

MemoryPool::MemoryPool(BlockSource& source) : mSource(&source) {}

MemoryPool::~MemoryPool() {
  ReleaseCached();
}

PavexStatus MemoryPool::Allocate(void** block, std::size_t bytes) {
  void* data = gEmptyBlock;
  if (bytes > 0) {
    Block* const taken = bytes > kMaxBytes ? nullptr : TakeBlock(bytes);
    if (taken == nullptr) {
      mLastRefused = bytes;
      mInUseWhenRefused = mBytesInUse;
      return STATUS_OUT_OF_MEMORY;
    }
    taken->backed = std::max(taken->backed, bytes);
    mBytesSpare += taken->backed - bytes;
    data = DataOf(taken);
  }
  ++mBlocksInUse;
  mBytesInUse += bytes;
  mPeakBytesInUse = std::max(mPeakBytesInUse, mBytesInUse);
  *block = data;
  return STATUS_OK;
}

void MemoryPool::Deallocate(void* block, std::size_t bytes) {
  if (block == nullptr) return;
  --mBlocksInUse;
  mBytesInUse -= bytes;
  if (bytes == 0) return;
  Block* const returned = BlockOf(block);
  mBytesSpare -= returned->backed - bytes;
  mCache.Put(*returned);
  FitCache(Limit(mBytesInUse), 0);
}

void MemoryPool::WillWrite(void const* from, std::size_t bytes) const {
  mSource->BackPages(from, bytes);
}

void MemoryPool::SetLimit(std::size_t bytes) {
  mLimit = bytes;
  FitCache(Limit(mBytesInUse), 0);
}

void MemoryPool::ReleaseCached() {
  while (Block* const oldest = mCache.Oldest()) {
    mCache.Remove(*oldest);
    GiveBackToSource(oldest);
  }
}

// The bytes that the pool may hold while `bytesInUse` bytes are in use.
std::size_t MemoryPool::Limit(std::size_t bytesInUse) const {
  if (mLimit != kDefaultLimit) return mLimit;
  std::size_t const peak = std::max(mPeakBytesInUse, bytesInUse);
  return peak + peak / 2 + kSlack;
}

// Returns a block for a request of `bytes` bytes, no longer kept; null if there is none. The
// cache then fits into the limit together with it.
Block* MemoryPool::TakeBlock(std::size_t bytes) {
  std::size_t const limit = Limit(mBytesInUse + bytes);
  Block* const kept = Choose(bytes, limit);
  if (kept != nullptr) mCache.Remove(*kept);
  FitCache(limit, kept == nullptr ? bytes : std::max(bytes, kept->backed));
  return kept != nullptr ? kept : TakeFromSystem(bytes);
}

// The kept block that serves a request of `bytes` bytes best; null if a new one is better.
Block* MemoryPool::Choose(std::size_t bytes, std::size_t limit) const {
  Block* const same = mCache.FindSame(bytes);
  std::size_t const backed = same == nullptr ? 0 : std::min(bytes, same->backed);
  if (mBytesInUse + BytesCached() + bytes - backed <= limit) return same;
  // The unused rests of blocks may take at most what the limit allows above the peak. Otherwise
  // later requests might find no room.
  std::size_t const peak = std::max(mPeakBytesInUse, mBytesInUse + bytes);
  std::size_t const spare = limit - std::min(limit, peak + mBytesSpare);
  Block* const larger = mCache.FindBacked(bytes, bytes + spare);
  return larger == nullptr ? same : larger;
}

Block* MemoryPool::TakeFromSystem(std::size_t bytes) {
  void* place = TakeFromSource(bytes);
  if (place == nullptr && mCache.Blocks() > 0) {
    ReleaseCached();
    place = TakeFromSource(bytes);
  }
  return place == nullptr ? nullptr
                          : new (place) Block{bytes, bytes, nullptr, nullptr, nullptr};
}

// Where the header of a new block belongs; null if the source has no memory.
void* MemoryPool::TakeFromSource(std::size_t bytes) {
  if (bytes < kMappedBytes) return mSource->TakeSmall(kHeader + RoundUp(bytes, kAlignment));
  void* const pages = mSource->TakePages(MappedBytes(bytes), bytes >= kHugeBytes);
  return pages == nullptr ? nullptr : static_cast<unsigned char*>(pages) + kIntoPage - kHeader;
}

void MemoryPool::GiveBackToSource(Block* block) {
  std::size_t const bytes = block->capacity;
  if (bytes < kMappedBytes)
    mSource->GiveBackSmall(block, kHeader + RoundUp(bytes, kAlignment));
  else
    mSource->GiveBackPages(DataOf(block) - kIntoPage, MappedBytes(bytes));
}

// Returns cached memory to the system until the rest fits into `limit` together with what is in
// use and `bytesWanted` bytes more.
void MemoryPool::FitCache(std::size_t limit, std::size_t bytesWanted) {
  std::size_t const taken = mBytesInUse + mBytesSpare + bytesWanted;
  std::size_t const room = limit - std::min(limit, taken);
  while (mCache.Bytes() > room) {
    Block* const oldest = mCache.Oldest();
    std::size_t const kept = BackedAfterTrim(*oldest, mCache.Bytes() - room);
    if (kept == 0) {
      mCache.Remove(*oldest);
      GiveBackToSource(oldest);
      continue;
    }
    mSource->DropPages(DataOf(oldest) + kept, MappedBytes(oldest->capacity) - kIntoPage - kept);
    mCache.Trim(*oldest, kept);
  }
}

}  // namespace Pavex
