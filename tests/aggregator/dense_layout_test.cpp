// The layout of dense values in the messages and in the gathered matrix, observed through the
// operations that move them.

#include "pavex/comm/local_comm.h"
#include "tests/support/arrays.h"
#include "tests/support/dense_rank.h"
#include "tests/support/log_level.h"

#include <gmock/gmock.h>

namespace Pavex {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr char kOrderReceived[] = "[DEBUG] Reorder values of dense matrix from received data\n";
constexpr char kOrderToSend[] = "[DEBUG] Reorder values of dense matrix to send out.\n";
constexpr char kDistributed[] = "[DEBUG] Matrix mode is DISTRIBUTED.\n";

// --- What a piece contributes

TEST(PackedPiece, IsSentFromTheLocalArrayItself) {
  DenseRank<> one(1, Pieces(ColumnShare(0, true), ColumnShare(1, true)));

  ASSERT_EQ(one.Gather().status, STATUS_OK);

  CommCall const& sent = one.rank.comm->Calls().back();
  EXPECT_EQ(sent.op, CommOp::GATHERV);
  EXPECT_EQ(sent.sendbuf, one.local.values.data());
  EXPECT_EQ(one.Events(), std::vector<PoolEvent>{Took(2 * 72)});
}

TEST(PaddedPiece, IsSentFromPackedCopyThatIsGivenBack) {
  DenseRank<> one(1, Pieces(ColumnShare(0, true), ColumnShare(1, true, 2)));
  std::vector<double> sent(9);
  one.script->On(CommOp::GATHERV, Keep(sent));

  ASSERT_EQ(one.Gather().status, STATUS_OK);

  EXPECT_THAT(sent, ElementsAre(13, 14, 15, 23, 24, 25, 33, 34, 35));
  EXPECT_THAT(one.Calls().back(), "Gatherv(9 double; double; root 0)");
  EXPECT_EQ(one.Events(), (std::vector<PoolEvent>{Took(2 * 72), Took(9 * 8), GaveBack(9 * 8)}));
}

TEST(PaddedPiece, IsPackedColumnByColumnIfColumnMajor) {
  DenseRank<> one(1, Pieces(RowShare(0, false), RowShare(1, false, 1)));
  std::vector<double> sent(10);
  one.script->On(CommOp::GATHERV, Keep(sent));

  ASSERT_EQ(one.Gather().status, STATUS_OK);

  EXPECT_THAT(sent, ElementsAre(21, 31, 22, 32, 23, 33, 24, 34, 25, 35));
}

TEST(EmptyPiece, SendsZeroElementsAndTakesNothingFromThePool) {
  // Rank 1 gathers from rank 0, and then goes on as if every rank had a piece.
  DenseRank<> one(1, Pieces(WholeShare(true), DensePiece<>(0, 5, true, 9, {1, 2, 3})));
  ASSERT_EQ(one.Gather().status, STATUS_OK);
  one.rank.aggregator.mMode = DISTRIBUTED;
  one.rank.aggregator.mPartition = MatrixPartition::RowWise(0);
  one.rank.ForgetThePast();

  ASSERT_EQ(one.Update(one.local).status, STATUS_OK);

  EXPECT_THAT(one.Calls(), ElementsAre("Gatherv(0 double; double; root 0)"));
  EXPECT_EQ(one.rank.comm->Calls().back().sendbuf, nullptr);
  EXPECT_THAT(one.Events(), IsEmpty());
}

// --- The number of elements sent for a piece that is already packed

// A 3 x 1 column with a leading dimension of 5, whose array contains all 5 elements.
DensePiece<> LongColumn(int rank) {
  return DensePiece<>(3, 1, false, 5, {1, 2, 3, kGap, kGap})
      .In(3, 2, MatrixPartition::ColumnWise(rank));
}

TEST(PackedPiece, SendsAsManyElementsAsItsArrayHas) {
  DenseRank<> one(1, Pieces(LongColumn(0), LongColumn(1)));

  ASSERT_EQ(one.Gather().status, STATUS_OK);

  EXPECT_THAT(one.Calls().back(), "Gatherv(5 double; double; root 0)");
  EXPECT_EQ(one.rank.comm->Calls().back().sendbuf, one.local.values.data());
}

TEST(PackedPiece, WithLongerArrayIsRefusedByTheCommunicator) {
  LogLevel const quiet(-1);
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    DensePiece<> const piece = LongColumn(comm->Rank());

    EXPECT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_COMM_FAILED);

    EXPECT_EQ(rank.aggregator.Target(), nullptr);
  });
}

TEST(PackedPiece, IsGatheredIfItsArrayEndsWithItsLastRun) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    DensePiece<> piece = LongColumn(comm->Rank());
    piece.matrix.mValues.mSize = 3;

    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, true), STATUS_OK);

    EXPECT_THAT(Elements(rank.Target<MatrixDense<double, int>>().mValues),
                ElementsAre(1, 2, 3, 1, 2, 3));
  });
}

// --- Pieces for which both layouts are the same

// Gathers on rank 0 of two while the numbers 0, 1, ... arrive; expects them to stay where they
// arrived, in the storage that was taken for them.
void ExpectReceiveOrder(std::vector<DensePiece<>> pieces, std::vector<int> const& arriving) {
  LogLevel const level(LOG_DEBUG);
  DenseRank<> zero(0, std::move(pieces));
  zero.script->On(CommOp::GATHERV, Deliver(arriving));

  Outcome const gathered = zero.Gather();

  ExpectOutcome(gathered, STATUS_OK, kDistributed);
  EXPECT_THAT(zero.TargetValues(), ElementsAreArray(arriving));
  EXPECT_EQ(zero.Target().mValues.mData, zero.rank.comm->Calls().back().recvbuf);
  EXPECT_EQ(zero.Events(), (std::vector<PoolEvent>{Took(2 * 72), Took(2 * 4), Took(2 * 4),
                                                   Took(arriving.size() * 8)}));
}

std::vector<int> const kFifteen = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14};

TEST(DenseGatherOrder, IsReceiveOrderForRowMajorRowBands) {
  ExpectReceiveOrder(Pieces(RowShare(0, true), RowShare(1, true)), kFifteen);
}

TEST(DenseGatherOrder, IsReceiveOrderForColumnMajorColumnBands) {
  ExpectReceiveOrder(Pieces(ColumnShare(0, false), ColumnShare(1, false)), kFifteen);
}

TEST(DenseGatherOrder, IsReceiveOrderForSingleGatheredRow) {
  auto const share = [](int begin, int cols) {
    return DenseBlock(1, 1, 1 + begin, cols, true).In(1, 5, MatrixPartition::ColumnWise(begin));
  };
  ExpectReceiveOrder(Pieces(share(0, 2), share(2, 3)), {0, 1, 2, 3, 4});
}

TEST(DenseGatherOrder, IsReceiveOrderForSingleGatheredColumn) {
  auto const share = [](int begin, int rows) {
    return DenseBlock(1 + begin, rows, 1, 1, false).In(5, 1, MatrixPartition::RowWise(begin));
  };
  ExpectReceiveOrder(Pieces(share(0, 2), share(2, 3)), {0, 1, 2, 3, 4});
}

// --- Pieces that are side by side

TEST(DenseGatherOrder, PlacesColumnBandsSideBySideInRowMajorTarget) {
  LogLevel const level(LOG_DEBUG);
  DenseRank<> zero(0, Pieces(ColumnShare(0, true), ColumnShare(1, true)));
  zero.script->On(CommOp::GATHERV, Deliver(kFifteen));

  Outcome const gathered = zero.Gather();

  ExpectOutcome(gathered, STATUS_OK, std::string(kDistributed) + kOrderReceived);
  // Element 9 of the message is at 7: row 1, column 2. Element 3 is at 6: row 1, column 1.
  EXPECT_THAT(zero.TargetValues(),
              ElementsAre(0, 1, 6, 7, 8, 2, 3, 9, 10, 11, 4, 5, 12, 13, 14));
  EXPECT_EQ(zero.Target().mLd, 5);
}

TEST(DenseGatherOrder, PlacesRowBandsSideBySideInColumnMajorTarget) {
  LogLevel const level(LOG_DEBUG);
  DenseRank<> zero(0, Pieces(RowShare(0, false), RowShare(1, false)));
  zero.script->On(CommOp::GATHERV, Deliver(kFifteen));

  Outcome const gathered = zero.Gather();

  ExpectOutcome(gathered, STATUS_OK, std::string(kDistributed) + kOrderReceived);
  EXPECT_THAT(zero.TargetValues(),
              ElementsAre(0, 5, 6, 1, 7, 8, 2, 9, 10, 3, 11, 12, 4, 13, 14));
  EXPECT_EQ(zero.Target().mLd, 3);
}

TEST(DenseGatherOrder, ReordersIntoStorageOfItsOwnAndGivesTheReceivedBack) {
  DenseRank<> zero(0, Pieces(ColumnShare(0, true), ColumnShare(1, true, 1)));

  ASSERT_EQ(zero.Gather().status, STATUS_OK);

  EXPECT_EQ(zero.Events(),
            (std::vector<PoolEvent>{Took(2 * 72), Took(2 * 4), Took(2 * 4), Took(15 * 8),
                                    Took(15 * 8), GaveBack(15 * 8)}));
  EXPECT_NE(zero.Target().mValues.mData, zero.rank.comm->Calls()[4].recvbuf);
  EXPECT_EQ(zero.Target().mValues.mSize, 15);
  EXPECT_EQ(zero.Target().mValues.mCapacity, 15);
  EXPECT_EQ(zero.Target().mValues.mAllocator, &zero.rank.pool);
}

TEST(DenseGatherOrder, KeepsThePackedPieceThroughTheReordering) {
  DenseRank<> zero(0, Pieces(ColumnShare(0, true, 1), ColumnShare(1, true)));

  ASSERT_EQ(zero.Gather().status, STATUS_OK);

  EXPECT_EQ(zero.Events(), (std::vector<PoolEvent>{Took(2 * 72), Took(2 * 4), Took(2 * 4),
                                                   Took(15 * 8), Took(6 * 8), Took(15 * 8),
                                                   GaveBack(15 * 8), GaveBack(6 * 8)}));
  EXPECT_EQ(zero.rank.pool.PeakBytes(), 2U * 72 + 2 * 8 + (15 + 6 + 15) * 8);
}

TEST(DenseGatherOrder, TreatsSharesOfEntriesAsBandsAcrossTheRuns) {
  auto const share = [](int first, int cols) {
    return DenseBlock(1, 2, first, cols, true).In(2, 3, MatrixPartition::NonzeroWise());
  };
  DenseRank<> zero(0, Pieces(share(1, 1), share(2, 2)));
  zero.script->On(CommOp::GATHERV, Deliver({11, 21, 12, 13, 22, 23}));

  ASSERT_EQ(zero.Gather().status, STATUS_OK);

  EXPECT_THAT(zero.TargetValues(), ElementsAre(11, 12, 13, 21, 22, 23));
}

TEST(DenseGatherOrder, LetsLaterPiecesWinAndLeavesUnreachedElementsAsThePoolGaveThem) {
  // The pieces are full rows that are declared as shares of the entries. Each piece starts one
  // run length after the previous one, for any number of rows.
  auto const share = [](int first, int rows) {
    return DenseBlock(first, rows, 1, 2, true).In(3, 2, MatrixPartition::NonzeroWise());
  };
  DenseRank<> zero(0, Pieces(share(1, 2), share(3, 1)));
  zero.script->On(CommOp::GATHERV, Deliver({11, 12, 21, 22, 31, 32}));

  ASSERT_EQ(zero.Gather().status, STATUS_OK);

  std::vector<double> const values = zero.TargetValues();
  EXPECT_THAT(std::vector<double>(values.begin(), values.begin() + 4),
              ElementsAre(11, 12, 31, 32));
  EXPECT_TRUE(LedgerPool::Untouched(zero.Target().mValues.mData + 4, 2 * 8));
}

// --- Pieces that would land outside

// 3 x 1 and 1 x 3 elements are as many as 2 x 3, but the first piece has more rows than the
// whole.
std::vector<DensePiece<>> PiecesThatDoNotTile() {
  return Pieces(DenseBlock(1, 3, 1, 1, true).In(2, 3, MatrixPartition::NonzeroWise()),
                DenseBlock(1, 1, 1, 3, true).In(2, 3, MatrixPartition::NonzeroWise()));
}

TEST(DensePiecesThatDoNotTile, AreRefusedOnEveryRankBeforeAnyTransfer) {
  for (int const self : {0, 1}) {
    DenseRank<> rank(self, PiecesThatDoNotTile());

    Outcome const gathered = rank.Gather();

    // The step, the dense gather and the public operation log one line each.
    ExpectOutcome(gathered, STATUS_INCONSISTENT, StatusLines(3, STATUS_INCONSISTENT));
    EXPECT_THAT(rank.Calls(), ElementsAre("Allgather(in place 72 byte; 72 byte)"));
    EXPECT_EQ(rank.rank.aggregator.Target(), nullptr);
  }
}

TEST(DensePiecesThatDoNotTile, AreRefusedByUpdateAndScatterAfterGatherOfThePattern) {
  for (int const self : {0, 1}) {
    DenseRank<> rank(self, PiecesThatDoNotTile(), false);
    ASSERT_EQ(rank.Gather().status, STATUS_OK);
    rank.rank.ForgetThePast();

    Outcome const updated = rank.Update(rank.local);
    Outcome const scattered = rank.Scatter(rank.local);

    ExpectOutcome(updated, STATUS_INCONSISTENT, StatusLines(2, STATUS_INCONSISTENT));
    ExpectOutcome(scattered, STATUS_INCONSISTENT, StatusLines(1, STATUS_INCONSISTENT));
    EXPECT_THAT(rank.Calls(), IsEmpty());
  }
}

// --- The way back

TEST(DenseScatterOrder, SendsFromTheGatheredArrayWhereLayoutsCoincide) {
  LogLevel const level(LOG_DEBUG);
  DenseRank<> zero(0, Pieces(RowShare(0, true), RowShare(1, true)));
  ASSERT_EQ(zero.Gather().status, STATUS_OK);
  zero.rank.ForgetThePast();

  Outcome const scattered = zero.Scatter(zero.local);

  ExpectOutcome(scattered, STATUS_OK, "");
  EXPECT_EQ(zero.rank.comm->Calls().back().sendbuf, zero.Target().mValues.mData);
  EXPECT_THAT(zero.Events(), IsEmpty());
}

TEST(DenseScatterOrder, SendsReorderedCopyWherePiecesLieSideBySide) {
  LogLevel const level(LOG_DEBUG);
  DenseRank<> zero(0, Pieces(ColumnShare(0, true), ColumnShare(1, true)));
  std::vector<double> sent(15);
  zero.script->On(CommOp::SCATTERV, Keep(sent));
  ASSERT_EQ(zero.Gather().status, STATUS_OK);
  std::copy(kFifteen.begin(), kFifteen.end(), zero.Target().mValues.mData);
  zero.rank.ForgetThePast();

  Outcome const scattered = zero.Scatter(zero.local);

  ExpectOutcome(scattered, STATUS_OK, kOrderToSend);
  EXPECT_THAT(sent, ElementsAre(0, 1, 5, 6, 10, 11, 2, 3, 4, 7, 8, 9, 12, 13, 14));
  EXPECT_EQ(zero.Events(), (std::vector<PoolEvent>{Took(15 * 8), GaveBack(15 * 8)}));
}

TEST(DenseScatterOrder, IsReorderedOnTheRootOnly) {
  LogLevel const level(LOG_DEBUG);
  DenseRank<> one(1, Pieces(ColumnShare(0, true), ColumnShare(1, true)));
  ASSERT_THAT(one.Gather().output, Not(HasSubstr("Reorder")));
  one.rank.ForgetThePast();

  Outcome const scattered = one.Scatter(one.local);

  ExpectOutcome(scattered, STATUS_OK, "");
  EXPECT_THAT(one.Events(), IsEmpty());
}

}  // namespace
}  // namespace Pavex
