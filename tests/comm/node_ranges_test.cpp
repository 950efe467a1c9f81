#include "pavex/comm/node_ranges.h"

#include "tests/comm/failing_new.h"

#include <gtest/gtest.h>
#include <map>
#include <random>

namespace Pavex {
namespace {

constexpr std::uint64_t kNone = NodeRanges::kNone;

TEST(NodeRanges, HandsOutNothingBeforeAnythingIsFree) {
  NodeRanges ranges(64);

  EXPECT_EQ(ranges.Take(64, 64), kNone);
}

TEST(NodeRanges, RoundsUpToWholeGranules) {
  NodeRanges ranges(64);
  ranges.Add(0, 192);

  EXPECT_EQ(ranges.Take(65, 64), 0U);
  EXPECT_EQ(ranges.Take(64, 64), 128U);
  EXPECT_EQ(ranges.Take(64, 64), kNone);
}

TEST(NodeRanges, TakesTheSmallestRangeThatIsLargeEnough) {
  NodeRanges ranges(64);
  ranges.Add(0, 640);
  ranges.Add(1024, 128);

  EXPECT_EQ(ranges.Take(128, 64), 1024U);
}

TEST(NodeRanges, AlignsWithinARangeAndKeepsWhatIsInFront) {
  NodeRanges ranges(64);
  ranges.Add(64, 1024);

  EXPECT_EQ(ranges.Take(128, 512), 512U);
  EXPECT_EQ(ranges.Take(448, 64), 64U);
}

TEST(NodeRanges, JoinsWhatComesBackWithItsFreeNeighbours) {
  NodeRanges ranges(64);
  ranges.Add(0, 192);
  ranges.Take(64, 64);
  ranges.Take(64, 64);
  ranges.Take(64, 64);

  ranges.Add(0, 64);
  ranges.Add(128, 64);
  EXPECT_EQ(ranges.Take(192, 64), kNone);
  ranges.Add(64, 64);

  EXPECT_EQ(ranges.Take(192, 64), 0U);
}

TEST(NodeRanges, KeepTheRestOfARangeWithoutMemory) {
  NodeRanges ranges(64);
  ranges.Add(0, 1024);

  FailNewAt(1);
  std::uint64_t const first = ranges.Take(64, 64);
  FailNewAt(0);

  EXPECT_EQ(first, 0U);
  EXPECT_EQ(ranges.Take(960, 64), 64U);
}

// What would be left is two ranges, where one was known.
TEST(NodeRanges, KeepARangeThatCannotBeCutInTwoWithoutMemory) {
  for (int const nth : {1, 2}) {
    NodeRanges ranges(64);
    ranges.Add(64, 1024);

    FailNewAt(nth);
    std::uint64_t const taken = ranges.Take(128, 512);
    FailNewAt(0);

    EXPECT_EQ(taken, kNone) << nth;
    EXPECT_EQ(ranges.Take(1024, 64), 64U) << nth;
  }
}

TEST(NodeRanges, JoinWhatComesBackWithItsNeighboursWithoutMemory) {
  NodeRanges ranges(64);
  ranges.Add(0, 64);
  ranges.Add(192, 64);

  FailNewAt(1);
  ranges.Add(64, 64);
  ranges.Add(128, 64);
  FailNewAt(0);

  EXPECT_EQ(ranges.Take(256, 64), 0U);
}

TEST(NodeRanges, JoinWhatComesBackWithTheRangeBehindItWithoutMemory) {
  NodeRanges ranges(64);
  ranges.Add(128, 64);

  FailNewAt(1);
  ranges.Add(64, 64);
  FailNewAt(0);

  EXPECT_EQ(ranges.Take(128, 64), 64U);
}

// A map of what is taken sees every overlap.
TEST(NodeRanges, NeverHandsOutAGranuleTwice) {
  constexpr std::uint64_t kEnd = 64 * 1000;
  NodeRanges ranges(64);
  ranges.Add(0, kEnd);
  std::map<std::uint64_t, std::size_t> taken;
  std::mt19937 random(7);
  for (int step = 0; step < 20000; ++step) {
    if (random() % 2 == 0 && !taken.empty()) {
      auto given = taken.lower_bound(random() % kEnd);
      if (given == taken.end()) given = taken.begin();
      ranges.Add(given->first, given->second);
      taken.erase(given);
      continue;
    }
    std::size_t const alignment = std::size_t{64} << random() % 5;
    std::size_t const bytes = ranges.Rounded(1 + random() % 3000);
    std::uint64_t const offset = ranges.Take(bytes, alignment);
    if (offset == kNone) continue;
    ASSERT_EQ(offset % alignment, 0U);
    ASSERT_LE(offset + bytes, kEnd);
    auto const next = taken.lower_bound(offset);
    ASSERT_TRUE(next == taken.end() || offset + bytes <= next->first);
    ASSERT_TRUE(next == taken.begin() ||
                std::prev(next)->first + std::prev(next)->second <= offset);
    taken.emplace(offset, bytes);
  }
  for (auto const& [offset, bytes] : taken)
    ranges.Add(offset, bytes);

  EXPECT_EQ(ranges.Take(kEnd, 64), 0U);
}

}  // namespace
}  // namespace Pavex
