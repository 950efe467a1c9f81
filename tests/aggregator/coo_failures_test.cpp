// Every step of a gather of coordinate matrices that can fail.

#include "tests/support/shares.h"

#include <gmock/gmock.h>

namespace Pavex {
namespace {

// The events of the pool until the n-th allocation of the receiver fails, and how many callers
// report the failure.
struct PoolFailure {
  int lines;
  std::vector<PoolEvent> events;
};

TEST(FailedCooGather, GivesItsArraysBackIfThePoolFailsAtAnyPoint) {
  std::vector<PoolFailure> const expected = {
      {3, {Refused(144)}},
      {2, {Took(144), Refused(8)}},
      {2, {Took(144), Took(8), Refused(8)}},
      {2, {Took(144), Took(8), Took(8), Refused(20)}},
      {2, {Took(144), Took(8), Took(8), Took(20), Refused(20), GaveBack(20)}},
      {2,
       {Took(144), Took(8), Took(8), Took(20), Took(20), Refused(40), GaveBack(20),
        GaveBack(20)}}};
  for (PavexStatus const failure : {-77, 5}) {
    int nth = 0;
    for (PoolFailure const& at : expected) {
      RankUnderTest<> rank = ShareRank(0);
      CooPiece<> const piece = Share(0);
      rank.pool.Fail(Fault::Once(++nth, failure));

      Outcome const outcome = Gather(rank, piece.matrix);

      ExpectOutcome(outcome, failure, StatusLines(at.lines, failure));
      EXPECT_EQ(rank.pool.Events(), at.events);
      EXPECT_EQ(rank.aggregator.Target(), nullptr);
    }
  }
}

TEST(FailedCooGather, GivesItsArraysBackIfACallFailsAtAnyPoint) {
  for (PavexStatus const failure : {-77, 5}) {
    for (int nth = 1; nth <= 4; ++nth) {
      RankUnderTest<> rank = ShareRank(0);
      CooPiece<> const piece = Share(0);
      rank.comm->Fail(Fault::Once(nth, failure));

      Outcome const outcome = Gather(rank, piece.matrix);

      ExpectOutcome(outcome, failure, StatusLines(nth == 1 ? 3 : 2, failure));
      EXPECT_EQ(rank.comm->DataTexts().size(), static_cast<std::size_t>(nth));
      EXPECT_EQ(rank.pool.OutstandingBytes(), nth == 1 ? 144U : 144U + 8 + 8);
      EXPECT_EQ(rank.aggregator.Target(), nullptr);
    }
  }
}

TEST(FailedCooGather, ReportsAFailedBroadcastFromTheHolder) {
  CooPiece<> const holder = WholeOn(1, 1);
  CooPiece<> const empty = WholeOn(1, 0);
  for (int ownRank : {0, 1}) {
    for (int nth = 2; nth <= 4; ++nth) {
      RankUnderTest<> rank(ScriptedRank(ownRank, {&empty.matrix, &holder.matrix}));
      rank.comm->Fail(Fault::Once(nth, -77));
      CooPiece<> const& piece = ownRank == 1 ? holder : empty;

      Outcome const outcome =
          Watch([&] { return rank.aggregator.Allgather(rank.comm, piece.matrix, true); });

      ExpectOutcome(outcome, -77, StatusLines(2, -77));
      EXPECT_EQ(rank.comm->DataTexts().size(), static_cast<std::size_t>(nth));
      EXPECT_EQ(rank.pool.OutstandingBytes(), 144U);
      EXPECT_EQ(rank.aggregator.Target(), nullptr);
    }
  }
}

}  // namespace
}  // namespace Pavex
