#include "pavex/comm/node_pool.h"

#include "pavex/comm/node_arena.h"

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace Pavex {
namespace {

// Whether the page at `address` has memory.
bool IsResident(void* address) {
  auto const page = reinterpret_cast<std::uintptr_t>(address) / 4096 * 4096;
  unsigned char resident = 0;
  EXPECT_EQ(mincore(reinterpret_cast<void*>(page), 1, &resident), 0);
  return (resident & 1) != 0;
}

bool IsShared(void const* block, std::size_t bytes) {
  return NodeArena::OfProcess()->OffsetOf(block, bytes) != NodeArena::kOutside;
}

// These run first, before this process has shared memory: each in a process of its own.
using NodePoolDeathTest = ::testing::Test;

int WithLimit(int resource, rlim_t bytes) {
  rlimit const limit{bytes, bytes};
  setrlimit(static_cast<__rlimit_resource>(resource), &limit);
  NodePool pool;
  void* block = nullptr;
  if (pool.Active() || pool.Allocate(&block, 1 << 20) != STATUS_OK) return 1;
  std::memset(block, 1, 1 << 20);
  pool.Deallocate(block, 1 << 20);
  return 0;
}

TEST_F(NodePoolDeathTest, WorksAsAMemoryPoolWhereFilesAreLimited) {
  EXPECT_EXIT(_exit(WithLimit(RLIMIT_FSIZE, 1 << 20)), testing::ExitedWithCode(0), "");
}

TEST_F(NodePoolDeathTest, WorksAsAMemoryPoolWhereAddressesAreLimited) {
  EXPECT_EXIT(_exit(WithLimit(RLIMIT_AS, rlim_t{1} << 30)), testing::ExitedWithCode(0), "");
}

TEST_F(NodePoolDeathTest, WorksAsAMemoryPoolWithoutDescriptors) {
  EXPECT_EXIT(_exit(WithLimit(RLIMIT_NOFILE, 3)), testing::ExitedWithCode(0), "");
}

TEST(NodePool, SharesItsBlocksOfEverySize) {
  NodePool pool;
  ASSERT_TRUE(pool.Active());
  for (std::size_t const bytes : {1U, 64U, 5000U, 131072U, 9000000U}) {
    void* block = nullptr;

    ASSERT_EQ(pool.Allocate(&block, bytes), STATUS_OK);

    EXPECT_TRUE(IsShared(block, bytes)) << bytes;
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 64, 0U) << bytes;
    std::memset(block, 0xAB, bytes);
    pool.Deallocate(block, bytes);
  }
}

TEST(NodePool, ReturnsTheMemoryOfLargeBlocksToTheSystem) {
  constexpr std::size_t kBytes = 16 << 20;
  NodePool pool;
  void* block = nullptr;
  ASSERT_EQ(pool.Allocate(&block, kBytes), STATUS_OK);
  std::memset(block, 1, kBytes);
  void* const middle = static_cast<unsigned char*>(block) + kBytes / 2;
  ASSERT_TRUE(IsResident(middle));

  pool.Deallocate(block, kBytes);
  ASSERT_TRUE(IsResident(middle));
  pool.ReleaseCached();

  EXPECT_FALSE(IsResident(middle));
}

// Peers make the huge pages of a large block up to its ends.
TEST(NodePool, LargeBlocksHaveTheirHugePagesForThemselves) {
  constexpr std::size_t kHuge = NodeHugePages::kBytes;
  NodePool pool;
  std::vector<std::pair<std::uint64_t, std::uint64_t>> pages;
  std::vector<std::pair<void*, std::size_t>> blocks;
  for (std::size_t const bytes :
       {200000U, 4200000U, 5000000U, 4300000U, 9000000U, 1000000U, 900000U, 200000U}) {
    void* block = nullptr;
    ASSERT_EQ(pool.Allocate(&block, bytes), STATUS_OK);
    blocks.emplace_back(block, bytes);
    std::uint64_t const offset = NodeArena::OfProcess()->OffsetOf(block, bytes);
    pages.emplace_back(offset / kHuge, (offset + bytes - 1) / kHuge);
  }
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    if (blocks[i].second < NodeHugePages::kOwnFrom) continue;
    for (std::size_t j = 0; j < blocks.size(); ++j)
      EXPECT_TRUE(i == j || pages[j].second < pages[i].first ||
                  pages[i].second < pages[j].first)
          << i << ' ' << j;
  }
  for (auto const& [block, bytes] : blocks)
    pool.Deallocate(block, bytes);
}

// What lies behind the block in its last huge page as well.
TEST(NodePool, ReturnsWholeHugePagesOfLargeBlocks) {
  constexpr std::size_t kBytes = (15 << 20) + 4096;
  NodePool pool;
  void* block = nullptr;
  ASSERT_EQ(pool.Allocate(&block, kBytes), STATUS_OK);
  pool.WillWrite(block, kBytes);
  std::memset(block, 1, kBytes);
  auto const last = (reinterpret_cast<std::uintptr_t>(block) + kBytes) / NodeHugePages::kBytes;
  auto* const end = reinterpret_cast<unsigned char*>((last + 1) * NodeHugePages::kBytes);

  pool.Deallocate(block, kBytes);
  pool.ReleaseCached();

  EXPECT_FALSE(IsResident(end - 1));
  EXPECT_FALSE(IsResident(block));
}

TEST(NodePool, MakesThePagesThatWillBeWrittenBeforehandAndChangesNoByte) {
  constexpr std::size_t kBytes = 9 << 20;
  NodePool pool;
  void* block = nullptr;
  ASSERT_EQ(pool.Allocate(&block, kBytes), STATUS_OK);
  auto* const bytes = static_cast<unsigned char*>(block);
  bytes[0] = bytes[kBytes / 2] = bytes[kBytes - 1] = 7;

  pool.WillWrite(block, kBytes);

  EXPECT_TRUE(IsResident(bytes));
  EXPECT_TRUE(IsResident(bytes + (2 << 20)));
  EXPECT_EQ(bytes[0] + bytes[kBytes / 2] + bytes[kBytes - 1], 21);
  EXPECT_EQ(bytes[1] + bytes[kBytes / 2 + 1] + bytes[kBytes - 2], 0);
  pool.Deallocate(block, kBytes);
}

TEST(NodePool, IgnoresWritesToOtherMemory) {
  std::vector<unsigned char> own(9 << 20, 3);
  NodePool const pool;
  MemoryPool const plain;

  pool.WillWrite(own.data(), own.size());
  plain.WillWrite(own.data(), own.size());
  pool.WillWrite(nullptr, 0);

  EXPECT_EQ(own, std::vector<unsigned char>(9 << 20, 3));
}

TEST(NodePool, KeepsBlocksApart) {
  NodePool first;
  NodePool second;
  std::vector<std::pair<unsigned char*, std::size_t>> blocks;
  for (int i = 0; i < 400; ++i) {
    auto const bytes =
        static_cast<std::size_t>(1 + i * i * 7 % 9000 + (i % 50 == 0 ? 200000 : 0));
    void* block = nullptr;
    ASSERT_EQ((i % 2 == 0 ? first : second).Allocate(&block, bytes), STATUS_OK);
    std::memset(block, i % 251, bytes);
    blocks.emplace_back(static_cast<unsigned char*>(block), bytes);
  }
  for (int i = 0; i < 400; ++i) {
    auto const& [block, bytes] = blocks[static_cast<std::size_t>(i)];
    ASSERT_EQ(block[0], i % 251);
    ASSERT_EQ(block[bytes - 1], i % 251);
    (i % 2 == 0 ? first : second).Deallocate(block, bytes);
  }
  EXPECT_EQ(first.BytesInUse() + second.BytesInUse(), 0U);
}

TEST(NodePool, RefusesMoreThanTheMachineHas) {
  NodePool pool;
  void* block = nullptr;

  EXPECT_EQ(pool.Allocate(&block, std::size_t{1} << 50), STATUS_OUT_OF_MEMORY);

  EXPECT_EQ(pool.LastRefused(), std::size_t{1} << 50);
}

// Blocks that are never written take no memory.
TEST(NodePool, TakesPlainBlocksOnceTheMemoryOfTheMachineIsPromised) {
  auto const memory = static_cast<std::size_t>(sysconf(_SC_PHYS_PAGES)) *
                      static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  std::size_t const most = memory / 4 * 3;
  NodePool pool;
  void* first = nullptr;
  void* second = nullptr;
  ASSERT_EQ(pool.Allocate(&first, most), STATUS_OK);

  ASSERT_EQ(pool.Allocate(&second, most), STATUS_OK);

  EXPECT_TRUE(IsShared(first, most));
  EXPECT_FALSE(IsShared(second, most));
  static_cast<unsigned char*>(second)[most - 1] = 1;
  pool.Deallocate(first, most);
  pool.Deallocate(second, most);
  pool.ReleaseCached();
}

constexpr std::uint64_t kGiB = std::uint64_t{1} << 30;

TEST(NodeArena, HasTwiceTheMemoryOfTheMachine) {
  EXPECT_EQ(NodeArena::BytesFor(512 * kGiB, 8), 1024 * kGiB);
  EXPECT_EQ(NodeArena::BytesFor(0, 8), 0U);
}

TEST(NodeArena, LeavesRoomForThoseOfAllProcessorsInHalfOfTheAddresses) {
  EXPECT_EQ(NodeArena::BytesFor(2048 * kGiB, 128), 512 * kGiB);
  EXPECT_EQ(NodeArena::BytesFor(6144 * kGiB, 384) * 384 <= 65536 * kGiB, true);
  EXPECT_EQ(NodeArena::BytesFor(6144 * kGiB, 384) % NodeHugePages::kBytes, 0U);
}

}  // namespace
}  // namespace Pavex
