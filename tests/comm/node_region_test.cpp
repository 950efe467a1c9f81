#include "pavex/comm/node_region.h"

#include "pavex/comm/node_arena.h"

#include <cstring>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Pavex {
namespace {

constexpr std::size_t kLarge = (std::size_t{5} << 20) + 77;  // not whole lines

long Faults() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_minflt;
}

// Whether the system makes huge pages of a memory file.
bool MakesHugePages() {
  NodeFileId id;
  constexpr std::size_t kHuge = NodeHugePages::kBytes;
  int const file = MakeMemoryFile(kHuge, &id);
  unsigned char* const pages = MapAtHugePage(file, kHuge);
  NodeHugePages::BackAll(pages, {0, 1});
  unsigned char resident = 0;
  mincore(pages + kHuge / 2, 1, &resident);
  munmap(pages, kHuge);
  close(file);
  return (resident & 1) != 0;
}

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
  auto* const room = static_cast<unsigned char*>(arena->TakeShared(kRoom));
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
    EXPECT_FALSE(arena->HugePages().Back(NodeHugePages::ForBlock(offset, kLarge)))
        << "a page was left out";
  }
  arena->GiveBackPages(room, kRoom);
}

// Two pieces meet inside a huge page. Whoever comes first makes it.
TEST(NodeCopy, StoresNeighbouringPiecesWithoutAFaultForEachSmallPage) {
  constexpr std::size_t kBytes = (std::size_t{11} << 20) + 4096;
  constexpr std::size_t kBefore = 2048;
  constexpr std::size_t kPieces[] = {std::size_t{5} << 20, kBytes - (std::size_t{5} << 20)};
  NodeArena* const arena = NodeArena::OfProcess();
  ASSERT_NE(arena, nullptr);
  std::vector<unsigned char> const source = Pattern(kBytes);
  for (std::size_t const first : {0U, 1U}) {
    auto* const room = static_cast<unsigned char*>(arena->TakeShared(kBytes + kBefore));
    ASSERT_NE(room, nullptr);
    long const before = Faults();

    for (std::size_t const piece : {first, 1 - first}) {
      std::size_t const begin = piece == 0 ? 0 : kPieces[0];
      unsigned char* const to = room + kBefore + begin;
      NodeCopy(NodeRegion::Of(to, kPieces[piece]),
               NodeRegion::Of(source.data() + begin, kPieces[piece]))
          .Store(arena->HugePages(), arena->OffsetOf(to, kPieces[piece]));
    }

    EXPECT_LE(Faults() - before, MakesHugePages() ? 40 : 3000);
    EXPECT_EQ(std::memcmp(room + kBefore, source.data(), kBytes), 0);
    arena->GiveBackPages(room, kBytes + kBefore);
  }
}

// --- Which huge pages

constexpr std::uint64_t kMiB = std::uint64_t{1} << 20;

std::pair<std::uint64_t, std::uint64_t> Block(std::uint64_t offset, std::uint64_t bytes) {
  NodeHugePages::Run const run = NodeHugePages::ForBlock(offset, bytes);
  return {run.first, run.end};
}

TEST(NodeHugePages, AreMadeFromTheFirstByteOfALargeRangeOn) {
  EXPECT_EQ(Block(6 * kMiB, 8 * kMiB), std::make_pair(3UL, 7UL));
  EXPECT_EQ(Block(6 * kMiB + 2048, 8 * kMiB), std::make_pair(3UL, 7UL));
  EXPECT_EQ(Block(8 * kMiB - 1, 8 * kMiB + 1), std::make_pair(3UL, 8UL));
}

TEST(NodeHugePages, AreMadeAtTheEndIfHalfFilled) {
  EXPECT_EQ(Block(0, 5 * kMiB - 1), std::make_pair(0UL, 2UL));
  EXPECT_EQ(Block(0, 5 * kMiB), std::make_pair(0UL, 3UL));
}

// Other blocks may lie in the same huge pages as a small one.
TEST(NodeHugePages, AreMadeInsideASmallRangeAlone) {
  EXPECT_EQ(Block(1, 4 * kMiB - 1), std::make_pair(1UL, 2UL));
  EXPECT_EQ(Block(2 * kMiB, 2 * kMiB), std::make_pair(1UL, 2UL));
  EXPECT_EQ(Block(0, 4 * kMiB), std::make_pair(0UL, 2UL));
}

TEST(NodeHugePages, AreMadeAtBothEndsOfAnArrayOfAnySize) {
  NodeHugePages::Run const run = NodeHugePages::ForArray(3 * kMiB, 2 * kMiB);
  EXPECT_EQ(run.first, 1U);
  EXPECT_EQ(run.end, 3U);
}

}  // namespace
}  // namespace Pavex
