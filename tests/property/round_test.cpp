// Tests of the model itself: it reaches every kind of case, and its pieces make up its whole.

#include "tests/property/round.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>
#include <tuple>

namespace Pavex {
namespace {

constexpr int kMaxRanks = 7;
constexpr long kRoundsPerRankCount = 3000;

// Calls `look` with every round.
template <typename Look>
void ForEachRound(int firstRanks, Look look) {
  for (int ranks = firstRanks; ranks <= kMaxRanks; ++ranks) {
    Rng rng(1, static_cast<std::uint64_t>(ranks));
    for (long n = 0; n < kRoundsPerRankCount; ++n)
      look(ranks, MakeRound(rng, ranks));
  }
}

std::vector<long> NumbersOf(std::vector<Entry> const& entries) {
  std::vector<long> numbers;
  for (Entry const& entry : entries)
    numbers.push_back(entry.number);
  return numbers;
}

TEST(RandomRounds, ReachEveryPartitionThatTheFormatAllowsThroughBothDoors) {
  std::set<std::tuple<Format, int, bool, bool>> seen;
  ForEachRound(2, [&](int ranks, Round const& round) {
    if (round.holding != Holding::PIECES || round.flaw != RoundFlaw::NONE) return;
    Piece const& reference = round.Reference();
    seen.insert({round.format, reference.partition, round.toAll, reference.withValues});
    EXPECT_EQ(round.pieces.size(), static_cast<std::size_t>(ranks));
  });

  std::size_t const doorsAndValues = 4;
  EXPECT_EQ(seen.size(), (3 + 3 + 3 + 2 + 2) * doorsAndValues);
}

TEST(RandomRounds, ReachHoldersOfEveryRankAndFormat) {
  std::set<std::tuple<Format, int, bool>> one;
  std::set<std::tuple<Format, bool>> all;
  ForEachRound(kMaxRanks, [&](int, Round const& round) {
    if (round.holding == Holding::ONE) one.insert({round.format, round.holder, round.toAll});
    if (round.holding == Holding::ALL) all.insert({round.format, round.toAll});
  });

  EXPECT_EQ(one.size(), 5U * kMaxRanks * 2);
  EXPECT_EQ(all.size(), 5U * 2);
}

TEST(RandomRounds, ReachEveryFlaw) {
  std::set<RoundFlaw> seen;
  ForEachRound(2, [&](int, Round const& round) { seen.insert(round.flaw); });

  EXPECT_EQ(seen.size(), static_cast<std::size_t>(RoundFlaw::WRONG_AXIS) + 1);
}

TEST(RandomRounds, ReachTheCornersOfStorage) {
  bool padded = false;
  bool lateBand = false;
  bool noEntries = false;
  bool noOffsets = false;
  bool bases = false;
  bool duplicates = false;
  bool rootOfOtherOrder = false;
  bool allEmpty = false;
  ForEachRound(2, [&](int, Round const& round) {
    if (round.flaw != RoundFlaw::NONE) return;
    Piece const& first = round.PieceOf(0);
    bool const pieces = round.holding == Holding::PIECES;
    padded |= round.IsDense() && pieces && !first.IsPacked(GATHERED);
    lateBand |= pieces && first.partition != 2 && first.begin > 0;
    noEntries |= pieces && round.IsCompressed() && first.entries.empty();
    noOffsets |= pieces && round.IsCompressed() && !first.hasOffsets;
    bases |= pieces && round.IsCompressed() && first.offsetBase != round.PieceOf(1).offsetBase;
    rootOfOtherOrder |= round.IsDense() && round.holding == Holding::ONE &&
                        first.rowMajor != round.Reference().rowMajor;
    allEmpty |= round.holding == Holding::ALL && first.entries.empty();
    std::set<std::tuple<long, long>> places;
    for (Entry const& entry : first.entries)
      places.insert({entry.row, entry.col});
    duplicates |= round.format == Format::COO && pieces && places.size() < first.entries.size();
  });

  EXPECT_TRUE(padded);
  EXPECT_TRUE(lateBand);
  EXPECT_TRUE(noEntries);
  EXPECT_TRUE(noOffsets);
  EXPECT_TRUE(bases);
  EXPECT_TRUE(duplicates);
  EXPECT_TRUE(rootOfOtherOrder);
  EXPECT_TRUE(allEmpty);
}

TEST(RandomRounds, HavePiecesThatTogetherAreTheWhole) {
  ForEachRound(2, [](int, Round const& round) {
    if (round.holding != Holding::PIECES || round.flaw != RoundFlaw::NONE) return;
    std::vector<long> pieces;
    for (Piece const& piece : round.pieces) {
      std::vector<long> const numbers = NumbersOf(piece.entries);
      pieces.insert(pieces.end(), numbers.begin(), numbers.end());
    }
    std::vector<long> whole = NumbersOf(round.wholes.front().entries);
    std::sort(pieces.begin(), pieces.end());
    std::sort(whole.begin(), whole.end());
    ASSERT_EQ(pieces, whole) << Describe(round);
  });
}

TEST(RandomRounds, AreTheSameForTheSameSeedAlone) {
  auto const numbers = [](std::uint64_t seed, std::uint64_t stream) {
    Rng rng(seed, stream);
    std::string text;
    for (int n = 0; n < 20; ++n)
      text += Describe(MakeRound(rng, 3)) + "\n";
    return text;
  };

  EXPECT_EQ(numbers(1, 2), numbers(1, 2));
  EXPECT_NE(numbers(1, 2), numbers(2, 2));
  EXPECT_NE(numbers(1, 2), numbers(1, 3));
}

}  // namespace
}  // namespace Pavex
