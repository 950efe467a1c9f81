// The scatter of values that are not in the gathered matrix.

#include "tests/support/dense_rank.h"
#include "tests/support/shares.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <numeric>

namespace Pavex {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// `count` elements, numbered from 100.
std::vector<double> Solution(std::size_t count) {
  std::vector<double> values(count);
  std::iota(values.begin(), values.end(), 100.0);
  return values;
}

void GatherFirst(DenseRank<>& rank, bool toAll = false) {
  ASSERT_EQ((toAll ? rank.Allgather() : rank.Gather()).status, STATUS_OK);
  rank.rank.ForgetThePast();
}

Outcome ScatterValues(DenseRank<>& rank, double const* values) {
  return Watch([&] { return rank.rank.aggregator.Scatter(rank.local.matrix, values); });
}

TEST(ScatterOfOtherValues, SendsThemInTheOrderOfThePiecesAndLeavesTheGatheredMatrix) {
  DenseRank<> zero(0, Pieces(ColumnShare(0, true), ColumnShare(1, true)));
  std::vector<double> sent(15);
  zero.script->On(CommOp::SCATTERV, Keep(sent));
  GatherFirst(zero);
  std::vector<double> const before = zero.TargetValues();

  ExpectOutcome(ScatterValues(zero, Solution(15).data()), STATUS_OK, "");

  EXPECT_THAT(sent, ElementsAre(100, 101, 105, 106, 110, 111, 102, 103, 104, 107, 108, 109, 112,
                                113, 114));
  EXPECT_EQ(zero.TargetValues(), before);
}

TEST(ScatterOfOtherValues, SendsTheArrayItselfIfNothingIsReordered) {
  DenseRank<> zero(0, Pieces(RowShare(0, true), RowShare(1, true)));
  GatherFirst(zero);
  std::vector<double> const solution = Solution(15);

  ExpectOutcome(ScatterValues(zero, solution.data()), STATUS_OK, "");

  EXPECT_EQ(zero.rank.comm->Calls().back().sendbuf, solution.data());
  EXPECT_THAT(zero.Events(), IsEmpty());
}

TEST(ScatterOfOtherValues, ReadsThemWithTheLeadingDimensionOfTheGatheredMatrix) {
  DenseRank<> zero(0, Pieces(WholeShare(true, 2), WholeShare(true, 2)));
  std::vector<double> sent(15);
  zero.script->On(CommOp::BCAST, [&sent](CommCall const& call) {
    std::copy_n(static_cast<double const*>(call.recvbuf), sent.size(), sent.begin());
    return STATUS_OK;
  });
  GatherFirst(zero);

  ExpectOutcome(ScatterValues(zero, Solution(19).data()), STATUS_OK, "");

  EXPECT_THAT(sent, ElementsAre(100, 101, 102, 103, 104, 107, 108, 109, 110, 111, 114, 115, 116,
                                117, 118));
}

TEST(ScatterOfOtherValues, CopiesThePieceOfAProcessThatHasTheWhole) {
  DenseRank<> one(1, Pieces(ColumnShare(0, true), ColumnShare(1, true)));
  GatherFirst(one, true);

  ExpectOutcome(ScatterValues(one, Solution(15).data()), STATUS_OK, "");

  EXPECT_THAT(one.local.values, ElementsAre(102, 103, 104, 107, 108, 109, 112, 113, 114));
  EXPECT_THAT(one.Calls(), IsEmpty());
}

TEST(ScatterOfOtherValues, NeedsNoneOnAProcessThatDoesNotReceive) {
  DenseRank<> one(1, Pieces(RowShare(0, true), RowShare(1, true)));
  one.script->On(CommOp::SCATTERV, Deliver({1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
  GatherFirst(one);

  ExpectOutcome(ScatterValues(one, nullptr), STATUS_OK, "");

  EXPECT_THAT(one.local.values, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10));
}

TEST(ScatterOfOtherValues, IsRefusedWithoutThemOnAReceiver) {
  for (bool const toAll : {false, true}) {
    for (int const self : {0, 1}) {
      if (!toAll && self == 1) continue;  // it does not receive
      DenseRank<> rank(self, Pieces(RowShare(0, true), RowShare(1, true)));
      GatherFirst(rank, toAll);

      ExpectOutcome(ScatterValues(rank, nullptr), STATUS_INCONSISTENT,
                    StatusLines(1, STATUS_INCONSISTENT));

      EXPECT_THAT(rank.Calls(), IsEmpty());
    }
  }
}

TEST(ScatterOfOtherValues, IsRefusedWithoutAGatheredMatrix) {
  DenseRank<> zero(0, Pieces(RowShare(0, true), RowShare(1, true)));
  std::vector<double> const solution = Solution(15);
  ExpectOutcome(ScatterValues(zero, solution.data()), STATUS_WRONG_ORDER, kNotGathered);
  GatherFirst(zero);
  zero.rank.aggregator.Clear();

  ExpectOutcome(ScatterValues(zero, solution.data()), STATUS_WRONG_ORDER, kNotGathered);
}

TEST(ScatterOfOtherValues, IsNotSupportedForASparseMatrix) {
  RankUnderTest<> rank = ShareRank(0);
  auto piece = Share(0);
  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);
  std::vector<double> const solution = Solution(5);

  ExpectOutcome(Watch([&] { return rank.aggregator.Scatter(piece.matrix, solution.data()); }),
                STATUS_NOT_SUPPORTED, "[ERROR] Unsupported matrix store type 8.\n");
}

}  // namespace
}  // namespace Pavex
