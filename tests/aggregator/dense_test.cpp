// The dense gather: which calls bring which values to which rank, what is borrowed and what is
// owned.

#include "tests/support/dense_rank.h"
#include "tests/support/instances.h"
#include "tests/support/ownership.h"

#include <gmock/gmock.h>

namespace Pavex {
namespace {

using ::testing::ElementsAre;

constexpr char kExchange[] = "Allgather(in place 72 byte; 72 byte)";

// --- Every rank holds a piece
// ------------------------------------------------------------------

template <typename TypeParam>
class DenseGatherOf : public testing::Test {};
TYPED_TEST_SUITE(DenseGatherOf, AllInstances);

TYPED_TEST(DenseGatherOf, PiecesIsOneGathervOntoTheRoot) {
  using T = typename TypeParam::Value;
  using I = typename TypeParam::Index;
  DenseRank<T, I> zero(0, Pieces(RowShare<T, I>(0, true), RowShare<T, I>(1, true)));
  zero.script->On(CommOp::GATHERV,
                  Deliver<T>({11, 12, 13, 14, 15, 21, 22, 23, 24, 25, 31, 32, 33, 34, 35}));

  ASSERT_EQ(zero.Gather().status, STATUS_OK);

  std::string const type = kTypeName<T>;
  EXPECT_THAT(zero.Calls(),
              ElementsAre(kExchange,
                          "Gatherv(5 " + type + "; {5, 10} at {0, 5} " + type + "; root 0)"));
  EXPECT_EQ(zero.TargetValues(),
            Numbers<T>({11, 12, 13, 14, 15, 21, 22, 23, 24, 25, 31, 32, 33, 34, 35}));
  ExpectOwned(zero.Target().mValues, zero.rank.pool, 15);
  EXPECT_EQ(zero.Target().mValueType, ValueTypeOf<T>::kCode);
  EXPECT_EQ(zero.Target().mIndexType, IndexTypeOf<I>::kCode);
}

TYPED_TEST(DenseGatherOf, PiecesIsOneAllgathervToEveryRank) {
  using T = typename TypeParam::Value;
  using I = typename TypeParam::Index;
  DenseRank<T, I> one(1, Pieces(RowShare<T, I>(0, true), RowShare<T, I>(1, true)));

  ASSERT_EQ(one.Allgather().status, STATUS_OK);

  std::string const type = kTypeName<T>;
  EXPECT_THAT(one.Calls(), ElementsAre(kExchange, "Allgatherv(10 " + type +
                                                      "; {5, 10} at {0, 5} " + type + ")"));
  ExpectOwned(one.Target().mValues, one.rank.pool, 15);
}

TYPED_TEST(DenseGatherOf, OneHoldersMatrixIsOneMessageToTheRoot) {
  using T = typename TypeParam::Value;
  using I = typename TypeParam::Index;
  DenseRank<T, I> one(1, Pieces(EmptyShare<T, I>(true), WholeShare<T, I>(true)));

  ASSERT_EQ(one.Gather().status, STATUS_OK);

  std::string const type = kTypeName<T>;
  EXPECT_THAT(one.Calls(), ElementsAre(kExchange, "Send(15 " + type + " to 0 tag 50)"));
}

TEST(DenseGather, TakesStorageBeforeItPacks) {
  DenseRank<> zero(0, Pieces(RowShare(0, false, 1), RowShare(1, false, 1)));

  ASSERT_EQ(zero.Gather().status, STATUS_OK);

  EXPECT_EQ(zero.Events(), (std::vector<PoolEvent>{Took(2 * 72), Took(2 * 4), Took(2 * 4),
                                                   Took(15 * 8), Took(5 * 8), Took(15 * 8),
                                                   GaveBack(15 * 8), GaveBack(5 * 8)}));
}

TEST(DenseGather, StampsShapeAndLeadingDimensionOfTheWhole) {
  DenseRank<> zero(0, Pieces(ColumnShare(0, false, 3), ColumnShare(1, false)));

  ASSERT_EQ(zero.Gather().status, STATUS_OK);

  EXPECT_EQ(zero.Target().mRows, 3);
  EXPECT_EQ(zero.Target().mCols, 5);
  EXPECT_FALSE(zero.Target().mRowMajor);
  EXPECT_EQ(zero.Target().mLd, 3);
  EXPECT_EQ(zero.Target().mPartition.type, PARTITION_COLUMN_WISE);
}

TEST(DenseGather, OfPatternGivesUnfilledStorageAndMovesNothing) {
  DenseRank<> zero(0, Pieces(ColumnShare(0, true), ColumnShare(1, true)), false);

  ASSERT_EQ(zero.Gather().status, STATUS_OK);

  EXPECT_THAT(zero.Calls(), ElementsAre(kExchange));
  ExpectOwned(zero.Target().mValues, zero.rank.pool, 15);
  EXPECT_TRUE(LedgerPool::Untouched(zero.Target().mValues.mData, 15 * 8));
  EXPECT_EQ(zero.Target().mLd, 5);
}

TEST(DenseGather, OfPatternTakesNothingOnOtherRanks) {
  DenseRank<> one(1, Pieces(ColumnShare(0, true), ColumnShare(1, true, 1)), false);

  ASSERT_EQ(one.Gather().status, STATUS_OK);

  EXPECT_THAT(one.Calls(), ElementsAre(kExchange));
  EXPECT_EQ(one.Events(), std::vector<PoolEvent>{Took(2 * 72)});
  EXPECT_EQ(one.rank.aggregator.Target(), nullptr);
}

// --- Other numbers of entries than the shape has

// Pieces with 9 elements together, of a 3 x 5 matrix.
std::vector<DensePiece<>> TooFewElements() {
  return Pieces(DenseBlock(1, 3, 1, 1, true).In(3, 5, MatrixPartition::NonzeroWise()),
                DenseBlock(1, 3, 2, 2, true).In(3, 5, MatrixPartition::NonzeroWise()));
}

constexpr char kTooFew[] = "[ERROR] The Global NNZ(9) not equal to 3 * 5.\n";

TEST(DenseElementCount, IsCheckedOnEveryRankBeforeAnyTransfer) {
  for (int const self : {0, 1}) {
    DenseRank<> rank(self, TooFewElements());

    Outcome const gathered = rank.Gather();

    ExpectOutcome(gathered, STATUS_INCONSISTENT, kTooFew + StatusLines(2, STATUS_INCONSISTENT));
    EXPECT_THAT(rank.Calls(), ElementsAre(kExchange));
    EXPECT_EQ(rank.rank.aggregator.Target(), nullptr);
  }
}

TEST(DenseElementCount, IsCheckedBeforeThePieceIsPacked) {
  auto const share = [] {
    return DenseBlock(1, 3, 1, 2, true, 1).In(3, 5, MatrixPartition::NonzeroWise());
  };
  DenseRank<> one(1, Pieces(share(), share()));

  ASSERT_EQ(one.Gather().status, STATUS_INCONSISTENT);

  EXPECT_EQ(one.Events(), std::vector<PoolEvent>{Took(2 * 72)});
}

TEST(DenseElementCount, IsNotCheckedForThePattern) {
  DenseRank<> zero(0, TooFewElements(), false);

  ASSERT_EQ(zero.Gather().status, STATUS_OK);

  EXPECT_EQ(zero.Target().mRows, 3);
  EXPECT_EQ(zero.Target().mCols, 5);
  ExpectOwned(zero.Target().mValues, zero.rank.pool, 9);
}

// --- One rank holds the whole
// ------------------------------------------------------------------

TEST(DenseOneHolder, SendsItsPackedArrayToTheRoot) {
  DenseRank<> one(1, Pieces(EmptyShare(true), WholeShare(true)));

  ASSERT_EQ(one.Gather().status, STATUS_OK);

  EXPECT_EQ(one.rank.comm->Calls().back().sendbuf, one.local.values.data());
  EXPECT_EQ(one.Events(), std::vector<PoolEvent>{Took(2 * 72)});
  EXPECT_EQ(one.rank.aggregator.Target(), nullptr);
}

TEST(DenseOneHolder, PacksPaddedMatrixFirst) {
  DenseRank<> one(1, Pieces(EmptyShare(true), WholeShare(true, 2)));
  std::vector<double> sent(15);
  one.script->On(CommOp::SEND, Keep(sent));

  ASSERT_EQ(one.Gather().status, STATUS_OK);

  EXPECT_THAT(sent, ElementsAre(11, 12, 13, 14, 15, 21, 22, 23, 24, 25, 31, 32, 33, 34, 35));
  EXPECT_EQ(one.Events(),
            (std::vector<PoolEvent>{Took(2 * 72), Took(15 * 8), GaveBack(15 * 8)}));
}

TEST(DenseOneHolder, ReachesTheRootByOneReceive) {
  DenseRank<> zero(0, Pieces(EmptyShare(true), WholeShare(true)));
  zero.script->On(CommOp::RECV, Deliver({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}));

  ASSERT_EQ(zero.Gather().status, STATUS_OK);

  EXPECT_THAT(zero.Calls(), ElementsAre(kExchange, "Recv(15 double from 1 tag 50)"));
  EXPECT_THAT(zero.TargetValues(),
              ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
  EXPECT_EQ(zero.Events(), (std::vector<PoolEvent>{Took(2 * 72), Took(15 * 8)}));
}

TEST(DenseOneHolder, LeavesBystandersAlone) {
  DenseRank<> two(2, Pieces(EmptyShare(true), WholeShare(true), EmptyShare(true)));

  ASSERT_EQ(two.Gather().status, STATUS_OK);

  EXPECT_THAT(two.Calls(), ElementsAre(kExchange));
  EXPECT_EQ(two.Events(), std::vector<PoolEvent>{Took(3 * 72)});
}

TEST(DenseOneHolder, IsBroadcastToAll) {
  DenseRank<> zero(0, Pieces(EmptyShare(true), WholeShare(true)));

  ASSERT_EQ(zero.Allgather().status, STATUS_OK);

  EXPECT_THAT(zero.Calls(), ElementsAre(kExchange, "Bcast(15 double; root 1)"));
  ExpectOwned(zero.Target().mValues, zero.rank.pool, 15);
}

TEST(DenseOneHolder, ThatIsTheRootKeepsViewOfPackedMatrixAndGivesItsStorageBack) {
  DenseRank<> zero(0, Pieces(WholeShare(true), EmptyShare(true)));

  ASSERT_EQ(zero.Gather().status, STATUS_OK);

  EXPECT_THAT(zero.Calls(), ElementsAre(kExchange));
  ExpectBorrowed(zero.Target().mValues, zero.local.values);
  EXPECT_EQ(zero.Events(),
            (std::vector<PoolEvent>{Took(2 * 72), Took(15 * 8), GaveBack(15 * 8)}));
}

TEST(DenseOneHolder, ThatIsTheRootKeepsPackedCopyOfPaddedMatrix) {
  DenseRank<> zero(0, Pieces(WholeShare(true, 1), EmptyShare(true)));

  ASSERT_EQ(zero.Gather().status, STATUS_OK);

  ExpectOwned(zero.Target().mValues, zero.rank.pool, 15);
  EXPECT_THAT(zero.TargetValues(),
              ElementsAre(11, 12, 13, 14, 15, 21, 22, 23, 24, 25, 31, 32, 33, 34, 35));
  EXPECT_EQ(zero.Target().mLd, 5);
  EXPECT_EQ(zero.Events(), (std::vector<PoolEvent>{Took(2 * 72), Took(15 * 8), Took(15 * 8),
                                                   GaveBack(15 * 8)}));
}

TEST(DenseOneHolder, IsBroadcastFromItsOwnArray) {
  DenseRank<> one(1, Pieces(EmptyShare(true), WholeShare(true)));

  ASSERT_EQ(one.Allgather().status, STATUS_OK);

  EXPECT_EQ(one.rank.comm->Calls().back().recvbuf, one.local.values.data());
  ExpectBorrowed(one.Target().mValues, one.local.values);
}

TEST(DenseOneHolder, LeavesOrientationToTheRootsOwnLocalMatrix) {
  DenseRank<> zero(0, Pieces(EmptyShare(false), WholeShare(true)));
  zero.script->On(CommOp::RECV, Deliver({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}));

  ASSERT_EQ(zero.Gather().status, STATUS_OK);

  EXPECT_FALSE(zero.Target().mRowMajor);
  EXPECT_EQ(zero.Target().mLd, 3);
  EXPECT_THAT(zero.TargetValues(),
              ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
}

TEST(DenseOneHolder, OfPatternSendsNothing) {
  DenseRank<> one(1, Pieces(EmptyShare(true), WholeShare(true, 1)), false);

  ASSERT_EQ(one.Gather().status, STATUS_OK);

  EXPECT_THAT(one.Calls(), ElementsAre(kExchange));
  EXPECT_EQ(one.Events(), std::vector<PoolEvent>{Took(2 * 72)});
}

// --- Every rank holds the whole
// ----------------------------------------------------------------

TEST(DenseAllHolders, ReceiveViewOfTheirOwnArrayWithItsLeadingDimension) {
  DenseRank<> zero(0, Pieces(WholeShare(true, 2), WholeShare(true)));

  ASSERT_EQ(zero.Gather().status, STATUS_OK);

  ExpectBorrowed(zero.Target().mValues, zero.local.values);
  EXPECT_EQ(zero.Target().mLd, 7);
  EXPECT_THAT(zero.Calls(), ElementsAre(kExchange));
  EXPECT_EQ(zero.Events(), std::vector<PoolEvent>{Took(2 * 72)});
}

TEST(DenseAllHolders, ReceiveTheElementsInUse) {
  DensePiece<> shorter = WholeShare(true);
  shorter.matrix.mValues.mSize = 14;
  DenseRank<> zero(0, Pieces(std::move(shorter), WholeShare(true)));

  ASSERT_EQ(zero.Gather().status, STATUS_OK);

  EXPECT_EQ(zero.Target().mValues.mSize, 14);
}

TEST(DenseAllHolders, ThatDoNotReceiveDoNothing) {
  DenseRank<> one(1, Pieces(WholeShare(true), WholeShare(true)));

  ASSERT_EQ(one.Gather().status, STATUS_OK);

  EXPECT_EQ(one.rank.aggregator.Target(), nullptr);
  EXPECT_THAT(one.Calls(), ElementsAre(kExchange));
  EXPECT_EQ(one.Events(), std::vector<PoolEvent>{Took(2 * 72)});
}

}  // namespace
}  // namespace Pavex
