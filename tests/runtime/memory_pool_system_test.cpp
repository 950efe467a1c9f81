// The memory that the pool takes from the system, and the memory that it gives back.

#include "pavex/runtime/memory_pool.h"

#include <cstdint>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

namespace Pavex {
namespace {

constexpr std::size_t kMiB = std::size_t{1} << 20;
constexpr std::size_t kPage = std::size_t{64} << 10;  // a multiple of every page size
constexpr std::size_t kIntoPage = 2048;               // where in a page a large block begins

void* Take(MemoryPool& pool, std::size_t bytes) {
  void* block = nullptr;
  EXPECT_EQ(pool.Allocate(&block, bytes), STATUS_OK);
  return block;
}

// A written block of `bytes` bytes that `pool` keeps.
unsigned char* PutWritten(MemoryPool& pool, std::size_t bytes) {
  void* const block = Take(pool, bytes);
  std::memset(block, 1, bytes);
  pool.Deallocate(block, bytes);
  return static_cast<unsigned char*>(block);
}

// Whether the page of `address` has memory.
bool IsBacked(unsigned char* address) {
  auto const page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  auto const past = reinterpret_cast<std::uintptr_t>(address) % page;
  unsigned char resident = 0;
  EXPECT_EQ(mincore(address - past, 1, &resident), 0);
  return (resident & 1) != 0;
}

// Pages of the address space in use.
long Pages() {
  long pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  return pages;
}

// The sizes differ so that the mappings they are cut out of start at different places.
TEST(MemoryPoolAndSystem, GivesTheWholeAddressRangeOfALargeBlockBack) {
  constexpr int kRounds = 64;
  MemoryPool pool;
  pool.SetLimit(0);
  PutWritten(pool, 8 * kMiB);
  long const before = Pages();

  for (std::size_t round = 0; round < kRounds; ++round) {
    std::size_t const bytes = 8 * kMiB + round * kPage;
    pool.Deallocate(Take(pool, bytes), bytes);
  }

  EXPECT_LT(Pages() - before, kRounds);
}

TEST(MemoryPoolAndSystem, GivesTheMemoryAfterTheTailOfALargeBlockBack) {
  MemoryPool pool;
  unsigned char* const block = PutWritten(pool, 8 * kMiB);

  pool.SetLimit(4 * kMiB);

  EXPECT_EQ(pool.BytesCached(), 4 * kMiB - kIntoPage);
  EXPECT_TRUE(IsBacked(block + 4 * kMiB - kIntoPage - 1));
  EXPECT_FALSE(IsBacked(block + 4 * kMiB - kIntoPage));
  EXPECT_FALSE(IsBacked(block + 8 * kMiB - 1));
}

// A mapping of 8 MiB and 64 KiB contains the block. The page after it is free for other
// mappings.
TEST(MemoryPoolAndSystem, LeavesTheMemoryAfterTheMappingOfALargeBlockAlone) {
  auto const page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  MemoryPool pool;
  unsigned char* const block = PutWritten(pool, 8 * kMiB);
  void* const wanted = block - kIntoPage + 8 * kMiB + kPage;
  void* const neighbour = mmap(wanted, page, PROT_READ | PROT_WRITE,
                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
  ASSERT_EQ(neighbour, wanted);
  std::memset(neighbour, 1, page);

  pool.SetLimit(4 * kMiB);

  EXPECT_EQ(*static_cast<unsigned char*>(neighbour), 1);
  munmap(neighbour, page);
}

TEST(MemoryPoolAndSystem, TrimsALargeBlockAgain) {
  MemoryPool pool;
  unsigned char* const block = PutWritten(pool, 8 * kMiB);
  pool.SetLimit(4 * kMiB);

  pool.SetLimit(2 * kMiB);

  EXPECT_EQ(pool.BytesCached(), 2 * kMiB - kIntoPage);
  EXPECT_TRUE(IsBacked(block));
  EXPECT_FALSE(IsBacked(block + 2 * kMiB - kIntoPage));
}

}  // namespace
}  // namespace Pavex
