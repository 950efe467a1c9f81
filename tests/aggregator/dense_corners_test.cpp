// Dense gathers, updates and scatters with something unusual before or between them.

#include "pavex/comm/local_comm.h"
#include "pavex/runtime/self_comm.h"
#include "tests/support/arrays.h"
#include "tests/support/dense_rank.h"
#include "tests/support/described_matrix.h"
#include "tests/support/log_level.h"
#include "tests/support/shares.h"

#include <gmock/gmock.h>
#include <numeric>
#include <typeinfo>

namespace Pavex {
namespace {

using ::testing::ElementsAre;

constexpr PavexStatus kFailure = -77;
constexpr char kNoValues[] = "[ERROR] Local matrix has no values when we need it.\n";
constexpr char kUnsupported[] = "[ERROR] Unsupported matrix store type 8.\n";

// --- The lines of a reorder

TEST(DenseReorder, IsAnnouncedAlsoIfThereIsNoRoomForTheReceivedValues) {
  LogLevel const debug(LOG_DEBUG);
  DenseRank<> zero(0, Pieces(ColumnShare(0, true), ColumnShare(1, true)));
  zero.rank.pool.Fail(Fault::Once(5, kFailure));

  ExpectOutcome(zero.Gather(), kFailure,
                "[DEBUG] Matrix mode is DISTRIBUTED.\n"
                "[DEBUG] Reorder values of dense matrix from received data\n" +
                    StatusLines(4, kFailure));
}

TEST(DenseReorder, IsAnnouncedAlsoIfThereIsNoRoomForTheValuesToSend) {
  DenseRank<> zero(0, Pieces(ColumnShare(0, true), ColumnShare(1, true)));
  ASSERT_EQ(zero.Gather().status, STATUS_OK);
  LogLevel const debug(LOG_DEBUG);
  zero.rank.pool.Fail(Fault::Once(1, kFailure));

  ExpectOutcome(
      zero.Scatter(zero.local), kFailure,
      "[DEBUG] Reorder values of dense matrix to send out.\n" + StatusLines(2, kFailure));
}

// --- A sparse pattern in a scatter

TEST(ScatterOfAPattern, MissesItsValuesBeforeItsClassIsLookedAt) {
  CooPiece<> first = Share(0);
  CooPiece<> second = Share(1);
  first.matrix.mValues.Borrow(nullptr, 0);
  second.matrix.mValues.Borrow(nullptr, 0);
  for (int const self : {0, 1}) {
    RankUnderTest<> rank(ScriptedRank(self, {&first.matrix, &second.matrix}, false));
    CooPiece<>& local = self == 0 ? first : second;
    ASSERT_EQ(Gather(rank, local.matrix, false).status, STATUS_OK);

    ExpectOutcome(Watch([&] { return rank.aggregator.Scatter(local.matrix); }),
                  STATUS_INCONSISTENT, kNoValues + StatusLines(1, STATUS_INCONSISTENT));
  }
}

TEST(ScatterOfAPattern, MissesValuesOnItsOnlyHolderAlone) {
  CooPiece<> holder = WholeOn(1, 1);
  CooPiece<> other = WholeOn(1, 0);
  holder.matrix.mValues.Borrow(nullptr, 0);
  for (int const self : {0, 1}) {
    RankUnderTest<> rank(ScriptedRank(self, {&other.matrix, &holder.matrix}, false));
    CooPiece<>& local = self == 1 ? holder : other;
    ASSERT_EQ(Gather(rank, local.matrix, false).status, STATUS_OK);

    Outcome const scattered = Watch([&] { return rank.aggregator.Scatter(local.matrix); });

    if (self == 1) {
      ExpectOutcome(scattered, STATUS_INCONSISTENT,
                    kNoValues + StatusLines(1, STATUS_INCONSISTENT));
    } else {
      ExpectOutcome(scattered, STATUS_NOT_SUPPORTED, kUnsupported);
    }
  }
}

// --- Classes and store types

TEST(Scatter, ThrowsForAnotherClassThatDescribesItselfAsTheGatheredMatrix) {
  DenseRank<> one(1, Pieces(RowShare(0, true), RowShare(1, true)));
  ASSERT_EQ(one.Gather().status, STATUS_OK);
  DescribedMatrix other(STORE_DENSE_ROW_MAJOR, 2, 5, 10);
  other.PlaceIn(3, 5, MatrixPartition::RowWise(1));

  EXPECT_THROW(static_cast<void>(one.rank.aggregator.Scatter(other)), std::bad_cast);
}

// A dense matrix of an application, which reports one of the further dense store types.
struct FurtherDense : MatrixDense<double, int> {
  PavexMatrixStoreType StoreType() const override { return mType; }
  PavexMatrixStoreType mType = STORE_TYPE_0;
};

TEST(FurtherDenseTypes, AreGatheredUpdatedAndScatteredAsDense) {
  for (PavexMatrixStoreType const type : {STORE_TYPE_0, STORE_TYPE_1}) {
    LocalComm::Run(2, [type](std::shared_ptr<Comm> const& comm) {
      RankUnderTest<> rank(comm);
      DensePiece<> piece = ColumnShare(comm->Rank(), true);
      FurtherDense local;
      static_cast<MatrixDense<double, int>&>(local) = std::move(piece.matrix);
      local.mType = type;

      ASSERT_EQ(rank.aggregator.Gather(rank.comm, local, true), STATUS_OK);
      if (comm->Rank() == 0) {
        EXPECT_THAT(Elements(rank.Target<MatrixDense<double, int>>().mValues),
                    ElementsAre(11, 12, 13, 14, 15, 21, 22, 23, 24, 25, 31, 32, 33, 34, 35));
      }

      for (double& value : piece.values)
        value += 100;
      ASSERT_EQ(rank.aggregator.Update(local), STATUS_OK);
      std::vector<double> const sent = piece.values;
      std::fill(piece.values.begin(), piece.values.end(), 0.0);
      ASSERT_EQ(rank.aggregator.Scatter(local), STATUS_OK);
      EXPECT_EQ(piece.values, sent);
    });
  }
}

// --- Another communicator in between

TEST(DenseUpdate, ReordersAsManyPiecesAsTheCommunicatorHasProcesses) {
  auto const column = [](int p) {
    return DenseBlock(1, 2, 1 + p, 1, true).In(2, 3, MatrixPartition::ColumnWise(p));
  };
  DenseRank<> zero(0, Pieces(column(0), column(1), column(2)));
  zero.script->On(CommOp::GATHERV, Deliver({11, 21, 12, 22, 13, 23}));
  ASSERT_EQ(zero.Gather().status, STATUS_OK);
  auto const smaller = std::make_shared<ScriptedComm>(0, 2);
  smaller->On(CommOp::GATHERV, Deliver({1, 3, 2, 4, 9, 9}));
  zero.rank.aggregator.SetComm(smaller);

  ASSERT_EQ(zero.Update(zero.local).status, STATUS_OK);

  std::vector<double> const values = zero.TargetValues();
  EXPECT_EQ(values[0], 1);
  EXPECT_EQ(values[1], 2);
  EXPECT_EQ(values[3], 3);
  EXPECT_EQ(values[4], 4);
  for (int const of : {2, 5})
    EXPECT_TRUE(LedgerPool::Untouched(zero.Target().mValues.mData + of, sizeof(double)));
}

TEST(DenseOperations, FindNoOtherProcessOverSelfCommAfterADistributedGather) {
  LogLevel const silent(-1);
  for (int const self : {0, 1}) {
    DenseRank<> rank(self, Pieces(RowShare(0, true), RowShare(1, true)));
    ASSERT_EQ(rank.Gather().status, STATUS_OK);
    rank.rank.aggregator.SetComm(std::make_shared<SelfComm>());

    // A single process compares its matrix with record 0, which on rank 1 belongs to rank 0.
    PavexStatus const expected = self == 0 ? STATUS_NOT_SUPPORTED : STATUS_MISMATCH;
    EXPECT_EQ(rank.Update(rank.local).status, expected);
    EXPECT_EQ(rank.Scatter(rank.local).status, expected);
  }
}

// --- Values that the application puts into the gathered matrix

TEST(GatheredMatrix, SendsTheValuesThatTheApplicationSetsAndTakesItsOwnInAnUpdate) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    DensePiece<> piece = RowShare(comm->Rank(), true);
    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);
    std::vector<double> solution(15);
    std::iota(solution.begin(), solution.end(), 0.0);
    bool const root = comm->Rank() == 0;
    if (root) rank.Target<MatrixDense<double, int>>().SetValues(solution.data());

    ASSERT_EQ(rank.aggregator.Scatter(piece.matrix), STATUS_OK);

    std::vector<double> expected(root ? 5 : 10);
    std::iota(expected.begin(), expected.end(), root ? 0.0 : 5.0);
    EXPECT_EQ(piece.values, expected);

    for (double& value : piece.values)
      value = -value;
    ASSERT_EQ(rank.aggregator.Update(piece.matrix), STATUS_OK);
    if (root) {
      Buffer<double> const& values = rank.Target<MatrixDense<double, int>>().mValues;
      EXPECT_TRUE(rank.pool.Owns(values.mData));
      EXPECT_EQ(values.mData[14], -14);
      EXPECT_EQ(solution[14], 14);
    }
  });
}

}  // namespace
}  // namespace Pavex
