#include "pavex/aggregator/dense_reorder.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

namespace Pavex {
namespace {

using testing::ElementsAre;

// The length and the number of the runs of a piece, as its record has them.
struct Extent {
  std::int64_t length;
  std::int64_t runs;
};

// The records of `extents`, and the buffer over them that the library reads.
class Records {
 public:
  Records(std::vector<Extent> const& extents, bool rowMajor) : mRecords(extents.size()) {
    for (std::size_t p = 0; p < extents.size(); ++p) {
      mRecords[p].rows = rowMajor ? extents[p].runs : extents[p].length;
      mRecords[p].cols = rowMajor ? extents[p].length : extents[p].runs;
    }
    mInfos.Borrow(mRecords.data(), static_cast<std::int64_t>(mRecords.size()));
  }

  Buffer<MatrixLocalInfo> const& Infos() const { return mInfos; }
  int Count() const { return static_cast<int>(mRecords.size()); }

 private:
  std::vector<MatrixLocalInfo> mRecords;
  Buffer<MatrixLocalInfo> mInfos;
};

std::int64_t FindOutside(std::vector<Extent> const& extents, long ld, long total) {
  Records const records(extents, true);
  return FindRunsOutside(records.Infos(), records.Count(), true, ld, total);
}

bool StaysInside(std::vector<Extent> const& extents, long ld, long total) {
  return FindOutside(extents, ld, total) == kNobody;
}

// Calls `visit(comm element, global element)` for every element, in the order of the walk.
template <typename Visit>
void ForEachElement(std::vector<Extent> const& extents, std::int64_t ld, Visit visit) {
  std::int64_t comm = 0;
  std::int64_t global = 0;
  for (Extent const& extent : extents) {
    for (std::int64_t k = 0; k < extent.runs; ++k)
      for (std::int64_t t = 0; t < extent.length; ++t)
        visit(comm + k * extent.length + t, global + k * ld + t);
    comm += extent.length * extent.runs;
    global += extent.length;
  }
}

// --- Small cases by hand -------------------------------------------------------------------

TEST(DenseReorder, PutsColumnBandsSideBySideInRowMajorMatrix) {
  Records const records({{2, 3}, {3, 3}}, true);
  std::vector<int> const comm{0, 1, 10, 11, 20, 21, 2, 3, 4, 12, 13, 14, 22, 23, 24};
  std::vector<int> global(15, -1);

  CommToGlobal(sizeof(int), records.Infos(), 2, true, 5, comm.data(), global.data());

  EXPECT_THAT(global, ElementsAre(0, 1, 2, 3, 4, 10, 11, 12, 13, 14, 20, 21, 22, 23, 24));
}

TEST(DenseReorder, PutsRowBandsBelowEachOtherInColumnMajorMatrix) {
  Records const records({{1, 3}, {2, 3}}, false);
  std::vector<double> const comm{0, 1, 2, 10, 20, 11, 21, 12, 22};
  std::vector<double> global(9, -1);

  CommToGlobal(sizeof(double), records.Infos(), 2, false, 3, comm.data(), global.data());

  EXPECT_THAT(global, ElementsAre(0, 10, 20, 1, 11, 21, 2, 12, 22));
}

TEST(DenseReorder, TakesColumnBandsApartAgain) {
  Records const records({{2, 3}, {3, 3}}, true);
  std::vector<int> const global{0, 1, 2, 3, 4, 10, 11, 12, 13, 14, 20, 21, 22, 23, 24};
  std::vector<int> comm(15, -1);

  GlobalToComm(sizeof(int), records.Infos(), 2, true, 5, global.data(), comm.data());

  EXPECT_THAT(comm, ElementsAre(0, 1, 10, 11, 20, 21, 2, 3, 4, 12, 13, 14, 22, 23, 24));
}

TEST(DenseReorder, LetsTheLaterOfOverlappingPiecesWin) {
  Records const records({{1, 2}, {2, 2}}, true);  // the runs add up to 3, 2 apart
  std::vector<int> const comm{1, 2, 3, 4, 5, 6};
  std::vector<int> global(6, -1);

  CommToGlobal(sizeof(int), records.Infos(), 2, true, 2, comm.data(), global.data());

  EXPECT_THAT(global, ElementsAre(1, 3, 4, 5, 6, -1));
}

TEST(DenseReorder, LeavesElementsThatNoRunReaches) {
  Records const records({{1, 2}, {1, 1}}, true);
  std::vector<int> const comm{1, 2, 3};
  std::vector<int> global(6, -1);

  CommToGlobal(sizeof(int), records.Infos(), 2, true, 3, comm.data(), global.data());

  EXPECT_THAT(global, ElementsAre(1, 3, -1, 2, -1, -1));
}

TEST(DenseReorder, PassesOverEmptyPieces) {
  Records const records({{0, 2}, {2, 2}, {0, 0}}, true);
  std::vector<int> const comm{1, 2, 3, 4};
  std::vector<int> global(4, -1);

  CommToGlobal(sizeof(int), records.Infos(), 3, true, 2, comm.data(), global.data());

  EXPECT_THAT(global, ElementsAre(1, 2, 3, 4));
}

TEST(DenseReorder, AssemblesManyRunsOfAnOnlyPieceWithElementsAmongMany) {
  constexpr std::int64_t kRuns = 10000;
  std::vector<Extent> extents(64, {0, kRuns});
  extents.front().length = 1;
  Records const records(extents, true);
  std::vector<int> comm(kRuns);
  std::iota(comm.begin(), comm.end(), 0);
  std::vector<int> global(kRuns, -1);

  CommToGlobal(sizeof(int), records.Infos(), 64, true, 1, comm.data(), global.data());

  EXPECT_EQ(global, comm);
}

TEST(DenseReorder, LosesNoTimeOnRunsWithoutElements) {
  Records const records({{0, std::int64_t{1} << 62}, {1, 2}}, true);
  std::vector<int> const comm{1, 2};
  std::vector<int> global(2, -1);

  CommToGlobal(sizeof(int), records.Infos(), 2, true, 1, comm.data(), global.data());

  EXPECT_THAT(global, ElementsAre(1, 2));
}

TEST(DenseReorder, MovesNothingWithoutPieces) {
  Records const records({}, true);
  std::vector<int> const comm{1, 2};
  std::vector<int> global(2, -1);

  CommToGlobal(sizeof(int), records.Infos(), 0, true, 2, comm.data(), global.data());

  EXPECT_THAT(global, ElementsAre(-1, -1));
}

// --- What stays inside -----------------------------------------------------------------------

TEST(FindRunsOutside, AcceptsPiecesThatTileTheMatrix) {
  EXPECT_TRUE(StaysInside({{2, 3}, {3, 3}}, 5, 15));
}

TEST(FindRunsOutside, RefusesPackedPiecesLongerThanTheArray) {
  EXPECT_FALSE(StaysInside({{2, 3}, {3, 3}}, 0, 14));
}

TEST(FindRunsOutside, RefusesRunsBeyondTheGlobalArray) {
  EXPECT_TRUE(StaysInside({{1, 2}, {1, 5}}, 2, 10));
  EXPECT_FALSE(StaysInside({{1, 2}, {1, 5}}, 3, 12));
}

TEST(FindRunsOutside, RefusesPiecesThatBeginBeyondTheGlobalArray) {
  EXPECT_FALSE(StaysInside({{5, 0}, {1, 1}}, 1, 5));
  EXPECT_FALSE(StaysInside({{4, 0}, {1, 2}}, 1, 5));
}

TEST(FindRunsOutside, AcceptsAnyExtentOfPiecesWithoutElements) {
  constexpr std::int64_t kHuge = std::numeric_limits<std::int64_t>::max();

  EXPECT_TRUE(StaysInside({{1, 4}, {kHuge, 0}, {kHuge, 0}, {0, kHuge}}, 1, 4));
}

TEST(FindRunsOutside, RefusesNegativeExtents) {
  EXPECT_FALSE(StaysInside({{-1, 2}}, 2, 10));
  EXPECT_FALSE(StaysInside({{1, -2}}, 2, 10));
  EXPECT_FALSE(StaysInside({{0, 0}}, -1, 10));
  EXPECT_FALSE(StaysInside({{0, 0}}, 2, -1));
}

TEST(FindRunsOutside, RefusesProductsThatOverflow) {
  constexpr std::int64_t kHuge = std::numeric_limits<std::int64_t>::max();

  EXPECT_FALSE(StaysInside({{1L << 32, 1L << 32}}, 1, 100));
  EXPECT_FALSE(StaysInside({{1, kHuge}}, kHuge, 100));
  EXPECT_FALSE(StaysInside({{1, 2}}, kHuge, kHuge));
  EXPECT_FALSE(StaysInside({{kHuge, 1}, {kHuge, 1}}, 0, kHuge));
}

TEST(FindRunsOutside, NamesTheFirstPieceAtFault) {
  EXPECT_EQ(FindOutside({{2, 3}, {3, 3}, {1, -1}}, 5, 15), 2);
  EXPECT_EQ(FindOutside({{2, 3}, {3, 4}, {1, 3}}, 5, 15), 1);
  EXPECT_EQ(FindOutside({{1, 2}, {1, 6}, {-1, 1}}, 2, 8), 1);
  EXPECT_EQ(FindOutside({{1, 2}, {1, 2}}, -2, 4), 0);
}

// --- Against the literal walk --------------------------------------------------------------

// An array of exactly the right size on the heap, so that a sanitizer sees any access outside.
// `offset` bytes in front of it make it unaligned.
class Bytes {
 public:
  Bytes(std::size_t size, std::size_t offset) : mOffset(offset), mBytes(size + offset) {}
  unsigned char* Data() { return mBytes.data() + mOffset; }
  bool operator==(Bytes const& other) const { return mBytes == other.mBytes; }

 private:
  std::size_t mOffset;
  std::vector<unsigned char> mBytes;
};

// Compares both directions of one shape with the literal walk.
void CompareWithLiteralWalk(std::size_t size, std::vector<Extent> const& extents,
                            std::int64_t ld, std::int64_t total, std::size_t offset,
                            bool rowMajor) {
  Records const records(extents, rowMajor);
  ASSERT_EQ(FindRunsOutside(records.Infos(), records.Count(), rowMajor, ld, total), kNobody);
  std::size_t const bytes = static_cast<std::size_t>(total) * size;
  Bytes source(bytes, 0);
  for (std::size_t i = 0; i < bytes; ++i)
    source.Data()[i] = static_cast<unsigned char>((i * 0x9E3779B97F4A7C15U) >> 56);
  Bytes moved(bytes, offset);
  Bytes expected(bytes, offset);
  auto const copy = [&](std::int64_t to, std::int64_t from) {
    std::memcpy(expected.Data() + static_cast<std::size_t>(to) * size,
                source.Data() + static_cast<std::size_t>(from) * size, size);
  };

  CommToGlobal(size, records.Infos(), records.Count(), rowMajor, ld, source.Data(),
               moved.Data());
  ForEachElement(extents, ld, [&](std::int64_t c, std::int64_t g) { copy(g, c); });
  EXPECT_TRUE(moved == expected) << "to the global layout";

  GlobalToComm(size, records.Infos(), records.Count(), rowMajor, ld, source.Data(),
               moved.Data());
  ForEachElement(extents, ld, copy);
  EXPECT_TRUE(moved == expected) << "to the communication layout";
}

std::int64_t Between(std::mt19937& random, std::int64_t low, std::int64_t high) {
  return std::uniform_int_distribution<std::int64_t>(low, high)(random);
}

// A shape that tiles, with about `least` to `most` elements.
std::vector<Extent> RandomTiling(std::mt19937& random, std::int64_t least, std::int64_t most) {
  std::vector<Extent> extents(static_cast<std::size_t>(Between(random, 1, 40)));
  std::int64_t const longest = std::int64_t{1} << Between(random, 0, 9);
  std::int64_t ld = 0;
  for (Extent& extent : extents)
    ld += extent.length = Between(random, 0, longest);
  std::int64_t const runs = Between(random, least, most) / std::max<std::int64_t>(ld, 1);
  for (Extent& extent : extents)
    extent.runs = runs;
  return extents;
}

std::int64_t SumOfLengths(std::vector<Extent> const& extents) {
  std::int64_t sum = 0;
  for (Extent const& extent : extents)
    sum += extent.length;
  return sum;
}

class DenseReorderBySize : public testing::TestWithParam<std::size_t> {};

TEST_P(DenseReorderBySize, AgreesWithLiteralWalkOnPiecesThatTile) {
  std::mt19937 random(20240501);

  for (int round = 0; round < 300; ++round) {
    SCOPED_TRACE(testing::Message() << "round " << round);
    std::vector<Extent> const extents = RandomTiling(random, 0, 20000);
    std::int64_t const ld = SumOfLengths(extents);
    auto const offset = static_cast<std::size_t>(Between(random, 0, 64));

    CompareWithLiteralWalk(GetParam(), extents, ld, ld * extents[0].runs, offset,
                           round % 2 == 0);
  }
}

TEST_P(DenseReorderBySize, AgreesWithLiteralWalkOnTargetsBeyondTheCaches) {
  std::mt19937 random(20240502);

  for (int round = 0; round < 12; ++round) {
    SCOPED_TRACE(testing::Message() << "round " << round);
    std::vector<Extent> const extents = RandomTiling(random, 600000, 700000);
    std::int64_t const ld = SumOfLengths(extents);
    auto const offset = static_cast<std::size_t>(Between(random, 0, 64));

    CompareWithLiteralWalk(GetParam(), extents, ld, ld * extents[0].runs, offset,
                           round % 2 == 0);
  }
}

TEST_P(DenseReorderBySize, AgreesWithLiteralWalkOnPiecesThatDoNotTile) {
  std::mt19937 random(20240503);

  for (int round = 0; round < 300; ++round) {
    SCOPED_TRACE(testing::Message() << "round " << round);
    std::vector<Extent> extents = RandomTiling(random, 0, 2000);
    for (Extent& extent : extents)
      extent.runs += Between(random, 0, 2);
    std::int64_t const ld = SumOfLengths(extents) + Between(random, -2, 2);
    std::int64_t total = 0;
    ForEachElement(extents, std::max<std::int64_t>(ld, 0), [&](std::int64_t c, std::int64_t g) {
      total = std::max({total, c + 1, g + 1});
    });

    CompareWithLiteralWalk(GetParam(), extents, std::max<std::int64_t>(ld, 0), total, 0,
                           round % 2 == 0);
  }
}

INSTANTIATE_TEST_SUITE_P(ElementSizes, DenseReorderBySize, testing::Values(4, 8, 16));

}  // namespace
}  // namespace Pavex
