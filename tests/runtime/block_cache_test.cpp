#include "pavex/runtime/block_cache.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <vector>

namespace Pavex {
namespace {

// Room for the links of a kept block, whatever size the block is called.
struct alignas(BlockCache::kMinBlockBytes) Block {
  unsigned char bytes[BlockCache::kMinBlockBytes];
};

TEST(BlockCache, IsEmptyAtTheStart) {
  BlockCache cache;

  EXPECT_EQ(cache.Take(8), nullptr);
  EXPECT_EQ(cache.Blocks(), 0U);
  EXPECT_EQ(cache.Bytes(), 0U);
}

TEST(BlockCache, HandsOutABlockOfTheVerySizeOnly) {
  BlockCache cache;
  Block block;
  cache.Put(&block, 100);

  EXPECT_EQ(cache.Take(99), nullptr);
  EXPECT_EQ(cache.Take(101), nullptr);
  EXPECT_EQ(cache.Take(100), &block);
  EXPECT_EQ(cache.Take(100), nullptr);
}

TEST(BlockCache, CountsBlocksAndBytes) {
  BlockCache cache;
  Block blocks[3];

  cache.Put(&blocks[0], 100);
  cache.Put(&blocks[1], 100);
  cache.Put(&blocks[2], 7);

  EXPECT_EQ(cache.Blocks(), 3U);
  EXPECT_EQ(cache.Bytes(), 207U);
  cache.Take(100);
  EXPECT_EQ(cache.Blocks(), 2U);
  EXPECT_EQ(cache.Bytes(), 107U);
}

TEST(BlockCache, GivesUpTheSizeFirstThatWasNotPutInForTheLongestTime) {
  BlockCache cache;
  Block blocks[4];

  cache.Put(&blocks[0], 100);
  cache.Put(&blocks[1], 200);
  cache.Put(&blocks[2], 300);
  cache.Put(&blocks[3], 100);

  std::vector<std::size_t> order;
  while (cache.Blocks() > 0) {
    order.push_back(cache.Oldest().bytes);
    cache.TakeOldest();
  }
  EXPECT_EQ(order, (std::vector<std::size_t>{200, 300, 100, 100}));
}

TEST(BlockCache, CountsOnlyTheBackedPartOfATrimmedBlock) {
  BlockCache cache;
  Block blocks[2];
  cache.Put(&blocks[0], 1000);
  cache.Put(&blocks[1], 50);

  cache.TrimOldest(600);

  EXPECT_EQ(cache.Bytes(), 650U);
  EXPECT_EQ(cache.Oldest().block, &blocks[0]);
  EXPECT_EQ(cache.Oldest().bytes, 1000U);
  EXPECT_EQ(cache.Oldest().backed, 600U);
  EXPECT_EQ(cache.Take(1000), &blocks[0]);
  EXPECT_EQ(cache.Bytes(), 50U);
}

TEST(BlockCache, ForgetsTheTrimmingOfABlockThatWasHandedOut) {
  BlockCache cache;
  Block block;
  cache.Put(&block, 1000);
  cache.TrimOldest(600);
  cache.Take(1000);

  cache.Put(&block, 1000);

  EXPECT_EQ(cache.Oldest().backed, 1000U);
}

// Against a plain list of all kept blocks, over sizes that collide often.
TEST(BlockCache, FindsEveryBlockAfterAnyOrderOfCalls) {
  constexpr int kBlocks = 300;
  std::vector<Block> blocks(kBlocks);
  std::multiset<std::pair<std::size_t, void*>> kept;
  std::vector<void*> idle;
  for (Block& block : blocks)
    idle.push_back(&block);
  BlockCache cache;
  std::mt19937 random(7);

  for (int step = 0; step < 20000; ++step) {
    std::size_t const bytes = std::size_t{8} * (random() % 150);
    if (random() % 2 == 0 && !idle.empty()) {
      cache.Put(idle.back(), bytes);
      kept.insert({bytes, idle.back()});
      idle.pop_back();
    } else {
      bool const expected = std::any_of(kept.begin(), kept.end(),
                                        [bytes](auto const& k) { return k.first == bytes; });
      void* const taken = cache.Take(bytes);
      ASSERT_EQ(taken != nullptr, expected);
      if (taken != nullptr) {
        ASSERT_EQ(kept.erase({bytes, taken}), 1U);
        idle.push_back(taken);
      }
    }
    ASSERT_EQ(cache.Blocks(), kept.size());
  }

  while (cache.Blocks() > 0) {
    BlockCache::Kept const oldest = cache.Oldest();
    cache.TakeOldest();
    ASSERT_EQ(kept.erase({oldest.bytes, oldest.block}), 1U);
  }
  EXPECT_TRUE(kept.empty());
  EXPECT_EQ(cache.Bytes(), 0U);
}

}  // namespace
}  // namespace Pavex
