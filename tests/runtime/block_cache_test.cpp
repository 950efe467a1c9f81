#include "pavex/runtime/block_cache.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace Pavex {
namespace {

// A block that serves requests of `bytes` bytes, of which `backed` are backed.
Block MakeBlock(std::size_t bytes, std::size_t backed) {
  return {bytes, backed, nullptr, nullptr, nullptr};
}
Block MakeBlock(std::size_t bytes) {
  return MakeBlock(bytes, bytes);
}

TEST(BlockCache, IsEmptyAtTheStart) {
  BlockCache cache;

  EXPECT_EQ(cache.FindSame(8), nullptr);
  EXPECT_EQ(cache.FindBacked(0, 1000), nullptr);
  EXPECT_EQ(cache.Oldest(), nullptr);
  EXPECT_EQ(cache.Blocks(), 0U);
  EXPECT_EQ(cache.Bytes(), 0U);
}

TEST(BlockCache, FindsABlockOfTheVerySizeOnly) {
  BlockCache cache;
  Block block = MakeBlock(100, 40);
  cache.Put(block);

  EXPECT_EQ(cache.FindSame(99), nullptr);
  EXPECT_EQ(cache.FindSame(40), nullptr);
  EXPECT_EQ(cache.FindSame(100), &block);
}

TEST(BlockCache, FindsTheNewestOfSeveralBlocksOfASize) {
  BlockCache cache;
  Block blocks[] = {MakeBlock(100), MakeBlock(100)};
  cache.Put(blocks[0]);
  cache.Put(blocks[1]);

  EXPECT_EQ(cache.FindSame(100), &blocks[1]);
  cache.Remove(blocks[1]);
  EXPECT_EQ(cache.FindSame(100), &blocks[0]);
}

TEST(BlockCache, FindsTheBlockThatHasTheFewestBackedBytesInARange) {
  BlockCache cache;
  Block blocks[] = {MakeBlock(300), MakeBlock(900, 200), MakeBlock(250), MakeBlock(100)};
  for (Block& block : blocks)
    cache.Put(block);

  EXPECT_EQ(cache.FindBacked(101, 300), &blocks[1]);
  EXPECT_EQ(cache.FindBacked(200, 200), &blocks[1]);
  EXPECT_EQ(cache.FindBacked(201, 300), &blocks[2]);
  EXPECT_EQ(cache.FindBacked(251, 299), nullptr);
}

TEST(BlockCache, CountsBlocksAndBackedBytes) {
  BlockCache cache;
  Block blocks[] = {MakeBlock(100), MakeBlock(100), MakeBlock(7)};

  for (Block& block : blocks)
    cache.Put(block);
  EXPECT_EQ(cache.Blocks(), 3U);
  EXPECT_EQ(cache.Bytes(), 207U);

  cache.Trim(blocks[1], 60);
  EXPECT_EQ(blocks[1].backed, 60U);
  EXPECT_EQ(cache.Blocks(), 3U);
  EXPECT_EQ(cache.Bytes(), 167U);

  cache.Remove(blocks[1]);
  EXPECT_EQ(cache.Blocks(), 2U);
  EXPECT_EQ(cache.Bytes(), 107U);
}

TEST(BlockCache, OrdersBlocksByAge) {
  BlockCache cache;
  Block blocks[] = {MakeBlock(100), MakeBlock(200), MakeBlock(300), MakeBlock(400)};
  for (Block& block : blocks)
    cache.Put(block);
  cache.Remove(blocks[0]);
  cache.Put(blocks[0]);
  cache.Remove(blocks[2]);

  std::vector<std::size_t> order;
  while (Block* const oldest = cache.Oldest()) {
    order.push_back(oldest->capacity);
    cache.Remove(*oldest);
  }
  EXPECT_EQ(order, (std::vector<std::size_t>{200, 400, 100}));
}

// Compares the cache with a plain list of the kept blocks. Some sizes are in the same chain.
TEST(BlockCache, FindsEveryBlockAfterAnyOrderOfCalls) {
  std::vector<Block> blocks(300);
  std::vector<Block*> idle;
  for (Block& block : blocks)
    idle.push_back(&block);
  std::vector<Block*> kept;  // the oldest first
  BlockCache cache;
  std::mt19937 random(7);

  for (int step = 0; step < 20000; ++step) {
    std::size_t const bytes = std::size_t{8} * (1 + random() % 150);
    if (random() % 2 == 0 && !idle.empty()) {
      *idle.back() = MakeBlock(bytes);
      cache.Put(*idle.back());
      kept.push_back(idle.back());
      idle.pop_back();
    } else {
      auto const newest = std::find_if(kept.rbegin(), kept.rend(), [&](Block const* block) {
        return block->capacity == bytes;
      });
      Block* const found = cache.FindSame(bytes);
      ASSERT_EQ(found, newest == kept.rend() ? nullptr : *newest);
      if (found != nullptr) {
        cache.Remove(*found);
        idle.push_back(found);
        kept.erase(std::prev(newest.base()));
      }
    }
    ASSERT_EQ(cache.Blocks(), kept.size());
    ASSERT_EQ(cache.Oldest(), kept.empty() ? nullptr : kept.front());
  }
}

}  // namespace
}  // namespace Pavex
