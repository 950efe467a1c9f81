// What InitMetadata derives from the records. The checks of later phases follow in
// metadata_checks_test.cpp.

#include "pavex/comm/local_comm.h"
#include "pavex/runtime/self_comm.h"
#include "tests/support/aggregator_probe.h"
#include "tests/support/arrays.h"
#include "tests/support/described_matrix.h"
#include "tests/support/records.h"

#include <gmock/gmock.h>

namespace Pavex {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// A piece of a matrix of `globalRows` x `globalCols`.
DescribedMatrix Piece(std::int64_t rows, std::int64_t cols, long nnz, MatrixPartition partition,
                      std::int64_t globalRows, std::int64_t globalCols) {
  DescribedMatrix piece(STORE_CSR_0, rows, cols, nnz);
  piece.PlaceIn(globalRows, globalCols, partition);
  return piece;
}

// Two row bands of a 10 x 7 matrix.
DescribedMatrix TallPiece(int rank) {
  return rank == 0 ? Piece(4, 7, 28, MatrixPartition::RowWise(0), 10, 7)
                   : Piece(6, 7, 42, MatrixPartition::RowWise(4), 10, 7);
}

// Runs InitMetadata on each rank over `local(rank)` and lets `inspect` look at the result.
template <typename Local, typename Inspect>
void InitOnRanks(int ranks, int root, Local local, Inspect inspect) {
  LocalComm::Run(ranks, [&](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    rank.aggregator.SetComm(rank.comm);
    DescribedMatrix const piece = local(comm->Rank());
    ASSERT_EQ(rank.aggregator.InitMetadata(piece, true, root), STATUS_OK);
    inspect(comm->Rank(), rank);
  });
}

// Rank `rank` of two that hold TallPiece.
RankUnderTest<> TallRank(int rank) {
  DescribedMatrix const first = TallPiece(0);
  DescribedMatrix const second = TallPiece(1);
  return RankUnderTest<>(ScriptedRank(rank, {&first, &second}));
}

TEST(InitMetadata, CountsEntriesOnTheReceiverAlone) {
  InitOnRanks(2, 0, TallPiece, [](int rank, RankUnderTest<>& r) {
    EXPECT_EQ(r.aggregator.mRows, 10);
    EXPECT_EQ(r.aggregator.mCols, 7);
    EXPECT_EQ(r.aggregator.mNnz, 70);
    if (rank == 0) {
      EXPECT_THAT(Elements(r.aggregator.mCounts), ElementsAre(28, 42));
      EXPECT_THAT(Elements(r.aggregator.mDispls), ElementsAre(0, 28));
      EXPECT_EQ(r.pool.Events(), (std::vector<PoolEvent>{Took(144), Took(8), Took(8)}));
    } else {
      EXPECT_EQ(r.aggregator.mCounts.mData, nullptr);
      EXPECT_EQ(r.aggregator.mDispls.mData, nullptr);
      EXPECT_EQ(r.pool.Events(), (std::vector<PoolEvent>{Took(144)}));
    }
  });
}

TEST(InitMetadata, CountsEntriesOnEveryProcessThatReceives) {
  InitOnRanks(2, -1, TallPiece, [](int, RankUnderTest<>& r) {
    EXPECT_THAT(Elements(r.aggregator.mCounts), ElementsAre(28, 42));
    EXPECT_THAT(Elements(r.aggregator.mDispls), ElementsAre(0, 28));
    EXPECT_EQ(r.pool.Events(), (std::vector<PoolEvent>{Took(144), Took(8), Took(8)}));
  });
}

TEST(InitMetadata, SetsTheMembersOfADistributedMatrix) {
  InitOnRanks(2, 0, TallPiece, [](int rank, RankUnderTest<>& r) {
    EXPECT_EQ(r.aggregator.mMode, DISTRIBUTED);
    EXPECT_EQ(r.aggregator.mSourceRank, -2);
    EXPECT_FALSE(r.aggregator.mLocalIsWhole);
    EXPECT_EQ(r.aggregator.mRoot, 0);
    EXPECT_EQ(r.aggregator.mIsReceiver, rank == 0);
  });
}

TEST(InitMetadata, AsksForItsRankThenExchangesTheRecords) {
  InitOnRanks(2, 0, TallPiece, [](int, RankUnderTest<>& r) {
    EXPECT_THAT(r.comm->Texts(), ElementsAre("Rank()", "Size()", "Rank()",
                                             "Allgather(in place 72 byte; 72 byte)"));
  });
}

TEST(InitMetadata, AddsUpTheColumnsOfColumnBands) {
  auto const local = [](int rank) {
    return rank == 0 ? Piece(5, 3, 9, MatrixPartition::ColumnWise(0), 5, 7)
                     : Piece(5, 4, 8, MatrixPartition::ColumnWise(3), 5, 7);
  };
  InitOnRanks(2, 0, local, [](int, RankUnderTest<>& r) {
    EXPECT_EQ(r.aggregator.mRows, 5);
    EXPECT_EQ(r.aggregator.mCols, 7);
    EXPECT_EQ(r.aggregator.mNnz, 17);
  });
}

TEST(InitMetadata, TakesBandsThatCoverAPartOfTheColumns) {
  auto const local = [](int rank) {
    return rank == 0 ? Piece(5, 3, 9, MatrixPartition::ColumnWise(2), 5, 7)
                     : Piece(5, 2, 8, MatrixPartition::ColumnWise(5), 5, 7);
  };
  InitOnRanks(2, 0, local, [](int, RankUnderTest<>& r) {
    EXPECT_EQ(r.aggregator.mRows, 5);
    EXPECT_EQ(r.aggregator.mCols, 5);
    EXPECT_EQ(r.aggregator.mGlobalCols, 7);
    EXPECT_EQ(r.aggregator.mPartition.begin, 2);
    EXPECT_EQ(r.aggregator.LocalRowColBegin(MatrixPartition::ColumnWise(5)), 3);
  });
}

TEST(InitMetadata, TakesBandsThatCoverAPartOfTheRows) {
  auto const local = [](int rank) {
    return rank == 0 ? Piece(4, 3, 9, MatrixPartition::RowWise(20), 100, 7)
                     : Piece(6, 3, 8, MatrixPartition::RowWise(24), 100, 7);
  };
  InitOnRanks(2, 0, local, [](int, RankUnderTest<>& r) {
    EXPECT_EQ(r.aggregator.mRows, 10);
    EXPECT_EQ(r.aggregator.mCols, 7);
    EXPECT_EQ(r.aggregator.mGlobalRows, 100);
  });
}

TEST(InitMetadata, GivesNonzeroWiseSharesTheGlobalShape) {
  auto const local = [](int rank) {
    return Piece(3, 2 + rank, 5 + rank, MatrixPartition::NonzeroWise(), 11, 13);
  };
  InitOnRanks(3, -1, local, [](int, RankUnderTest<>& r) {
    EXPECT_EQ(r.aggregator.mRows, 11);
    EXPECT_EQ(r.aggregator.mCols, 13);
    EXPECT_EQ(r.aggregator.mNnz, 18);
    EXPECT_THAT(Elements(r.aggregator.mDispls), ElementsAre(0, 5, 11));
  });
}

TEST(InitMetadata, TakesEverythingFromTheOnlyHolder) {
  LocalComm::Run(3, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    rank.aggregator.SetComm(rank.comm);
    bool const holder = comm->Rank() == 2;
    DescribedMatrix piece(holder ? STORE_CSC_1 : STORE_CSR_0, holder ? 5 : 0, holder ? 7 : 0,
                          9);
    piece.mPattern = holder ? 31 : 1;
    piece.mAttribute = holder ? 32 : 2;
    piece.PlaceIn(50 + comm->Rank(), 70 + comm->Rank(),
                  holder ? MatrixPartition::ColumnWise(6) : MatrixPartition{});

    // The flag of the holder decides; the flags of the others do not matter.
    ASSERT_EQ(rank.aggregator.InitMetadata(piece, !holder, 0), STATUS_OK);

    EXPECT_EQ(rank.aggregator.mMode, CENTRALIZED_ONE);
    EXPECT_EQ(rank.aggregator.mSourceRank, 2);
    EXPECT_EQ(rank.aggregator.mLocalIsWhole, holder);
    EXPECT_EQ(rank.aggregator.mIsReceiver, comm->Rank() == 0);
    EXPECT_FALSE(rank.aggregator.mWithValues);
    EXPECT_EQ(rank.aggregator.mStoreType, STORE_CSC_1);
    EXPECT_EQ(rank.aggregator.mPattern, 31);
    EXPECT_EQ(rank.aggregator.mAttribute, 32);
    EXPECT_EQ(rank.aggregator.mPartition.type, PARTITION_COLUMN_WISE);
    EXPECT_EQ(rank.aggregator.mPartition.begin, 6);
    EXPECT_EQ(rank.aggregator.mGlobalRows, 52);
    EXPECT_EQ(rank.aggregator.mGlobalCols, 72);
    EXPECT_EQ(rank.aggregator.mRows, 5);
    EXPECT_EQ(rank.aggregator.mCols, 7);
    EXPECT_EQ(rank.aggregator.mNnz, 9);
    EXPECT_THAT(rank.comm->Texts(),
                ElementsAre("Rank()", "Size()", "Rank()",
                            "Allgather(in place 72 byte; 72 byte)", "Rank()"));
    EXPECT_EQ(rank.pool.Events(), (std::vector<PoolEvent>{Took(216)}));
  });
}

TEST(InitMetadata, TakesTheFirstRecordIfEveryProcessIsEmpty) {
  auto const local = [](int) { return DescribedMatrix(STORE_COO_0, 5, 7, 0); };
  InitOnRanks(2, 0, local, [](int, RankUnderTest<>& r) {
    EXPECT_EQ(r.aggregator.mMode, CENTRALIZED_ALL);
    EXPECT_EQ(r.aggregator.mSourceRank, -1);
    EXPECT_TRUE(r.aggregator.mLocalIsWhole);
    EXPECT_EQ(r.aggregator.mRows, 5);
    EXPECT_EQ(r.aggregator.mCols, 7);
    EXPECT_EQ(r.aggregator.mNnz, 0);
  });
}

TEST(InitMetadata, TakesTheWholeThatEveryProcessHoldsWithoutCounts) {
  auto const local = [](int rank) { return DescribedMatrix(STORE_COO_0, 5, 7, 3 + rank); };
  InitOnRanks(2, -1, local, [](int, RankUnderTest<>& r) {
    EXPECT_EQ(r.aggregator.mMode, CENTRALIZED_ALL);
    EXPECT_EQ(r.aggregator.mSourceRank, -1);
    EXPECT_TRUE(r.aggregator.mLocalIsWhole);
    EXPECT_TRUE(r.aggregator.mIsReceiver);
    EXPECT_EQ(r.aggregator.mNnz, 3);
    EXPECT_EQ(r.pool.Events(), (std::vector<PoolEvent>{Took(144)}));
  });
}

TEST(InitMetadata, MakesASingleProcessTheReceiverOfBothFrontDoors) {
  for (int const root : {0, -1}) {
    RankUnderTest<> rank(std::make_shared<SelfComm>());
    rank.aggregator.SetComm(rank.comm);

    ASSERT_EQ(rank.aggregator.InitMetadata(TallPiece(1), true, root), STATUS_OK);

    EXPECT_EQ(rank.aggregator.mMode, CENTRALIZED_ALL);
    EXPECT_TRUE(rank.aggregator.mIsReceiver);
    EXPECT_EQ(rank.aggregator.mRoot, root);
    EXPECT_THAT(rank.comm->Texts(), ElementsAre("Rank()", "Size()", "Rank()"));
  }
}

TEST(InitMetadata, LeavesTheCountsOfAProcessThatReceivesNoMore) {
  RankUnderTest<> rank = TallRank(1);
  rank.aggregator.SetComm(rank.comm);
  ASSERT_EQ(rank.aggregator.InitMetadata(TallPiece(1), true, -1), STATUS_OK);
  rank.ForgetThePast();

  ASSERT_EQ(rank.aggregator.InitMetadata(TallPiece(1), true, 0), STATUS_OK);

  EXPECT_THAT(Elements(rank.aggregator.mCounts), ElementsAre(28, 42));
  EXPECT_EQ(rank.pool.Events(), (std::vector<PoolEvent>{Took(144), GaveBack(144)}));
}

TEST(InitMetadata, AllocatesTheCountsAfreshOnEveryGather) {
  RankUnderTest<> rank = TallRank(0);
  rank.aggregator.SetComm(rank.comm);
  ASSERT_EQ(rank.aggregator.InitMetadata(TallPiece(0), true, 0), STATUS_OK);
  rank.ForgetThePast();

  ASSERT_EQ(rank.aggregator.InitMetadata(TallPiece(0), true, 0), STATUS_OK);

  EXPECT_EQ(rank.pool.Events(), (std::vector<PoolEvent>{Took(144), GaveBack(144), Took(8),
                                                        GaveBack(8), Took(8), GaveBack(8)}));
}

TEST(InitMetadata, WrapsCountsAndDisplacementsBeyondTheRangeOfInt) {
  long const most = 2147483647;
  DescribedMatrix const first = Piece(4, 7, most, MatrixPartition::RowWise(0), 10, 7);
  DescribedMatrix const second = Piece(5, 7, most, MatrixPartition::RowWise(4), 10, 7);
  DescribedMatrix const third = Piece(1, 7, 2 * most + 7, MatrixPartition::RowWise(9), 10, 7);
  RankUnderTest<> rank(ScriptedRank(0, {&first, &second, &third}));
  rank.aggregator.SetComm(rank.comm);

  std::string const output = CaptureStdout(
      [&] { EXPECT_EQ(rank.aggregator.InitMetadata(first, true, 0), STATUS_OK); });

  EXPECT_THAT(Elements(rank.aggregator.mDispls), ElementsAre(0, 2147483647, -2));
  EXPECT_THAT(Elements(rank.aggregator.mCounts), ElementsAre(2147483647, 2147483647, 5));
  EXPECT_EQ(rank.aggregator.mNnz, 4 * most + 7);
  EXPECT_EQ(output, "");
}

// --- Failures

Outcome Init(RankUnderTest<>& rank, MatrixBase const& local) {
  rank.aggregator.SetComm(rank.comm);
  return Watch([&] { return rank.aggregator.InitMetadata(local, true, 0); });
}

TEST(InitMetadata, ReportsAFailedExchange) {
  for (PavexStatus const failure : {-77, 5}) {
    RankUnderTest<> rank = TallRank(0);
    rank.comm->Fail(Fault::Once(1, failure));

    Outcome const outcome = Init(rank, TallPiece(0));

    EXPECT_EQ(outcome.status, failure);
    EXPECT_EQ(outcome.output, StatusLines(2, failure));
  }
}

TEST(InitMetadata, ReportsAPoolThatHasNoRoomForTheRecords) {
  RankUnderTest<> rank = TallRank(0);
  rank.pool.Fail(Fault::Once(1, -77));

  Outcome const outcome = Init(rank, TallPiece(0));

  EXPECT_EQ(outcome.status, -77);
  EXPECT_EQ(outcome.output, StatusLines(2, -77));
  EXPECT_THAT(rank.comm->DataTexts(), IsEmpty());
}

TEST(InitMetadata, SkipsTheDisplacementsIfThereIsNoRoomForTheCounts) {
  for (PavexStatus const failure : {-77, 5}) {
    RankUnderTest<> rank = TallRank(0);
    rank.pool.Fail(Fault::Once(2, failure));

    Outcome const outcome = Init(rank, TallPiece(0));

    EXPECT_EQ(outcome.status, failure);
    EXPECT_EQ(outcome.output, StatusLines(1, failure));
    EXPECT_EQ(rank.pool.Events(), (std::vector<PoolEvent>{Took(144), Refused(8)}));
  }
}

TEST(InitMetadata, ReportsAPoolThatHasNoRoomForTheDisplacements) {
  RankUnderTest<> rank = TallRank(0);
  rank.pool.Fail(Fault::Once(3, -77));

  Outcome const outcome = Init(rank, TallPiece(0));

  EXPECT_EQ(outcome.status, -77);
  EXPECT_EQ(outcome.output, StatusLines(1, -77));
  EXPECT_EQ(rank.pool.Events(), (std::vector<PoolEvent>{Took(144), Took(8), Refused(8)}));
}

TEST(InitMetadata, LeavesNewCountsAndOldDisplacementsIfThereIsNoRoomForTheLatter) {
  RankUnderTest<> rank = TallRank(0);
  ASSERT_EQ(Init(rank, TallPiece(0)).status, STATUS_OK);
  int const* const earlier = rank.aggregator.mCounts.mData;
  rank.pool.Fail(Fault::Once(3, -77));

  Outcome const outcome = Init(rank, Piece(4, 7, 30, MatrixPartition::RowWise(0), 10, 7));

  EXPECT_EQ(outcome.status, -77);
  EXPECT_NE(rank.aggregator.mCounts.mData, earlier);
  EXPECT_TRUE(LedgerPool::Untouched(rank.aggregator.mCounts.mData, 2 * sizeof(int)));
  EXPECT_THAT(Elements(rank.aggregator.mDispls), ElementsAre(0, 28));
}

TEST(InitMetadata, ReportsAModeThatCannotBe) {
  DescribedMatrix const empty(STORE_CSR_0, 0, 0, 0);
  DescribedMatrix const whole = TallPiece(0);
  RankUnderTest<> rank(ScriptedRank(0, {&whole, &whole, &empty, &empty}));

  Outcome const outcome = Init(rank, whole);

  EXPECT_EQ(outcome.status, -16);
  EXPECT_EQ(outcome.output,
            "[ERROR] Invalid distribution mode: 2 processes (out of 4) has empty local "
            "matrix.\n" +
                StatusLines(1, -16));
}

TEST(InitMetadata, ReportsADisagreementOfThePieces) {
  DescribedMatrix const first = TallPiece(0);
  DescribedMatrix const gap = Piece(6, 7, 42, MatrixPartition::RowWise(5), 10, 7);
  RankUnderTest<> rank(ScriptedRank(0, {&first, &gap}));

  Outcome const outcome = Init(rank, first);

  EXPECT_EQ(outcome.status, -16);
  EXPECT_EQ(outcome.output, "[ERROR] Local matrices are not adjacent for DISTRIBUTED mode.\n" +
                                StatusLines(1, -16));
}

TEST(InitMetadata, ReportsAnUnknownPartition) {
  DescribedMatrix const odd = Piece(4, 7, 28, {77, 0}, 10, 7);
  RankUnderTest<> rank(ScriptedRank(0, {&odd, &odd}));

  Outcome const outcome = Init(rank, odd);

  EXPECT_EQ(outcome.status, -7);
  EXPECT_EQ(outcome.output, "[ERROR] Unknown partition type, 77.\n" + StatusLines(1, -7));
}

TEST(InitMetadata, KeepsTheRestOfTheMembersIfACheckFails) {
  RankUnderTest<> rank = TallRank(0);
  ASSERT_EQ(Init(rank, TallPiece(0)).status, STATUS_OK);
  DescribedMatrix const whole(STORE_COO_0, 3, 3, 2);
  DescribedMatrix const other(STORE_COO_0, 3, 4, 2);
  rank.comm = std::make_shared<TraceComm>(ScriptedRank(0, {&whole, &other}));

  ASSERT_EQ(Init(rank, whole).status, -16);

  EXPECT_EQ(rank.aggregator.mMode, CENTRALIZED_ALL);
  EXPECT_EQ(rank.aggregator.mSourceRank, -1);
  EXPECT_TRUE(rank.aggregator.mLocalIsWhole);
  EXPECT_EQ(rank.aggregator.mLocalInfos.mData[0].rows, 3);
  EXPECT_EQ(rank.aggregator.mStoreType, STORE_CSR_0);
  EXPECT_EQ(rank.aggregator.mRows, 10);
  EXPECT_EQ(rank.aggregator.mNnz, 70);
  EXPECT_THAT(Elements(rank.aggregator.mCounts), ElementsAre(28, 42));
}

TEST(InitMetadata, PrintsTheModeWithDebugLinesOn) {
  LogLevel const level(LOG_DEBUG);
  RankUnderTest<> rank = TallRank(0);

  EXPECT_EQ(Init(rank, TallPiece(0)).output, "[DEBUG] Matrix mode is DISTRIBUTED.\n");
}

TEST(InitMetadata, PrintsTheIgnoredPartitionAfterTheModeWithDebugLinesOn) {
  LogLevel const level(LOG_DEBUG);
  DescribedMatrix const piece = TallPiece(0);
  DescribedMatrix const empty(STORE_CSR_0, 0, 0, 0);
  RankUnderTest<> rank(ScriptedRank(0, {&piece, &empty}));

  EXPECT_EQ(Init(rank, piece).output,
            "[DEBUG] Matrix mode is CENTRALIZED_ONE.\n"
            "[DEBUG] Partition type (row-wise) ignored for CENTRALIZED_ONE mode.\n");
}

}  // namespace
}  // namespace Pavex
