#include "pavex/comm/node_region.h"

#include "pavex/comm/node_arena.h"

#include <cstring>
#include <gtest/gtest.h>
#include <vector>

namespace Pavex {
namespace {

constexpr std::size_t kLarge = (std::size_t{5} << 20) + 77;  // not whole lines

// Bytes that differ from their neighbours.
std::vector<unsigned char> Pattern(std::size_t bytes) {
  std::vector<unsigned char> pattern(bytes);
  for (std::size_t i = 0; i < bytes; ++i)
    pattern[i] = static_cast<unsigned char>(i * 7 + i / 251);
  return pattern;
}

TEST(NodeCopy, MovesALargeRunToAnyAddressAndNothingElse) {
  std::vector<unsigned char> const source = Pattern(kLarge + 64);
  for (std::size_t const offset : {0U, 1U, 15U, 16U, 63U}) {
    std::vector<unsigned char> target(kLarge + 128, 0xEE);

    NodeCopy(NodeRegion::Of(target.data() + offset, kLarge),
             NodeRegion::Of(source.data() + offset / 2, kLarge))
        .CopyAll();

    EXPECT_EQ(std::memcmp(target.data() + offset, source.data() + offset / 2, kLarge), 0);
    for (std::size_t i = 0; i < offset; ++i)
      EXPECT_EQ(target[i], 0xEE);
    for (std::size_t i = offset + kLarge; i < target.size(); ++i)
      EXPECT_EQ(target[i], 0xEE);
  }
}

TEST(NodeCopy, MovesALargeRunWithinAnArrayInEitherDirection) {
  for (std::size_t const to : {0U, 40U}) {
    std::vector<unsigned char> array = Pattern(kLarge + 40);
    std::size_t const from = 40 - to;
    std::vector<unsigned char> const before(array.begin() + static_cast<long>(from),
                                            array.begin() + static_cast<long>(from + kLarge));

    NodeCopy(NodeRegion::Of(array.data() + to, kLarge),
             NodeRegion::Of(array.data() + from, kLarge))
        .CopyAll();

    EXPECT_EQ(std::memcmp(array.data() + to, before.data(), kLarge), 0);
  }
}

// Into pages that are not there yet, and again into those that are.
TEST(NodeCopy, StoresALargeRunIntoAnArenaStepByStep) {
  constexpr std::size_t kRoom = std::size_t{8} << 20;
  constexpr std::size_t kBefore = 2048;
  NodeArena* const arena = NodeArena::OfProcess();
  ASSERT_NE(arena, nullptr);
  auto* const room = static_cast<unsigned char*>(arena->TakeShared(kRoom, true));
  ASSERT_NE(room, nullptr);
  std::uint64_t const offset = arena->OffsetOf(room + kBefore, kLarge);
  std::vector<unsigned char> source = Pattern(kLarge);
  for (int round = 0; round < 2; ++round) {
    source[kLarge / 2] = static_cast<unsigned char>(round);

    NodeCopy(NodeRegion::Of(room + kBefore, kLarge), NodeRegion::Of(source.data(), kLarge))
        .Store(arena->HugePages(), offset);

    EXPECT_EQ(std::memcmp(room + kBefore, source.data(), kLarge), 0);
    EXPECT_EQ(room[kBefore - 1], 0);
    EXPECT_EQ(room[kBefore + kLarge], 0);
    EXPECT_FALSE(arena->HugePages().Back(offset, kLarge)) << "a page was left out";
  }
  arena->GiveBackPages(room, kRoom);
}

}  // namespace
}  // namespace Pavex
