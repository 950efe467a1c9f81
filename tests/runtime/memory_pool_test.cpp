#include "pavex/runtime/memory_pool.h"

#include "pavex/runtime/buffer.h"

#include <cstdint>
#include <cstring>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <sstream>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Pavex {
namespace {

constexpr std::size_t kKiB = std::size_t{1} << 10;
constexpr std::size_t kMiB = std::size_t{1} << 20;

void* Take(MemoryPool& pool, std::size_t bytes) {
  void* block = nullptr;
  EXPECT_EQ(pool.Allocate(&block, bytes), STATUS_OK);
  return block;
}

bool IsAligned(void const* block, std::size_t alignment) {
  return reinterpret_cast<std::uintptr_t>(block) % alignment == 0;
}

// Whether the process has the page that `block`, of 8 MiB or more, begins in.
bool IsMapped(void* block) {
  unsigned char resident = 0;
  return mincore(static_cast<unsigned char*>(block) - 2048, 1, &resident) == 0;
}

long PageFaults() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_minflt + usage.ru_majflt;
}

// The flags of the mapping that contains `address`; empty if the kernel does not list them.
std::string MappingFlags(void const* address) {
  auto const wanted = reinterpret_cast<std::uintptr_t>(address);
  std::ifstream maps("/proc/self/smaps");
  bool inside = false;
  for (std::string line; std::getline(maps, line);) {
    std::uintptr_t first = 0;
    std::uintptr_t last = 0;
    char dash = 0;
    std::istringstream head(line);
    if (head >> std::hex >> first >> dash >> last && dash == '-')
      inside = first <= wanted && wanted < last;
    if (inside && line.rfind("VmFlags:", 0) == 0) return line + " ";
  }
  return "";
}

TEST(MemoryPool, AlignsBlocksTo64Bytes) {
  MemoryPool pool;

  for (std::size_t const bytes : std::vector<std::size_t>{0, 1, 8, 63, 64, 65, 1000, 100000}) {
    void* const first = Take(pool, bytes);
    void* const second = Take(pool, bytes);

    EXPECT_TRUE(IsAligned(first, 64)) << bytes;
    EXPECT_TRUE(IsAligned(second, 64)) << bytes;

    pool.Deallocate(first, bytes);
    pool.Deallocate(second, bytes);
  }
}

TEST(MemoryPool, HandsOutWritableBlocks) {
  MemoryPool pool;

  for (std::size_t const bytes :
       {std::size_t{1}, std::size_t{100}, 128 * kKiB, 8 * kMiB, 9 * kMiB + 5}) {
    void* const block = Take(pool, bytes);

    std::memset(block, 0x5A, bytes);

    EXPECT_EQ(static_cast<unsigned char*>(block)[bytes - 1], 0x5A);
    pool.Deallocate(block, bytes);
  }
}

TEST(MemoryPool, HandsABlockOutAgainForARequestOfTheSameSize) {
  for (std::size_t const bytes : {std::size_t{1}, std::size_t{4096}, kMiB, 9 * kMiB}) {
    MemoryPool pool;
    void* const block = Take(pool, bytes);
    pool.Deallocate(block, bytes);

    EXPECT_EQ(Take(pool, bytes), block);

    pool.Deallocate(block, bytes);
  }
}

TEST(MemoryPool, FaultsNoPageInWhenALargeBlockIsHandedOutAgain) {
  MemoryPool pool;
  constexpr std::size_t kBytes = 9 * kMiB + 100;
  void* const block = Take(pool, kBytes);
  std::memset(block, 1, kBytes);
  pool.Deallocate(block, kBytes);

  long const before = PageFaults();
  std::memset(Take(pool, kBytes), 2, kBytes);
  long const after = PageFaults();

  EXPECT_LT(after - before, 4);  // fresh, its last part alone would take 256
  pool.Deallocate(block, kBytes);
}

TEST(MemoryPool, TakesANewBlockForARequestOfAnotherSizeWithinTheLimit) {
  MemoryPool pool;
  void* const block = Take(pool, 50);
  pool.Deallocate(block, 50);

  void* const other = Take(pool, 49);

  EXPECT_NE(other, block);
  EXPECT_EQ(pool.BytesInUse(), 49U);
  EXPECT_EQ(pool.BytesCached(), 50U);
  pool.Deallocate(other, 49);
}

// The peak is 6 MiB, so the pool may hold 13 MiB. It holds blocks of 6 and 5 MiB, so a new
// block of 4 MiB would be too much.
TEST(MemoryPool, ServesARequestFromTheSmallestLargerBlockRatherThanExceedTheLimit) {
  MemoryPool pool;
  pool.Deallocate(Take(pool, 6 * kMiB), 6 * kMiB);
  void* const block = Take(pool, 5 * kMiB);
  pool.Deallocate(block, 5 * kMiB);

  void* const smaller = Take(pool, 4 * kMiB);

  EXPECT_EQ(smaller, block);
  EXPECT_EQ(pool.BytesInUse(), 4 * kMiB);
  EXPECT_EQ(pool.BytesCached(), 7 * kMiB);  // one of them is unused, after the request
  EXPECT_EQ(pool.BlocksCached(), 1U);
  pool.Deallocate(smaller, 4 * kMiB);
  EXPECT_EQ(pool.BytesCached(), 11 * kMiB);
  EXPECT_EQ(Take(pool, 5 * kMiB), block);
  pool.Deallocate(block, 5 * kMiB);
}

TEST(MemoryPool, LeavesNoMoreUnusedAfterRequestsThanTheLimitLeavesAboveThePeak) {
  MemoryPool pool;
  pool.SetLimit(10 * kMiB);
  void* const large = Take(pool, 9 * kMiB);
  pool.Deallocate(large, 9 * kMiB);

  void* const small = Take(pool, 8 * kMiB - 1);  // would leave more than 1 MiB unused

  EXPECT_NE(small, large);
  EXPECT_LE(pool.BytesCached(), 2 * kMiB + 1);
  pool.Deallocate(small, 8 * kMiB - 1);
}

// A trimmed block of the same size would take memory from the system that the larger one has.
TEST(MemoryPool, PrefersAWholeLargerBlockToATrimmedOneOfTheSize) {
  MemoryPool pool;
  constexpr std::size_t kSmall = 15 * kMiB;
  constexpr std::size_t kLarge = 16 * kMiB;
  pool.Deallocate(Take(pool, kSmall), kSmall);
  void* const large = Take(pool, kLarge);  // 28 MiB may be held
  pool.Deallocate(large, kLarge);
  std::size_t const cached = pool.BytesCached();
  ASSERT_LT(cached, kSmall + kLarge);

  void* const small = Take(pool, kSmall);

  EXPECT_EQ(small, large);
  EXPECT_EQ(pool.BytesInUse() + pool.BytesCached(), cached);
  pool.Deallocate(small, kSmall);
}

TEST(MemoryPool, CountsRequestedBytesAndBlocks) {
  MemoryPool pool;

  void* const first = Take(pool, 100);
  void* const second = Take(pool, 1);
  EXPECT_EQ(pool.BytesInUse(), 101U);
  EXPECT_EQ(pool.BlocksInUse(), 2U);
  EXPECT_EQ(pool.BytesCached(), 0U);
  EXPECT_EQ(pool.BlocksCached(), 0U);

  pool.Deallocate(first, 100);
  EXPECT_EQ(pool.BytesInUse(), 1U);
  EXPECT_EQ(pool.PeakBytesInUse(), 101U);
  EXPECT_EQ(pool.BlocksInUse(), 1U);
  EXPECT_EQ(pool.BytesCached(), 100U);
  EXPECT_EQ(pool.BlocksCached(), 1U);

  pool.Deallocate(second, 1);
}

TEST(MemoryPool, ReleasesTheOldestBlocksFirstWhenANewBlockWouldExceedTheLimit) {
  MemoryPool pool;
  pool.SetLimit(600);
  void* const a = Take(pool, 100);
  void* const b = Take(pool, 200);
  void* const c = Take(pool, 300);
  pool.Deallocate(b, 200);
  pool.Deallocate(a, 100);
  pool.Deallocate(c, 300);

  void* const d = Take(pool, 150);  // so 150 of the 600 cached bytes must go

  EXPECT_EQ(pool.BytesInUse(), 150U);
  EXPECT_EQ(pool.BytesCached(), 400U);
  EXPECT_EQ(Take(pool, 100), a);
  EXPECT_EQ(Take(pool, 300), c);
  pool.Deallocate(a, 100);
  pool.Deallocate(c, 300);
  pool.Deallocate(d, 150);
}

TEST(MemoryPool, NeverHoldsMoreThanOneAndAHalfTimesThePeakAnd4MiB) {
  MemoryPool pool;
  std::vector<std::pair<void*, std::size_t>> blocks;
  std::mt19937 random(3);
  bool servedFromLarger = false;

  for (int step = 0; step < 6000; ++step) {
    if (random() % 2 == 0) {
      std::size_t const bytes =
          random() % 4 == 0 ? random() % (16 * kMiB) : random() % (300 * 1024);
      blocks.emplace_back(Take(pool, bytes), bytes);
    } else if (!blocks.empty()) {
      std::swap(blocks[random() % blocks.size()], blocks.back());
      pool.Deallocate(blocks.back().first, blocks.back().second);
      blocks.pop_back();
    }
    std::size_t const peak = pool.PeakBytesInUse();
    ASSERT_LE(pool.BytesInUse() + pool.BytesCached(), peak + peak / 2 + 4 * kMiB);
    ASSERT_EQ(pool.BlocksInUse(), blocks.size());
    servedFromLarger |= pool.BlocksCached() == 0 && pool.BytesCached() > 0;
  }

  pool.ReleaseCached();
  servedFromLarger |= pool.BytesCached() > 0;
  EXPECT_TRUE(servedFromLarger);
  for (auto const& [block, bytes] : blocks)
    pool.Deallocate(block, bytes);
  EXPECT_EQ(pool.BytesInUse(), 0U);
  pool.ReleaseCached();
  EXPECT_EQ(pool.BytesCached(), 0U);
}

TEST(MemoryPool, GivesOnlyTheNeededTailOfACachedBlockBackFrom128KiBOn) {
  for (std::size_t const bytes : {128 * kKiB, 1000 * kKiB, 16 * kMiB}) {
    std::size_t const kept = bytes - bytes % (64 * kKiB) - 64 * kKiB - 2048;
    MemoryPool pool;
    pool.SetLimit(kept + 3000);  // the block without whole pieces of 64 KiB of its mapping
    auto* const large = static_cast<unsigned char*>(Take(pool, bytes));
    std::memset(large, 1, bytes);
    pool.Deallocate(large, bytes);

    void* const small = Take(pool, 3000);

    EXPECT_EQ(pool.BytesCached(), kept) << bytes;
    pool.Deallocate(small, 3000);
    EXPECT_EQ(Take(pool, bytes), large);
    EXPECT_EQ(large[kept - 1], 1);
    EXPECT_EQ(large[kept], 0);
    EXPECT_EQ(pool.BytesCached(), 0U);  // the small block made room for the whole large one
    std::memset(large, 2, bytes);
    pool.Deallocate(large, bytes);
  }
}

TEST(MemoryPool, GivesNoMoreBackThanIsNeeded) {
  constexpr std::size_t kGranule = 64 * kKiB;
  for (std::size_t const bytes : {256 * kKiB, 16 * kMiB}) {
    MemoryPool pool;
    pool.Deallocate(Take(pool, bytes), bytes);

    pool.SetLimit(bytes - 2048);  // a whole number of 64 KiB of the mapping
    EXPECT_EQ(pool.BytesCached(), bytes - 2048);

    pool.SetLimit(bytes - 2049);
    EXPECT_EQ(pool.BytesCached(), bytes - 2048 - kGranule);
  }
}

TEST(MemoryPool, GivesASmallBlockBackAsAWhole) {
  MemoryPool pool;
  pool.Deallocate(Take(pool, 128 * kKiB - 1), 128 * kKiB - 1);

  pool.SetLimit(128 * kKiB - 2);

  EXPECT_EQ(pool.BlocksCached(), 0U);
}

TEST(MemoryPool, KeepsNothingAtALimitOfZero) {
  MemoryPool pool;
  void* const first = Take(pool, 100);
  void* const second = Take(pool, 100);
  pool.Deallocate(first, 100);

  pool.SetLimit(0);
  EXPECT_EQ(pool.BlocksCached(), 0U);

  pool.Deallocate(second, 100);
  EXPECT_EQ(pool.BlocksCached(), 0U);
}

TEST(MemoryPool, KeepsAsMuchAsItsLimitAllows) {
  MemoryPool pool;
  pool.SetLimit(1100);

  pool.Deallocate(Take(pool, 400), 400);
  pool.Deallocate(Take(pool, 500), 500);
  EXPECT_EQ(pool.BytesCached(), 900U);

  void* const third = Take(pool, 550);
  EXPECT_EQ(pool.BytesCached(), 500U);
  pool.Deallocate(third, 550);
}

TEST(MemoryPool, NeverRefusesARequestForItsLimit) {
  MemoryPool pool;
  pool.SetLimit(10);

  void* const block = Take(pool, 100);

  EXPECT_EQ(pool.BytesInUse(), 100U);
  pool.Deallocate(block, 100);
  EXPECT_EQ(pool.BytesCached(), 0U);
}

TEST(MemoryPool, ReturnsToItsDefaultLimit) {
  MemoryPool pool;
  pool.SetLimit(100 * kMiB);
  pool.Deallocate(Take(pool, 4 * kMiB), 4 * kMiB);
  pool.Deallocate(Take(pool, 9 * kMiB), 9 * kMiB);
  pool.Deallocate(Take(pool, 10 * kMiB), 10 * kMiB);
  ASSERT_EQ(pool.BytesCached(), 23 * kMiB);

  pool.SetLimit(MemoryPool::kDefaultLimit);

  EXPECT_EQ(pool.BytesCached(), 19 * kMiB);  // 10 MiB at the peak
  EXPECT_EQ(pool.BlocksCached(), 2U);
}

TEST(MemoryPool, GivesEverythingCachedBackInOneCall) {
  MemoryPool pool;
  void* const kept = Take(pool, 50);
  void* const large = Take(pool, 8 * kMiB);
  void* const small = Take(pool, 100);
  pool.Deallocate(large, 8 * kMiB);
  pool.Deallocate(small, 100);
  ASSERT_TRUE(IsMapped(large));

  pool.ReleaseCached();

  EXPECT_FALSE(IsMapped(large));
  EXPECT_EQ(pool.BytesCached(), 0U);
  EXPECT_EQ(pool.BlocksCached(), 0U);
  EXPECT_EQ(pool.BytesInUse(), 50U);
  pool.Deallocate(kept, 50);
}

TEST(MemoryPool, GivesItsCacheBackWhenDestroyed) {
  void* large = nullptr;
  {
    MemoryPool pool;
    large = Take(pool, 8 * kMiB);
    pool.Deallocate(large, 8 * kMiB);
    ASSERT_TRUE(IsMapped(large));
  }

  EXPECT_FALSE(IsMapped(large));
}

TEST(MemoryPool, StartsBlocksOf8MiB2KiBIntoAHugePage) {
  MemoryPool pool;

  for (std::size_t const bytes : {8 * kMiB, 8 * kMiB + 1, 13 * kMiB + 4097}) {
    auto* const block = static_cast<unsigned char*>(Take(pool, bytes));

    EXPECT_TRUE(IsAligned(block - 2048, 2 * kMiB)) << bytes;

    pool.Deallocate(block, bytes);
  }
}

TEST(MemoryPool, StartsBlocksOf128KiB2KiBIntoAPage) {
  MemoryPool pool;
  auto const page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));

  for (std::size_t const bytes : {128 * kKiB, 300 * kKiB + 1, 8 * kMiB - 1}) {
    auto* const block = static_cast<unsigned char*>(Take(pool, bytes));

    EXPECT_TRUE(IsAligned(block - 2048, page)) << bytes;

    pool.Deallocate(block, bytes);
  }
}

TEST(MemoryPool, AsksForHugePagesFrom8MiBOn) {
  MemoryPool pool;
  void* const small = Take(pool, 8 * kMiB - 1);
  void* const large = Take(pool, 8 * kMiB);
  bool const offered = access("/sys/kernel/mm/transparent_hugepage", F_OK) == 0;

  EXPECT_EQ(MappingFlags(large).find(" hg ") != std::string::npos, offered);
  EXPECT_EQ(MappingFlags(small).find(" hg "), std::string::npos);

  pool.Deallocate(small, 8 * kMiB - 1);
  pool.Deallocate(large, 8 * kMiB);
}

TEST(MemoryPool, RefusesAbsurdSizesWithAStatus) {
  MemoryPool pool;
  void* block = nullptr;

  for (std::size_t const bytes : {static_cast<std::size_t>(-1), static_cast<std::size_t>(-64),
                                  static_cast<std::size_t>(-8), std::size_t{1} << 63,
                                  std::size_t{1} << 62, std::size_t{1} << 50}) {
    EXPECT_EQ(pool.Allocate(&block, bytes), STATUS_OUT_OF_MEMORY) << bytes;
  }

  EXPECT_EQ(pool.BytesInUse(), 0U);
  EXPECT_EQ(pool.PeakBytesInUse(), 0U);
  EXPECT_EQ(pool.BlocksInUse(), 0U);
}

TEST(MemoryPool, RefusesANegativeCountOfElements) {
  MemoryPool pool;
  Buffer<double> buffer;

  EXPECT_EQ(pool.Get(buffer, -1), STATUS_OUT_OF_MEMORY);
  EXPECT_EQ(buffer.mData, nullptr);
}

// How many blocks a pool that has cached one keeps when it refuses `bytes` bytes.
std::size_t CachedAfterRefusal(std::size_t bytes) {
  MemoryPool pool;
  void* const block = Take(pool, 100);
  pool.Deallocate(block, 100);
  pool.SetLimit(std::size_t{1} << 63);  // so that the limit releases nothing
  void* absurd = nullptr;

  EXPECT_EQ(pool.Allocate(&absurd, bytes), STATUS_OUT_OF_MEMORY);

  return pool.BlocksCached();
}

TEST(MemoryPool, GivesItsCacheUpBeforeItRefuses) {
  EXPECT_EQ(CachedAfterRefusal(std::size_t{1} << 50), 0U);
  EXPECT_EQ(CachedAfterRefusal(std::size_t{1} << 62), 0U);
}

TEST(MemoryPool, KeepsItsCacheIfItRefusesASizeThatCanOnlyBeNegative) {
  EXPECT_EQ(CachedAfterRefusal((std::size_t{1} << 62) + 1), 1U);
  EXPECT_EQ(CachedAfterRefusal(static_cast<std::size_t>(-8)), 1U);
}

TEST(MemoryPool, RemembersTheSizeOfTheLastRequestThatItRefused) {
  MemoryPool pool;
  void* absurd = nullptr;
  EXPECT_EQ(pool.LastRefused(), 0U);

  EXPECT_EQ(pool.Allocate(&absurd, std::size_t{1} << 50), STATUS_OUT_OF_MEMORY);
  EXPECT_EQ(pool.LastRefused(), std::size_t{1} << 50);
  EXPECT_EQ(pool.Allocate(&absurd, static_cast<std::size_t>(-8)), STATUS_OUT_OF_MEMORY);
  EXPECT_EQ(pool.LastRefused(), static_cast<std::size_t>(-8));

  pool.Deallocate(Take(pool, 100), 100);
  EXPECT_EQ(pool.LastRefused(), static_cast<std::size_t>(-8));
}

TEST(MemoryPool, RemembersWhatWasInUseWhenItRefused) {
  MemoryPool pool;
  void* absurd = nullptr;
  void* const held = Take(pool, 300);
  EXPECT_EQ(pool.InUseWhenRefused(), 0U);

  EXPECT_EQ(pool.Allocate(&absurd, std::size_t{1} << 50), STATUS_OUT_OF_MEMORY);
  pool.Deallocate(held, 300);

  EXPECT_EQ(pool.BytesInUse(), 0U);
  EXPECT_EQ(pool.InUseWhenRefused(), 300U);
}

TEST(MemoryPool, HandsOutABlockOfZeroBytes) {
  MemoryPool pool;

  void* const first = Take(pool, 0);
  void* const second = Take(pool, 0);

  EXPECT_NE(first, nullptr);
  EXPECT_EQ(second, first);
  EXPECT_EQ(pool.BlocksInUse(), 2U);
  EXPECT_EQ(pool.BytesInUse(), 0U);
  pool.Deallocate(first, 0);
  pool.Deallocate(second, 0);
  EXPECT_EQ(pool.BlocksInUse(), 0U);
  EXPECT_EQ(pool.BlocksCached(), 0U);
}

TEST(MemoryPool, IgnoresANullBlock) {
  MemoryPool pool;

  pool.Deallocate(nullptr, 0);

  EXPECT_EQ(pool.BlocksInUse(), 0U);
}

// The usual pool of an application: its own memory, nothing of the base.
class FixedPool : public MemoryPool {
 public:
  void Deallocate(void* /*block*/, std::size_t bytes) override { mGivenBack += bytes; }
  PavexStatus Allocate(void** block, std::size_t bytes) override {
    if (mUsed + bytes > sizeof mMemory) return 12;
    *block = mMemory + mUsed;
    mUsed += bytes;
    return STATUS_OK;
  }

  alignas(64) unsigned char mMemory[256];
  std::size_t mUsed = 0;
  std::size_t mGivenBack = 0;
};

TEST(MemoryPool, LetsAnApplicationOverrideAllocateAndDeallocate) {
  FixedPool pool;
  {
    Buffer<double> buffer;

    EXPECT_EQ(pool.Get(buffer, 4), STATUS_OK);
    EXPECT_EQ(static_cast<void*>(buffer.mData), pool.mMemory);
    EXPECT_EQ(pool.Get(buffer, 1000), 12);
  }

  EXPECT_EQ(pool.mGivenBack, 32U);
  EXPECT_EQ(pool.BlocksInUse(), 0U);
}

}  // namespace
}  // namespace Pavex
