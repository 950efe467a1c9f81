// The update of a gathered dense matrix: a view changes to the new array, or the values move to
// new storage as in the gather.

#include "tests/support/arrays.h"
#include "tests/support/dense_rank.h"
#include "tests/support/log_level.h"
#include "tests/support/ownership.h"

#include <gmock/gmock.h>

namespace Pavex {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// --- Every rank holds the whole

TEST(DenseAllHolders, ShowNewArrayAfterUpdateWithoutCopy) {
  DenseRank<> zero(0, Pieces(WholeShare(true, 2), WholeShare(true, 2)));
  ASSERT_EQ(zero.Gather().status, STATUS_OK);
  zero.rank.ForgetThePast();
  DensePiece<> const fresh = DenseBlock(5, 3, 5, 5, true, 2);

  Outcome const updated = zero.Update(fresh);

  ExpectOutcome(updated, STATUS_OK, "");
  ExpectBorrowed(zero.Target().mValues, fresh.values);
  EXPECT_THAT(zero.Calls(), IsEmpty());
  EXPECT_THAT(zero.Events(), IsEmpty());
}

TEST(DenseAllHolders, ShowTheElementsInUseAfterUpdate) {
  DenseRank<> zero(0, Pieces(WholeShare(true), WholeShare(true)));
  ASSERT_EQ(zero.Gather().status, STATUS_OK);
  DensePiece<> shorter = WholeShare(true);
  shorter.matrix.mValues.mSize = 14;

  ASSERT_EQ(zero.Update(shorter).status, STATUS_OK);

  EXPECT_EQ(zero.Target().mValues.mSize, 14);
}

TEST(DenseAllHolders, RefuseUpdateWithOtherLeadingDimension) {
  DenseRank<> zero(0, Pieces(WholeShare(true, 2), WholeShare(true, 2)));
  ASSERT_EQ(zero.Gather().status, STATUS_OK);

  Outcome const updated = zero.Update(WholeShare(true, 1));

  ExpectOutcome(updated, STATUS_NOT_SUPPORTED,
                "[ERROR] Leading dimension is inconsistent with that in gather phase.\n");
  ExpectBorrowed(zero.Target().mValues, zero.local.values);
  EXPECT_EQ(zero.Target().mLd, 7);
}

TEST(DenseAllHolders, WithoutGatheredMatrixDoNothingInAnUpdate) {
  DenseRank<> one(1, Pieces(WholeShare(true), WholeShare(true)));
  ASSERT_EQ(one.Gather().status, STATUS_OK);
  one.rank.ForgetThePast();

  Outcome const updated = one.Update(WholeShare(true, 1));

  ExpectOutcome(updated, STATUS_OK, "");
  EXPECT_THAT(one.Calls(), IsEmpty());
  EXPECT_EQ(one.rank.aggregator.Target(), nullptr);
}

TEST(DenseAllHolders, GiveBackWhatTheGatheredMatrixOwnedBeforeAnUpdate) {
  DenseRank<> zero(0, Pieces(WholeShare(true), WholeShare(true)));
  ASSERT_EQ(zero.Gather().status, STATUS_OK);
  zero.Target().mValues = Owned(zero.rank.pool, std::vector<double>(15));
  zero.rank.ForgetThePast();

  ASSERT_EQ(zero.Update(zero.local).status, STATUS_OK);

  EXPECT_EQ(zero.Events(), std::vector<PoolEvent>{GaveBack(15 * 8)});
  ExpectBorrowed(zero.Target().mValues, zero.local.values);
}

// --- Updates that move values
// ------------------------------------------------------------------

TEST(DenseUpdate, ReplacesTheStorageAndGivesTheOldBack) {
  DenseRank<> zero(0, Pieces(RowShare(0, true), RowShare(1, true)));
  ASSERT_EQ(zero.Gather().status, STATUS_OK);
  void const* const old = zero.Target().mValues.mData;
  zero.rank.ForgetThePast();
  zero.script->On(CommOp::GATHERV,
                  Deliver({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}));

  ASSERT_EQ(zero.Update(zero.local).status, STATUS_OK);

  EXPECT_THAT(zero.Calls(), ElementsAre("Gatherv(5 double; {5, 10} at {0, 5} double; root 0)"));
  EXPECT_THAT(zero.TargetValues(),
              ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
  EXPECT_EQ(zero.Events(), (std::vector<PoolEvent>{Took(15 * 8), GaveBack(15 * 8)}));
  EXPECT_EQ(zero.Events()[1].block, old);
  ExpectOwned(zero.Target().mValues, zero.rank.pool, 15);
}

TEST(DenseUpdate, ReordersAsTheGatherDid) {
  LogLevel const level(LOG_DEBUG);
  DenseRank<> zero(0, Pieces(ColumnShare(0, true), ColumnShare(1, true)));
  ASSERT_EQ(zero.Gather().status, STATUS_OK);
  zero.script->On(CommOp::GATHERV, Deliver({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}));

  Outcome const updated = zero.Update(zero.local);

  ExpectOutcome(updated, STATUS_OK,
                "[DEBUG] Reorder values of dense matrix from received data\n");
  EXPECT_THAT(zero.TargetValues(),
              ElementsAre(0, 1, 6, 7, 8, 2, 3, 9, 10, 11, 4, 5, 12, 13, 14));
}

TEST(DenseUpdate, MovesValuesAlsoAfterGatherOfThePattern) {
  DenseRank<> zero(0, Pieces(RowShare(0, true), RowShare(1, true)), false);
  ASSERT_EQ(zero.Gather().status, STATUS_OK);
  zero.rank.ForgetThePast();
  zero.script->On(CommOp::GATHERV,
                  Deliver({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}));

  ASSERT_EQ(zero.Update(zero.local).status, STATUS_OK);

  EXPECT_THAT(zero.Calls(), ElementsAre("Gatherv(5 double; {5, 10} at {0, 5} double; root 0)"));
  EXPECT_THAT(zero.TargetValues(),
              ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
}

TEST(DenseUpdate, TakesNothingOnRanksThatDoNotReceive) {
  DenseRank<> one(1, Pieces(RowShare(0, true), RowShare(1, true)));
  ASSERT_EQ(one.Gather().status, STATUS_OK);
  one.rank.ForgetThePast();

  ASSERT_EQ(one.Update(one.local).status, STATUS_OK);

  EXPECT_THAT(one.Calls(), ElementsAre("Gatherv(10 double; double; root 0)"));
  EXPECT_THAT(one.Events(), IsEmpty());
}

TEST(DenseUpdate, KeepsTheTagOfTheGatherFromOneHolder) {
  DenseRank<> zero(0, Pieces(EmptyShare(true), WholeShare(true)));
  DenseRank<> one(1, Pieces(EmptyShare(true), WholeShare(true)));
  for (DenseRank<>* const rank : {&zero, &one}) {
    ASSERT_EQ(rank->Gather().status, STATUS_OK);
    rank->rank.ForgetThePast();
    ASSERT_EQ(rank->Update(rank->local).status, STATUS_OK);
  }

  EXPECT_THAT(zero.Calls(), ElementsAre("Recv(15 double from 1 tag 50)"));
  EXPECT_THAT(one.Calls(), ElementsAre("Send(15 double to 0 tag 50)"));
}

TEST(DenseUpdate, RebindsTheViewOfOneHolderThatIsTheRoot) {
  DenseRank<> zero(0, Pieces(WholeShare(true), EmptyShare(true)));
  ASSERT_EQ(zero.Gather().status, STATUS_OK);
  DensePiece<> const fresh = DenseBlock(5, 3, 5, 5, true);

  ASSERT_EQ(zero.Update(fresh).status, STATUS_OK);

  ExpectBorrowed(zero.Target().mValues, fresh.values);
}

TEST(DenseUpdate, IsRefusedIfThePiecesAreNotAsManyElementsAsTheWhole) {
  // The pieces have 9 elements together, of a 3 x 5 matrix.
  DenseRank<> zero(
      0,
      Pieces(DenseBlock(1, 3, 1, 1, true).In(3, 5, MatrixPartition::NonzeroWise()),
             DenseBlock(1, 3, 2, 2, true).In(3, 5, MatrixPartition::NonzeroWise())),
      false);
  ASSERT_EQ(zero.Gather().status, STATUS_OK);

  Outcome const updated = zero.Update(zero.local);

  ExpectOutcome(
      updated, STATUS_INCONSISTENT,
      "[ERROR] The Global NNZ(9) not equal to 3 * 5.\n" + StatusLines(1, STATUS_INCONSISTENT));
}

}  // namespace
}  // namespace Pavex
