// Every step of a dense gather or update that can fail: the status, how many callers report it,
// and what is given back.

#include "tests/support/dense_rank.h"
#include "tests/support/log_level.h"
#include "tests/support/ownership.h"

#include <gmock/gmock.h>

namespace Pavex {
namespace {

using ::testing::ElementsAre;

constexpr PavexStatus kFailure = -77;

// The events of the pool until its n-th request fails, and how many callers report the failure.
struct PoolFailure {
  int lines;
  std::vector<PoolEvent> events;
};

// The root of a gather that needs every kind of storage: padded column bands, row-major.
DenseRank<> PaddedRoot() {
  return DenseRank<>(0, Pieces(ColumnShare(0, true, 1), ColumnShare(1, true)));
}

TEST(FailedDenseGather, GivesItsStorageBackIfThePoolFailsAtAnyPoint) {
  std::vector<PoolFailure> const expected = {
      {3, {Refused(144)}},
      {2, {Took(144), Refused(8)}},
      {2, {Took(144), Took(8), Refused(8)}},
      {2, {Took(144), Took(8), Took(8), Refused(120)}},
      {4, {Took(144), Took(8), Took(8), Took(120), Refused(48), GaveBack(120)}},
      {4,
       {Took(144), Took(8), Took(8), Took(120), Took(48), Refused(120), GaveBack(48),
        GaveBack(120)}}};
  int nth = 0;
  for (PoolFailure const& at : expected) {
    DenseRank<> zero = PaddedRoot();
    zero.rank.pool.Fail(Fault::Once(++nth, kFailure));

    Outcome const gathered = zero.Gather();

    ExpectOutcome(gathered, kFailure, StatusLines(at.lines, kFailure));
    EXPECT_EQ(zero.Events(), at.events);
    EXPECT_EQ(zero.rank.aggregator.Target(), nullptr);
  }
}

TEST(FailedDenseGather, PassesPositiveStatusOfThePoolThrough) {
  for (int const nth : {4, 5, 6}) {
    DenseRank<> zero = PaddedRoot();
    zero.rank.pool.Fail(Fault::Once(nth, 5));

    EXPECT_EQ(zero.Gather().status, 5);
  }
}

TEST(FailedDenseGather, NeedsSixBlocksToSucceed) {
  DenseRank<> zero = PaddedRoot();
  zero.rank.pool.Fail(Fault::Once(7, kFailure));

  ExpectOutcome(zero.Gather(), STATUS_OK, "");

  EXPECT_FALSE(zero.rank.pool.FaultStruck());
}

TEST(FailedDenseGather, TransfersNothingWithoutItsStorage) {
  for (int const nth : {4, 5}) {
    DenseRank<> zero = PaddedRoot();
    zero.rank.pool.Fail(Fault::Once(nth, kFailure));

    ASSERT_EQ(zero.Gather().status, kFailure);

    EXPECT_THAT(zero.Calls(), ElementsAre("Allgather(in place 72 byte; 72 byte)"));
  }
}

TEST(FailedDenseGather, IsReportedByThreeCallersIfThePiecesDoNotArrive) {
  DenseRank<> zero = PaddedRoot();
  zero.script->Return(CommOp::GATHERV, kFailure);

  Outcome const gathered = zero.Gather();

  ExpectOutcome(gathered, kFailure, StatusLines(3, kFailure));
  EXPECT_EQ(zero.Events(), (std::vector<PoolEvent>{Took(144), Took(8), Took(8), Took(120),
                                                   Took(48), GaveBack(48), GaveBack(120)}));
  EXPECT_EQ(zero.rank.aggregator.Target(), nullptr);
}

TEST(FailedDenseGather, IsReportedByTwoCallersIfTheWholeDoesNotArrive) {
  DenseRank<> zero(0, Pieces(EmptyShare(true), WholeShare(true)));
  zero.script->Return(CommOp::RECV, kFailure);

  Outcome const gathered = zero.Gather();

  ExpectOutcome(gathered, kFailure, StatusLines(2, kFailure));
  EXPECT_EQ(zero.Events(), (std::vector<PoolEvent>{Took(144), Took(120), GaveBack(120)}));
  EXPECT_EQ(zero.rank.aggregator.Target(), nullptr);
}

TEST(FailedDenseGather, GivesThePackedWholeBackIfItCannotBeSent) {
  DenseRank<> one(1, Pieces(EmptyShare(true), WholeShare(true, 1)));
  one.script->Return(CommOp::SEND, kFailure);

  Outcome const gathered = one.Gather();

  ExpectOutcome(gathered, kFailure, StatusLines(2, kFailure));
  EXPECT_EQ(one.Events(), (std::vector<PoolEvent>{Took(144), Took(120), GaveBack(120)}));
}

TEST(FailedDenseGather, IsReportedByTwoCallersIfTheWholeCannotBeBroadcast) {
  DenseRank<> one(1, Pieces(EmptyShare(true), WholeShare(true)));
  one.script->Return(CommOp::BCAST, kFailure);

  ExpectOutcome(one.Allgather(), kFailure, StatusLines(2, kFailure));

  EXPECT_EQ(one.rank.aggregator.Target(), nullptr);
}

TEST(FailedDenseGather, PrintsNothingBelowTheErrorLevel) {
  LogLevel const level(LOG_FATAL);
  DenseRank<> zero = PaddedRoot();
  zero.script->Return(CommOp::GATHERV, kFailure);

  ExpectOutcome(zero.Gather(), kFailure, "");
}

// --- Updates

TEST(FailedDenseUpdate, KeepsTheValuesIfThePoolFailsAtAnyPoint) {
  std::vector<PoolFailure> const expected = {
      {1, {Refused(120)}},
      {3, {Took(120), Refused(48), GaveBack(120)}},
      {3, {Took(120), Took(48), Refused(120), GaveBack(48), GaveBack(120)}}};
  int nth = 0;
  for (PoolFailure const& at : expected) {
    DenseRank<> zero = PaddedRoot();
    ASSERT_EQ(zero.Gather().status, STATUS_OK);
    double const* const values = zero.Target().mValues.mData;
    zero.rank.ForgetThePast();
    zero.rank.pool.Fail(Fault::Once(++nth, kFailure));

    Outcome const updated = zero.Update(zero.local);

    ExpectOutcome(updated, kFailure, StatusLines(at.lines, kFailure));
    EXPECT_EQ(zero.Events(), at.events);
    EXPECT_EQ(zero.Target().mValues.mData, values);
    ExpectOwned(zero.Target().mValues, zero.rank.pool, 15);
  }
}

TEST(FailedDenseUpdate, IsReportedByTwoCallersIfThePiecesDoNotArrive) {
  DenseRank<> zero = PaddedRoot();
  ASSERT_EQ(zero.Gather().status, STATUS_OK);
  double const* const values = zero.Target().mValues.mData;
  zero.script->Return(CommOp::GATHERV, kFailure);

  Outcome const updated = zero.Update(zero.local);

  ExpectOutcome(updated, kFailure, StatusLines(2, kFailure));
  EXPECT_EQ(zero.Target().mValues.mData, values);
}

TEST(FailedDenseUpdate, IsReportedOnceIfTheWholeDoesNotArrive) {
  DenseRank<> zero(0, Pieces(EmptyShare(true), WholeShare(true)));
  ASSERT_EQ(zero.Gather().status, STATUS_OK);
  double const* const values = zero.Target().mValues.mData;
  zero.script->Return(CommOp::RECV, kFailure);

  Outcome const updated = zero.Update(zero.local);

  ExpectOutcome(updated, kFailure, StatusLines(1, kFailure));
  EXPECT_EQ(zero.Target().mValues.mData, values);
}

TEST(FailedDenseUpdate, IsReportedOnSendersToo) {
  DenseRank<> one(1, Pieces(ColumnShare(0, true), ColumnShare(1, true, 1)));
  ASSERT_EQ(one.Gather().status, STATUS_OK);
  one.rank.pool.Fail(Fault::Once(1, kFailure));

  Outcome const updated = one.Update(one.local);

  // The packing, its caller and the update report it.
  ExpectOutcome(updated, kFailure, StatusLines(3, kFailure));
}

TEST(FailedDenseUpdate, MayBeFollowedByOneThatSucceeds) {
  DenseRank<> zero(0, Pieces(RowShare(0, true), RowShare(1, true)));
  ASSERT_EQ(zero.Gather().status, STATUS_OK);
  zero.script->Return(CommOp::GATHERV, kFailure);
  ASSERT_EQ(zero.Update(zero.local).status, kFailure);
  zero.script->On(CommOp::GATHERV,
                  Deliver({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}));

  ExpectOutcome(zero.Update(zero.local), STATUS_OK, "");

  EXPECT_THAT(zero.TargetValues(),
              ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
}

}  // namespace
}  // namespace Pavex
