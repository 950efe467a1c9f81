// Every step of a gather of compressed matrices that can fail.

#include "tests/support/formats.h"
#include "tests/support/shares.h"

#include <gmock/gmock.h>
#include <limits>

namespace Pavex {
namespace {

using ::testing::ElementsAre;

constexpr char kExchange[] = "Allgather(in place 72 byte; 72 byte)";

// Rank `rank` of two that hold the bands.
template <typename Format>
RankUnderTest<> BandRank(int rank) {
  auto const first = BandOf<Format>(0);
  auto const second = BandOf<Format>(1);
  return RankUnderTest<>(ScriptedRank(rank, {&first.matrix, &second.matrix}));
}

template <typename Format>
class FailedCompressedGather : public ::testing::Test {};
TYPED_TEST_SUITE(FailedCompressedGather, CompressedFormats);

// The n-th allocation of the receiver fails. A failure inside the gather of the offsets has one
// more caller that reports it.
TYPED_TEST(FailedCompressedGather, GivesItsArraysBackIfThePoolFailsAtAnyPoint) {
  int const lines[] = {3, 2, 2, 3, 3, 3, 3, 2, 2};
  std::size_t const left[] = {0, 144, 152, 160, 160, 160, 160, 160, 160};
  std::size_t const calls[] = {0, 1, 1, 1, 1, 1, 1, 2, 2};
  for (PavexStatus const failure : {-77, 5}) {
    for (int n = 0; n < 9; ++n) {
      RankUnderTest<> rank = BandRank<TypeParam>(0);
      auto const piece = BandOf<TypeParam>(0);
      rank.pool.Fail(Fault::Once(n + 1, failure));

      Outcome const outcome = Gather(rank, piece.matrix);

      ExpectOutcome(outcome, failure, StatusLines(lines[n], failure));
      EXPECT_EQ(rank.pool.OutstandingBytes(), left[n]);
      EXPECT_EQ(rank.comm->DataTexts().size(), calls[n]);
      EXPECT_EQ(rank.aggregator.Target(), nullptr);
    }
  }
}

TYPED_TEST(FailedCompressedGather, ReportsNoRoomForTheLengthsOfASender) {
  RankUnderTest<> rank = BandRank<TypeParam>(1);
  auto const piece = BandOf<TypeParam>(1);
  rank.pool.Fail(Fault::Once(2, -77));

  ExpectOutcome(Gather(rank, piece.matrix), -77, StatusLines(3, -77));
  EXPECT_EQ(rank.pool.Events(), (std::vector<PoolEvent>{Took(144), Refused(4)}));
}

TYPED_TEST(FailedCompressedGather, GivesItsArraysBackIfACallFailsAtAnyPoint) {
  int const lines[] = {3, 3, 2, 2};
  for (int const ownRank : {0, 1}) {
    for (PavexStatus const failure : {-77, 5}) {
      for (int n = 0; n < 4; ++n) {
        RankUnderTest<> rank = BandRank<TypeParam>(ownRank);
        auto const piece = BandOf<TypeParam>(ownRank);
        rank.comm->Fail(Fault::Once(n + 1, failure));

        Outcome const outcome = Gather(rank, piece.matrix);

        ExpectOutcome(outcome, failure, StatusLines(lines[n], failure));
        EXPECT_EQ(rank.comm->DataTexts().size(), static_cast<std::size_t>(n + 1));
        EXPECT_EQ(rank.pool.OutstandingBytes(), ownRank == 0 && n > 0 ? 160U : 144U);
        EXPECT_EQ(rank.aggregator.Target(), nullptr);
      }
    }
  }
}

TYPED_TEST(FailedCompressedGather, ReportsNoCallFromTheHolderMoreThanTwice) {
  auto const holder = CompressedWholeOn<TypeParam>(1, 1);
  auto const empty = CompressedWholeOn<TypeParam>(1, 0);
  for (int const ownRank : {0, 1}) {
    for (int nth = 2; nth <= 4; ++nth) {
      RankUnderTest<> rank(ScriptedRank(ownRank, {&empty.matrix, &holder.matrix}));
      rank.comm->Fail(Fault::Once(nth, -77));

      Outcome const outcome = Gather(rank, ownRank == 1 ? holder.matrix : empty.matrix);

      ExpectOutcome(outcome, -77, StatusLines(2, -77));
      EXPECT_EQ(rank.comm->DataTexts().size(), static_cast<std::size_t>(nth));
      EXPECT_EQ(rank.pool.OutstandingBytes(), 144U);
      EXPECT_EQ(rank.aggregator.Target(), nullptr);
    }
  }
}

TYPED_TEST(FailedCompressedGather, ReportsNoRoomForWhatTheHolderSends) {
  auto const holder = CompressedWholeOn<TypeParam>(1, 1);
  auto const empty = CompressedWholeOn<TypeParam>(1, 0);
  int const lines[] = {3, 2, 2};
  for (int n = 0; n < 3; ++n) {
    RankUnderTest<> rank(ScriptedRank(0, {&empty.matrix, &holder.matrix}));
    rank.pool.Fail(Fault::Once(n + 2, -77));

    Outcome const outcome = Gather(rank, empty.matrix);

    ExpectOutcome(outcome, -77, StatusLines(lines[n], -77));
    EXPECT_EQ(rank.pool.OutstandingBytes(), 144U);
  }
}

TYPED_TEST(FailedCompressedGather, ReportsNoRoomForTheOffsetsThatItsHolderLacks) {
  auto const empty = CompressedWholeOn<TypeParam>(1, 0);
  auto const holder = TypeParam::Make(2, 5, {}, {}, {9});
  RankUnderTest<> rank(ScriptedRank(1, {&empty.matrix, &holder.matrix}));
  rank.pool.Fail(Fault::Once(2, -77));

  Outcome const outcome = Gather(rank, holder.matrix);

  ExpectOutcome(outcome, -77, StatusLines(3, -77));
  EXPECT_EQ(rank.pool.Events(), (std::vector<PoolEvent>{Took(144), Refused(12)}));
  EXPECT_THAT(rank.comm->DataTexts(), ElementsAre(kExchange));
}

// --- Lengths outside the offsets

// Two pieces of two rows (columns) each of a matrix of two; the second begins at `begin`.
template <typename Format>
void ExpectRefused(std::int64_t begin) {
  auto first = Format::Make(2, 5, {0, 1, 1}, {0}, {1});
  auto second = Format::Make(2, 5, {0, 1, 1}, {0}, {1});
  Format::Place(first, 2, 5, MatrixPartition::NonzeroWise());
  Format::Place(second, 2, 5, {PARTITION_NONZERO_WISE, begin});
  for (int const ownRank : {0, 1}) {
    RankUnderTest<> rank(ScriptedRank(ownRank, {&first.matrix, &second.matrix}));

    Outcome const outcome = Gather(rank, ownRank == 0 ? first.matrix : second.matrix);

    ExpectOutcome(outcome, -16, StatusLines(3, -16));
    EXPECT_THAT(rank.comm->DataTexts(), ElementsAre(kExchange));
    EXPECT_EQ(rank.pool.OutstandingBytes(), ownRank == 0 ? 160U : 144U);
    EXPECT_EQ(rank.aggregator.Target(), nullptr);
  }
}

TYPED_TEST(FailedCompressedGather, RefusesLengthsAfterTheOffsetsOnEveryRank) {
  ExpectRefused<TypeParam>(2);
  ExpectRefused<TypeParam>(1000);
  ExpectRefused<TypeParam>(std::int64_t{1} << 32);
}

TYPED_TEST(FailedCompressedGather, RefusesLengthsBeforeTheOffsetsOnEveryRank) {
  ExpectRefused<TypeParam>(-1);
  ExpectRefused<TypeParam>(std::numeric_limits<std::int64_t>::min());
}

}  // namespace
}  // namespace Pavex
