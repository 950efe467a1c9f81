// The public operations: which ranks receive, what is refused, and what is printed.

#include "pavex/comm/local_comm.h"
#include "tests/support/described_matrix.h"
#include "tests/support/log_level.h"
#include "tests/support/shares.h"

#include <gmock/gmock.h>
#include <typeinfo>
#include <utility>

namespace Pavex {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// --- One process

TEST(SingleProcess, ReceivesAnyMatrixFromGatherAndAllgather) {
  CooPiece<> const empty(0, 0, {}, {}, {});
  CooPiece<> const partitioned = Share(1);
  CooPiece<> const whole(4, 5, {0, 1}, {0, 2}, {10, 20});
  for (CooPiece<> const* const piece : {&empty, &partitioned, &whole}) {
    RankUnderTest<> rank = SingleRank();

    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece->matrix, true), STATUS_OK);
    EXPECT_EQ(rank.aggregator.mMode, CENTRALIZED_ALL);
    EXPECT_NE(rank.aggregator.Target(), nullptr);

    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece->matrix, true), STATUS_OK);
    EXPECT_EQ(rank.aggregator.mMode, CENTRALIZED_ALL);
    EXPECT_NE(rank.aggregator.Target(), nullptr);
  }
}

TEST(SingleProcess, MovesNothingAndTakesOnlyItsRecord) {
  RankUnderTest<> rank = SingleRank();
  CooPiece<> const piece = Share(1);

  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);

  EXPECT_THAT(rank.comm->Texts(), ElementsAre("Rank()", "Size()", "Rank()"));
  EXPECT_EQ(rank.pool.Events(), std::vector<PoolEvent>{Took(72)});
}

// --- The result as its class

TEST(TargetAs, GivesTheGatheredMatrixAsItsClass) {
  RankUnderTest<> rank = SingleRank();
  CooPiece<> const piece = Share(1);
  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);
  auto const& readOnly = rank.aggregator;

  MatrixCOO<double, int>* const whole = rank.aggregator.TargetAs<MatrixCOO<double, int>>();
  MatrixCOO<double, int> const* const seen = readOnly.TargetAs<MatrixCOO<double, int>>();

  EXPECT_EQ(whole, rank.aggregator.Target());
  EXPECT_EQ(seen, whole);
}

TEST(TargetAs, IsNullWithoutAGatheredMatrix) {
  RankUnderTest<> rank = SingleRank();
  auto const& readOnly = rank.aggregator;

  EXPECT_EQ((rank.aggregator.TargetAs<MatrixCOO<double, int>>()), nullptr);
  EXPECT_EQ((readOnly.TargetAs<MatrixCSR<double, int>>()), nullptr);
}

TEST(TargetAs, ThrowsBadCastForAnotherClass) {
  RankUnderTest<> rank = SingleRank();
  CooPiece<> const piece = Share(1);
  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);
  auto const& readOnly = rank.aggregator;

  EXPECT_THROW((rank.aggregator.TargetAs<MatrixCSR<double, int>>()), std::bad_cast);
  EXPECT_THROW((readOnly.TargetAs<MatrixCOO<double, long>>()), std::bad_cast);
}

// --- Who receives

TEST(FrontDoors, GatherOntoRankZeroOnly) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    CooPiece<> const piece = Share(comm->Rank());

    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);

    EXPECT_EQ(rank.aggregator.mRoot, 0);
    EXPECT_EQ(rank.aggregator.Target() != nullptr, comm->Rank() == 0);
    EXPECT_EQ((rank.aggregator.TargetAs<MatrixCOO<double, int>>()), rank.aggregator.Target());
  });
}

TEST(FrontDoors, AllgatherOntoEveryRank) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    CooPiece<> const piece = Share(comm->Rank());

    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, true), STATUS_OK);

    EXPECT_EQ(rank.aggregator.mRoot, -1);
    EXPECT_NE(rank.aggregator.Target(), nullptr);
  });
}

TEST(FrontDoors, GatherPiecesAfterAWholeMatrix) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    CooPiece<> const whole(4, 5, {0, 1}, {0, 2}, {10, 20});
    CooPiece<> const piece = Share(comm->Rank());
    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, whole.matrix, true), STATUS_OK);
    ASSERT_TRUE(rank.aggregator.mLocalIsWhole);

    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, true), STATUS_OK);

    EXPECT_FALSE(rank.aggregator.mLocalIsWhole);
    EXPECT_EQ(rank.aggregator.mSourceRank, -2);
    EXPECT_EQ(rank.aggregator.Target()->NNZ(), Share(0).matrix.NNZ() + Share(1).matrix.NNZ());
  });
}

TEST(FrontDoors, StampTheGatheredMatrixWithTheReferenceProcessesDescription) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    bool const holder = comm->Rank() == 1;
    CooPiece<> piece = holder ? Share(1) : CooPiece<>(0, 0, {}, {}, {});
    piece.matrix.mPattern = holder ? 31 : 1;
    piece.matrix.mAttribute = holder ? 32 : 2;
    piece.matrix.PlaceIn(40 + comm->Rank(), 50 + comm->Rank(),
                         holder ? MatrixPartition::ColumnWise(6) : MatrixPartition{});

    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, true), STATUS_OK);

    MatrixBase const& target = *rank.aggregator.Target();
    EXPECT_EQ(target.mRows, 4);
    EXPECT_EQ(target.mCols, 5);
    EXPECT_EQ(target.mPattern, 31);
    EXPECT_EQ(target.mAttribute, 32);
    EXPECT_EQ(target.mPartition.type, PARTITION_COLUMN_WISE);
    EXPECT_EQ(target.mPartition.begin, 6);
    EXPECT_EQ(target.mGlobalRows, 41);
    EXPECT_EQ(target.mGlobalCols, 51);
  });
}

// --- Refused communicators

TEST(NullCommunicator, IsRefusedAfterTheOldMatrixAndCommunicatorAreGone) {
  RankUnderTest<> rank = SingleRank();
  CooPiece<> const piece = Share(0);
  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);
  rank.ForgetThePast();

  Outcome const outcome =
      Watch([&] { return rank.aggregator.Gather(nullptr, piece.matrix, true); });

  ExpectOutcome(outcome, -7, StatusLines(1, -7));
  EXPECT_EQ(rank.aggregator.Target(), nullptr);
  EXPECT_EQ(rank.aggregator.GetComm(), nullptr);
  EXPECT_THAT(rank.comm->Texts(), IsEmpty());
  EXPECT_THAT(rank.pool.Events(), IsEmpty());
}

TEST(NullCommunicator, IsRefusedByAllgatherToo) {
  RankUnderTest<> rank = SingleRank();
  CooPiece<> const piece = Share(0);

  Outcome const outcome =
      Watch([&] { return rank.aggregator.Allgather(nullptr, piece.matrix, true); });

  ExpectOutcome(outcome, -7, StatusLines(1, -7));
}

TEST(NullCommunicator, CostsAllgatherTheOldMatrixToo) {
  RankUnderTest<> rank = SingleRank();
  CooPiece<> const piece = Share(0);
  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);

  Watch([&] { return rank.aggregator.Allgather(nullptr, piece.matrix, true); });

  EXPECT_EQ(rank.aggregator.Target(), nullptr);
}

TEST(NullCommunicator, LeavesNothingToUpdate) {
  RankUnderTest<> rank = ShareRank(1);
  CooPiece<> const piece = Share(1);
  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);
  rank.aggregator.SetComm(nullptr);

  ExpectOutcome(Watch([&] { return rank.aggregator.Update(piece.matrix); }), -11, kNotGathered);
}

TEST(LargerCommunicator, LeavesItsFurtherRanksNothingToUpdate) {
  RankUnderTest<> rank = ShareRank(0);
  CooPiece<> const piece = Share(0);
  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);

  rank.aggregator.SetComm(std::make_shared<ScriptedComm>(2, 3));

  ExpectOutcome(Watch([&] { return rank.aggregator.Update(piece.matrix); }), STATUS_WRONG_ORDER,
                kNotGathered);
}

TEST(UnusableCommunicator, IsRefusedBeforeAnyAllocation) {
  for (auto const& [ownRank, size] :
       {std::pair{0, 0}, std::pair{-1, -1}, std::pair{-1, 2}, std::pair{2, 2}}) {
    RankUnderTest<> rank(std::make_shared<ScriptedComm>(ownRank, size));
    CooPiece<> const piece = Share(0);

    Outcome const outcome = Gather(rank, piece.matrix);

    ExpectOutcome(outcome, -7, StatusLines(3, -7));
    EXPECT_THAT(rank.comm->DataTexts(), IsEmpty());
    EXPECT_THAT(rank.pool.Events(), IsEmpty());
  }
}

// --- Refused matrices

TEST(Gather, RefusesAnUnknownStoreTypeWithOneLine) {
  for (int const type : {13, -1}) {
    RankUnderTest<> rank = SingleRank();
    DescribedMatrix const odd(static_cast<PavexMatrixStoreType>(type), 4, 5, 3);

    Outcome const outcome = Gather(rank, odd);

    ExpectOutcome(outcome, -2,
                  "[ERROR] Unsupported matrix store type " + std::to_string(type) + ".\n");
    EXPECT_EQ(rank.aggregator.Target(), nullptr);
  }
}

TEST(Update, RefusesAnUnknownStoreTypeWithOneLineWhereNothingWasReceived) {
  DescribedMatrix odd(static_cast<PavexMatrixStoreType>(13), 4, 5, 3);
  RankUnderTest<> rank(ScriptedRank(1, {&odd, &odd}));
  ASSERT_EQ(Gather(rank, odd).status, -2);

  ExpectOutcome(Watch([&] { return rank.aggregator.Update(odd); }), -2,
                "[ERROR] Unsupported matrix store type 13.\n");
}

TEST(Scatter, RefusesASparseMatrixWithOneLine) {
  RankUnderTest<> rank = SingleRank();
  CooPiece<> piece = Share(0);
  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);

  ExpectOutcome(Watch([&] { return rank.aggregator.Scatter(piece.matrix); }), -2,
                "[ERROR] Unsupported matrix store type 8.\n");
}

TEST(Gather, ThrowsOnAMatrixThatIsNotOfTheClassItNames) {
  for (int type = 0; type <= 12; ++type) {
    RankUnderTest<> rank = SingleRank();
    DescribedMatrix const impostor(static_cast<PavexMatrixStoreType>(type), 4, 5, 3);

    EXPECT_THROW((void)rank.aggregator.Gather(rank.comm, impostor, true), std::bad_cast);
    EXPECT_EQ(rank.aggregator.Target(), nullptr);
  }
}

TEST(Gather, ThrowsOnAnEmptyMatrixOfAnotherClassThanTheHolders) {
  CsrPiece<> const holder(2, 2, {0, 1, 2}, {0, 1}, {1, 2});
  CooPiece<> const empty(0, 0, {}, {}, {});
  RankUnderTest<> rank(ScriptedRank(0, {&empty.matrix, &holder.matrix}));

  EXPECT_THROW((void)rank.aggregator.Gather(rank.comm, empty.matrix, true), std::bad_cast);
}

TEST(Gather, ThrowsOnAMatrixOfOtherElementTypes) {
  RankUnderTest<> rank = SingleRank();
  CooPiece<float, int> const otherValues(1, 1, {0}, {0}, {1});
  CooPiece<double, long> const otherIndices(1, 1, {0}, {0}, {1});

  EXPECT_THROW((void)rank.aggregator.Gather(rank.comm, otherValues.matrix, true),
               std::bad_cast);
  EXPECT_THROW((void)rank.aggregator.Gather(rank.comm, otherIndices.matrix, true),
               std::bad_cast);
}

// --- The chain of lines

TEST(Gather, ReportsADisagreementOnceMoreThanTheMetadata) {
  CooPiece<> const own = Share(0);
  CooPiece<> other = Share(1);
  other.matrix.mPattern = 9;
  RankUnderTest<> rank(ScriptedRank(0, {&own.matrix, &other.matrix}));

  Outcome const outcome = Gather(rank, own.matrix);

  ExpectOutcome(outcome, -16,
                "[ERROR] The pattern and attribute of local matrix is inconsistent.\n" +
                    StatusLines(2, -16));
  EXPECT_EQ(rank.aggregator.Target(), nullptr);
}

TEST(Gather, ReportsMissingValuesOnceMore) {
  CooPiece<> own(4, 5, {0, 1}, {0, 2}, {});
  own.matrix.PlaceIn(4, 5, MatrixPartition::NonzeroWise());
  CooPiece<> const other = Share(1);
  RankUnderTest<> rank(ScriptedRank(0, {&own.matrix, &other.matrix}));

  Outcome const outcome = Gather(rank, own.matrix);

  ExpectOutcome(outcome, -16,
                "[ERROR] Local matrix has no values when we need it.\n" + StatusLines(1, -16));
  EXPECT_THAT(rank.comm->DataTexts(), ElementsAre("Allgather(in place 72 byte; 72 byte)"));
}

TEST(Gather, FailsOnEachProcessWithoutValuesOfADistributedMatrix) {
  LogLevel const quiet(LOG_ERROR - 1);
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    CooPiece<> piece = comm->Rank() == 0 ? CooPiece<>(4, 5, {0, 1}, {0, 2}, {10, 20})
                                         : CooPiece<>(4, 5, {3}, {4}, {});
    piece.matrix.PlaceIn(4, 5, MatrixPartition::NonzeroWise());

    PavexStatus const status = rank.aggregator.Gather(rank.comm, piece.matrix, true);

    // The other rank waits in vain.
    EXPECT_EQ(status, comm->Rank() == 1 ? STATUS_INCONSISTENT : STATUS_COMM_FAILED);
    EXPECT_EQ(rank.aggregator.Target(), nullptr);
  });
}

TEST(Gather, PassesPatternsThatEveryProcessHoldsWholeDespiteTheFlag) {
  CooPiece<> const own(4, 5, {0, 1}, {0, 2}, {});
  RankUnderTest<> rank(ScriptedRank(0, {&own.matrix, &own.matrix}));

  ExpectOutcome(Gather(rank, own.matrix), STATUS_OK, "");
}

TEST(Gather, GoesByTheAgreedFlagNotTheCallers) {
  CooPiece<> const holder(4, 5, {0, 1}, {0, 2}, {});
  CooPiece<> const empty(0, 0, {}, {}, {});
  RankUnderTest<> rank(ScriptedRank(1, {&holder.matrix, &empty.matrix}, false));

  ExpectOutcome(Gather(rank, empty.matrix, true), STATUS_OK, "");
  EXPECT_FALSE(rank.aggregator.mWithValues);
}

TEST(Gather, PrintsNothingOfAFailureBelowTheErrorLevel) {
  LogLevel const level(LOG_ERROR - 1);
  RankUnderTest<> rank = ShareRank(0);
  rank.comm->Fail(Fault::Once(1, -77));

  ExpectOutcome(Gather(rank, Share(0).matrix), -77, "");
}

TEST(Gather, PrintsOnlyTheModeWithDebugLinesOn) {
  LogLevel const level(LOG_DEBUG);
  RankUnderTest<> rank = SingleRank();
  CooPiece<> const piece = Share(0);

  ExpectOutcome(Gather(rank, piece.matrix), STATUS_OK,
                "[DEBUG] Matrix mode is CENTRALIZED_ALL.\n");
}

}  // namespace
}  // namespace Pavex
