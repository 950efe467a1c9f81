// The scatter of a gathered dense matrix: which calls each rank makes, where the values go, and
// what does not change.

#include "pavex/comm/local_comm.h"
#include "tests/support/dense_rank.h"
#include "tests/support/instances.h"
#include "tests/support/log_level.h"
#include "tests/support/ownership.h"

#include <functional>
#include <gmock/gmock.h>
#include <numeric>
#include <utility>

namespace Pavex {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Gathers onto rank 0 or onto all ranks, and forgets the calls and allocations of that.
template <typename Rank>
void GatherFirst(Rank& rank, bool toAll = false) {
  ASSERT_EQ((toAll ? rank.Allgather() : rank.Gather()).status, STATUS_OK);
  rank.rank.ForgetThePast();
}

// Numbers the elements of the gathered matrix 0, 1, ... in the order of its array.
void NumberTarget(DenseRank<>& rank) {
  Buffer<double>& values = rank.Target().mValues;
  std::iota(values.mData, values.mData + values.mSize, 0.0);
}

// --- Every rank holds a piece, one root

template <typename TypeParam>
class DenseScatterOf : public testing::Test {};
TYPED_TEST_SUITE(DenseScatterOf, AllInstances);

TYPED_TEST(DenseScatterOf, PiecesIsOneScatterv) {
  using T = typename TypeParam::Value;
  using I = typename TypeParam::Index;
  DenseRank<T, I> zero(0, Pieces(RowShare<T, I>(0, true), RowShare<T, I>(1, true)));
  DenseRank<T, I> one(1, Pieces(RowShare<T, I>(0, true), RowShare<T, I>(1, true)));
  one.script->On(CommOp::SCATTERV, Deliver<T>({1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
  GatherFirst(zero);
  GatherFirst(one);

  ASSERT_EQ(zero.Scatter(zero.local).status, STATUS_OK);
  ASSERT_EQ(one.Scatter(one.local).status, STATUS_OK);

  std::string const type = kTypeName<T>;
  EXPECT_THAT(zero.Calls(),
              ElementsAre("Scatterv({5, 10} at {0, 5} " + type + "; 5 " + type + "; root 0)"));
  EXPECT_THAT(one.Calls(), ElementsAre("Scatterv(" + type + "; 10 " + type + "; root 0)"));
  EXPECT_EQ(one.local.values, Numbers<T>({1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
}

TEST(DenseScatter, ReceivesPackedPieceInPlace) {
  DenseRank<> one(1, Pieces(ColumnShare(0, true), ColumnShare(1, true)));
  GatherFirst(one);

  ASSERT_EQ(one.Scatter(one.local).status, STATUS_OK);

  EXPECT_EQ(one.rank.comm->Calls().back().recvbuf, one.local.values.data());
  EXPECT_THAT(one.Events(), IsEmpty());
}

TEST(DenseScatter, ReceivesPaddedPieceThroughPackedBlockAndLeavesGapsAlone) {
  DenseRank<> one(1, Pieces(ColumnShare(0, true), ColumnShare(1, true, 2)));
  one.script->On(CommOp::SCATTERV, Deliver({1, 2, 3, 4, 5, 6, 7, 8, 9}));
  GatherFirst(one);

  ASSERT_EQ(one.Scatter(one.local).status, STATUS_OK);

  EXPECT_THAT(one.local.values, ElementsAre(1, 2, 3, kGap, kGap, 4, 5, 6, kGap, kGap, 7, 8, 9));
  EXPECT_EQ(one.Events(), (std::vector<PoolEvent>{Took(9 * 8), GaveBack(9 * 8)}));
}

TEST(DenseScatter, ReceivesSingleRunInPlaceWithAnyLeadingDimension) {
  for (std::int64_t const ld : {5, 0, -2}) {
    auto const share = [ld](int rank) {
      return DensePiece<>(3, 1, false, ld, {1, 2, 3})
          .In(3, 2, MatrixPartition::ColumnWise(rank));
    };
    DenseRank<> one(1, Pieces(share(0), share(1)));
    GatherFirst(one);

    ASSERT_EQ(one.Scatter(one.local).status, STATUS_OK);

    EXPECT_EQ(one.rank.comm->Calls().back().recvbuf, one.local.values.data());
  }
}

TEST(DenseScatter, LeavesTheLastRunWhereAllRunsStandInOnePlace) {
  DenseRank<> one(1, Pieces(ColumnShare(0, true), ColumnShare(1, true)));
  GatherFirst(one);
  one.script->On(CommOp::SCATTERV, Deliver({1, 2, 3, 4, 5, 6, 7, 8, 9}));
  auto destination =
      DensePiece<>(3, 3, true, 0, {0, 0, 0, kGap}).In(3, 5, MatrixPartition::ColumnWise(2));

  ASSERT_EQ(one.Scatter(destination).status, STATUS_OK);

  EXPECT_THAT(destination.values, ElementsAre(7, 8, 9, kGap));
}

TEST(DenseScatter, GivesTheCommunicationLayoutBackBeforeItUnpacks) {
  DenseRank<> zero(0, Pieces(ColumnShare(0, true, 1), ColumnShare(1, true)));
  GatherFirst(zero);

  ASSERT_EQ(zero.Scatter(zero.local).status, STATUS_OK);

  EXPECT_EQ(zero.Events(), (std::vector<PoolEvent>{Took(15 * 8), Took(6 * 8), GaveBack(15 * 8),
                                                   GaveBack(6 * 8)}));
}

TEST(DenseScatter, LeavesTheGatheredMatrixAsItWasAndMayBeRepeated) {
  DenseRank<> zero(0, Pieces(ColumnShare(0, true), ColumnShare(1, true)));
  GatherFirst(zero);
  NumberTarget(zero);
  std::vector<double> const before = zero.TargetValues();

  ASSERT_EQ(zero.Scatter(zero.local).status, STATUS_OK);
  ASSERT_EQ(zero.Scatter(zero.local).status, STATUS_OK);

  EXPECT_EQ(zero.TargetValues(), before);
}

TEST(DenseScatter, ReturnsEveryPieceToItsOwner) {
  for (bool const rowMajor : {true, false}) {
    LocalComm::Run(2, [&](std::shared_ptr<Comm> const& comm) {
      int const self = comm->Rank();
      RankUnderTest<> rank(comm);
      DensePiece<> local = ColumnShare(self, rowMajor, 1);
      std::vector<double> const before = local.values;
      ASSERT_EQ(rank.aggregator.Gather(rank.comm, local.matrix, true), STATUS_OK);
      for (double& value : local.values)
        value = value == kGap ? kGap : 0;

      ASSERT_EQ(rank.aggregator.Scatter(local.matrix), STATUS_OK);

      EXPECT_EQ(local.values, before);
    });
  }
}

// --- One rank holds the whole

TEST(DenseScatterToOneHolder, IsOneMessageFromTheRoot) {
  DenseRank<> zero(0, Pieces(EmptyShare(true), WholeShare(true)));
  DenseRank<> one(1, Pieces(EmptyShare(true), WholeShare(true)));
  GatherFirst(zero);
  GatherFirst(one);

  ASSERT_EQ(zero.Scatter(zero.local).status, STATUS_OK);
  ASSERT_EQ(one.Scatter(one.local).status, STATUS_OK);

  EXPECT_THAT(zero.Calls(), ElementsAre("Send(15 double to 1 tag 52)"));
  EXPECT_THAT(one.Calls(), ElementsAre("Recv(15 double from 0 tag 52)"));
  EXPECT_EQ(zero.rank.comm->Calls().back().sendbuf, zero.Target().mValues.mData);
  EXPECT_EQ(one.rank.comm->Calls().back().recvbuf, one.local.values.data());
  EXPECT_THAT(zero.Events(), IsEmpty());
  EXPECT_THAT(one.Events(), IsEmpty());
}

TEST(DenseScatterToOneHolder, IsUnpackedToTheHoldersLeadingDimension) {
  DenseRank<> one(1, Pieces(EmptyShare(false), WholeShare(false, 1)));
  one.script->On(CommOp::RECV, Deliver({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}));
  GatherFirst(one);

  ASSERT_EQ(one.Scatter(one.local).status, STATUS_OK);

  EXPECT_THAT(one.local.values, ElementsAre(1, 2, 3, kGap, 4, 5, 6, kGap, 7, 8, 9, kGap, 10, 11,
                                            12, kGap, 13, 14, 15));
  EXPECT_EQ(one.Events(), (std::vector<PoolEvent>{Took(15 * 8), GaveBack(15 * 8)}));
}

TEST(DenseScatterToOneHolder, LeavesBystandersAlone) {
  DenseRank<> two(2, Pieces(EmptyShare(true), WholeShare(true), EmptyShare(true)));
  GatherFirst(two);

  ASSERT_EQ(two.Scatter(two.local).status, STATUS_OK);

  EXPECT_THAT(two.Calls(), IsEmpty());
  EXPECT_THAT(two.Events(), IsEmpty());
}

TEST(DenseScatterToOneHolder, LeavesTheArrayOfABystanderWithoutColumnsAlone) {
  DensePiece<> empty(3, 0, true, 0, {7});
  DenseRank<> two(2, Pieces(EmptyShare(true), WholeShare(true), std::move(empty)));
  GatherFirst(two);

  ASSERT_EQ(two.Scatter(two.local).status, STATUS_OK);

  EXPECT_THAT(two.local.values, ElementsAre(7));
}

TEST(DenseScatterToOneHolder, EndsForABystanderWithMoreEmptyRowsThanCouldBeWalked) {
  DensePiece<> empty(std::int64_t{1} << 62, 0, true, 5, {7});
  DenseRank<> two(2, Pieces(EmptyShare(true), WholeShare(true), std::move(empty)));
  GatherFirst(two);

  ASSERT_EQ(two.Scatter(two.local).status, STATUS_OK);

  EXPECT_THAT(two.local.values, ElementsAre(7));
}

TEST(DenseScatterToOneHolder, ThatIsTheRootIsLocal) {
  DenseRank<> zero(0, Pieces(WholeShare(true, 1), EmptyShare(true)));
  GatherFirst(zero);
  NumberTarget(zero);

  ASSERT_EQ(zero.Scatter(zero.local).status, STATUS_OK);

  EXPECT_THAT(zero.Calls(), IsEmpty());
  EXPECT_THAT(zero.Events(), IsEmpty());
  EXPECT_THAT(zero.local.values,
              ElementsAre(0, 1, 2, 3, 4, kGap, 5, 6, 7, 8, 9, kGap, 10, 11, 12, 13, 14));
}

TEST(DenseScatterToOneHolder, LeavesBystandersWithoutElementsAlone) {
  DenseRank<> noRows(1, Pieces(WholeShare(true), DensePiece<>(0, 3, true, 3, {})));
  DenseRank<> noColumns(1, Pieces(WholeShare(true), DensePiece<>(3, 0, true, 5, {})));
  GatherFirst(noRows);
  GatherFirst(noColumns);

  ExpectOutcome(noRows.Scatter(noRows.local), STATUS_OK, "");
  ExpectOutcome(noColumns.Scatter(noColumns.local), STATUS_OK, "");

  EXPECT_THAT(noRows.Calls(), IsEmpty());
  EXPECT_THAT(noColumns.Calls(), IsEmpty());
}

TEST(DenseScatterToOneHolder, SendsNothingToABystanderWhoseNextGatherWasRefused) {
  DenseRank<> two(2, Pieces(EmptyShare(true), WholeShare(true), EmptyShare(true)));
  GatherFirst(two);
  DensePiece<> next = WholeShare(true);
  std::vector<double> const before = next.values;
  MatrixLocalInfo const record = RecordOf(next.matrix, true);
  std::vector<MatrixLocalInfo> const oneEmpty = {RecordOf(two.local.matrix, true), record,
                                                 record};
  two.script->SetRecords(oneEmpty);
  ASSERT_EQ(two.rank.aggregator.Gather(two.rank.comm, next.matrix, true), STATUS_INCONSISTENT);
  two.rank.ForgetThePast();

  ASSERT_EQ(two.Scatter(next).status, STATUS_OK);

  EXPECT_THAT(two.Calls(), IsEmpty());
  EXPECT_EQ(next.values, before);
}

// --- Every rank holds the whole, one root

TEST(DenseScatterToAllHolders, IsBroadcastFromTheRootsArray) {
  DenseRank<> zero(0, Pieces(WholeShare(true), WholeShare(true)));
  DenseRank<> one(1, Pieces(WholeShare(true), WholeShare(true)));
  GatherFirst(zero);
  GatherFirst(one);

  ASSERT_EQ(zero.Scatter(zero.local).status, STATUS_OK);
  ASSERT_EQ(one.Scatter(one.local).status, STATUS_OK);

  EXPECT_THAT(zero.Calls(), ElementsAre("Bcast(15 double; root 0)"));
  EXPECT_THAT(one.Calls(), ElementsAre("Bcast(15 double; root 0)"));
  EXPECT_EQ(zero.rank.comm->Calls().back().recvbuf, zero.local.values.data());
  EXPECT_EQ(one.rank.comm->Calls().back().recvbuf, one.local.values.data());
}

TEST(DenseScatterToAllHolders, PacksThePaddedArrayOfTheRoot) {
  DenseRank<> zero(0, Pieces(WholeShare(true, 2), WholeShare(true)));
  GatherFirst(zero);
  std::vector<double> const before = zero.local.values;

  ASSERT_EQ(zero.Scatter(zero.local).status, STATUS_OK);

  EXPECT_EQ(zero.Events(), (std::vector<PoolEvent>{Took(15 * 8), GaveBack(15 * 8)}));
  EXPECT_EQ(zero.local.values, before);
}

// A class of an application that does not say that it has values.
class SilentDense final : public MatrixDense<double, int> {
 public:
  bool HasValues() const override { return false; }
};

TEST(DenseScatterToAllHolders, LooksAtTheArrayAndNotAtWhatTheClassSaysOfIt) {
  std::vector<double> values(6, 7);
  SilentDense local;
  local.mRows = local.mGlobalRows = 2;
  local.mCols = local.mGlobalCols = 3;
  local.mLd = 2;
  local.mValues.Borrow(values.data(), 6);
  RankUnderTest<> one(ScriptedRank(1, {&local, &local}, false));
  ASSERT_EQ(one.aggregator.Gather(one.comm, local, false), STATUS_OK);
  one.ForgetThePast();

  ASSERT_EQ(one.aggregator.Scatter(local), STATUS_OK);

  EXPECT_THAT(one.comm->DataTexts(), ElementsAre("Bcast(6 double; root 0)"));
}

// --- Every rank has the gathered matrix

TEST(DenseScatterEverywhere, FindsItsOwnArrayWhereEveryRankHoldsTheWhole) {
  for (int const self : {0, 1}) {
    DenseRank<> rank(self, Pieces(WholeShare(true, 1), WholeShare(true, 1)));
    GatherFirst(rank, true);
    std::vector<double> const before = rank.local.values;

    ExpectOutcome(rank.Scatter(rank.local), STATUS_OK, "");

    EXPECT_EQ(rank.local.values, before);
    EXPECT_THAT(rank.Calls(), IsEmpty());
    EXPECT_THAT(rank.Events(), IsEmpty());
  }
}

TEST(DenseScatterEverywhere, FindsNoArrayToCopyWhereEveryRankHoldsThePatternAlone) {
  DenseRank<> zero(0, Pieces(DensePiece<>(3, 5, true, 5, {}), DensePiece<>(3, 5, true, 5, {})),
                   false);
  GatherFirst(zero, true);

  ExpectOutcome(zero.Scatter(zero.local), STATUS_OK, "");

  EXPECT_THAT(zero.Calls(), IsEmpty());
  EXPECT_THAT(zero.Events(), IsEmpty());
}

TEST(DenseScatterEverywhere, CopiesConsecutiveBlockOfRowBandFromItsDisplacement) {
  DenseRank<> one(1, Pieces(RowShare(0, true), RowShare(1, true, 1)));
  GatherFirst(one, true);
  NumberTarget(one);

  ASSERT_EQ(one.Scatter(one.local).status, STATUS_OK);

  EXPECT_THAT(one.local.values, ElementsAre(5, 6, 7, 8, 9, kGap, 10, 11, 12, 13, 14));
  EXPECT_THAT(one.Calls(), IsEmpty());
  EXPECT_THAT(one.Events(), IsEmpty());
}

TEST(DenseScatterEverywhere, CopiesPackedBandsAlongTheRunsAsTheyAre) {
  DenseRank<> rows(1, Pieces(RowShare(0, true), RowShare(1, true)));
  DenseRank<> columns(1, Pieces(ColumnShare(0, false), ColumnShare(1, false)));
  GatherFirst(rows, true);
  GatherFirst(columns, true);
  NumberTarget(rows);
  NumberTarget(columns);

  ASSERT_EQ(rows.Scatter(rows.local).status, STATUS_OK);
  ASSERT_EQ(columns.Scatter(columns.local).status, STATUS_OK);

  EXPECT_THAT(rows.local.values, ElementsAre(5, 6, 7, 8, 9, 10, 11, 12, 13, 14));
  EXPECT_THAT(columns.local.values, ElementsAre(6, 7, 8, 9, 10, 11, 12, 13, 14));
}

TEST(DenseScatterEverywhere, CopiesAPieceOfASingleRun) {
  DenseRank<> zero(0, Pieces(RowShare(0, true), RowShare(1, true)));
  GatherFirst(zero, true);
  NumberTarget(zero);

  ASSERT_EQ(zero.Scatter(zero.local).status, STATUS_OK);

  EXPECT_THAT(zero.local.values, ElementsAre(0, 1, 2, 3, 4));
}

TEST(DenseScatterEverywhere, CopiesAPieceWhoseRunsAreSingleElements) {
  auto const share = [](int begin) {
    return DenseBlock(1, 3, begin + 1, 1, true).In(3, 2, MatrixPartition::ColumnWise(begin));
  };
  DenseRank<> one(1, Pieces(share(0), share(1)));
  GatherFirst(one, true);
  NumberTarget(one);

  ASSERT_EQ(one.Scatter(one.local).status, STATUS_OK);

  EXPECT_THAT(one.local.values, ElementsAre(1, 3, 5));
}

TEST(DenseScatterEverywhere, StridesThroughColumnMajorMatrixFromTheBeginOfRowBand) {
  DenseRank<> one(1, Pieces(RowShare(0, false), RowShare(1, false, 1)));
  GatherFirst(one, true);
  NumberTarget(one);

  ASSERT_EQ(one.Scatter(one.local).status, STATUS_OK);

  EXPECT_THAT(one.local.values,
              ElementsAre(1, 2, kGap, 4, 5, kGap, 7, 8, kGap, 10, 11, kGap, 13, 14));
}

TEST(DenseScatterEverywhere, CountsTheBeginFromTheFirstRanksBand) {
  // Columns 3 to 5 of the global matrix, on two ranks.
  auto const share = [](int begin, int cols) {
    return DenseBlock(1, 2, begin + 1, cols, true).In(2, 9, MatrixPartition::ColumnWise(begin));
  };
  DenseRank<> one(1, Pieces(share(2, 1), share(3, 2)));
  GatherFirst(one, true);
  NumberTarget(one);

  ASSERT_EQ(one.Scatter(one.local).status, STATUS_OK);

  EXPECT_THAT(one.local.values, ElementsAre(1, 2, 4, 5));
}

// `rows` x `cols` entries that claim to begin at `begin` in a matrix of another shape.
DensePiece<> PieceAt(std::int64_t begin, int rows, int cols, std::int64_t globalRows,
                     std::int64_t globalCols) {
  return DenseBlock(1, rows, 1, cols, true)
      .In(globalRows, globalCols, {PARTITION_NONZERO_WISE, begin});
}

// Which of two ranks have a piece that lies outside the whole by its begin.
enum class Outside { FIRST, SECOND, BOTH };

// Gathers the pieces `first` and `second`. Expects that the ranks `outside` refuse the scatter,
// and that it succeeds on the other one.
void ExpectOutside(Outside outside, std::function<DensePiece<>()> const& first,
                   std::function<DensePiece<>()> const& second, bool withValues = true) {
  for (int const self : {0, 1}) {
    DenseRank<> rank(self, Pieces(first(), second()), withValues);
    GatherFirst(rank, true);
    std::vector<double> const before = rank.local.values;
    bool const refused = outside == Outside::BOTH || (outside == Outside::FIRST) == (self == 0);

    Outcome const scattered = rank.Scatter(rank.local);

    if (refused) {
      ExpectOutcome(scattered, STATUS_INCONSISTENT, StatusLines(1, STATUS_INCONSISTENT));
      EXPECT_EQ(rank.local.values, before);
    } else {
      ExpectOutcome(scattered, STATUS_OK, "");
    }
    EXPECT_THAT(rank.Calls(), IsEmpty());
  }
}

TEST(DenseScatterEverywhere, IsRefusedOnTheRankWhosePieceReachesOutside) {
  // Placed in rank order, both pieces fit. Placed by its begin, the second does not.
  ExpectOutside(
      Outside::SECOND, [] { return PieceAt(0, 2, 1, 2, 3); },
      [] { return PieceAt(2, 2, 2, 2, 3); });
}

TEST(DenseScatterEverywhere, IsRefusedIfASingleRunReachesOutside) {
  ExpectOutside(
      Outside::SECOND, [] { return PieceAt(0, 1, 2, 1, 4); },
      [] { return PieceAt(3, 1, 2, 1, 4); });
}

TEST(DenseScatterEverywhere, IsRefusedIfRunsOfSingleElementsReachOutside) {
  ExpectOutside(
      Outside::SECOND, [] { return PieceAt(0, 2, 1, 2, 2); },
      [] { return PieceAt(2, 2, 1, 2, 2); });
}

TEST(DenseScatterEverywhere, IsRefusedIfAPieceBeginsInFrontOfTheFirst) {
  ExpectOutside(
      Outside::SECOND, [] { return PieceAt(0, 1, 2, 1, 4); },
      [] { return PieceAt(-1, 1, 2, 1, 4); });
}

TEST(DenseScatterEverywhere, IsRefusedIfTheFirstPieceHasMoreRunsThanTheWhole) {
  auto const share = [](int rows, int cols) {
    return DenseBlock(1, rows, 1, cols, false).In(3, 2, MatrixPartition::NonzeroWise());
  };
  ExpectOutside(
      Outside::FIRST, [] { return PieceAt(0, 3, 1, 2, 3); },
      [] { return PieceAt(0, 1, 3, 2, 3); }, false);
  ExpectOutside(
      Outside::BOTH, [&] { return share(1, 3); }, [&] { return share(1, 3); }, false);
}

// After the 7 elements of the first band there is no room for two runs of the whole.
TEST(DenseScatterEverywhere, IsRefusedIfABandAlongTheRunsReachesOutsideFromItsDisplacement) {
  auto const rows = [](int begin, int count, int length) {
    return DenseBlock(1, count, 1, length, true).In(3, 3, MatrixPartition::RowWise(begin));
  };
  auto const columns = [](int begin, int count, int length) {
    return DenseBlock(1, length, 1, count, false).In(3, 3, MatrixPartition::ColumnWise(begin));
  };
  ExpectOutside(
      Outside::SECOND, [&] { return rows(0, 1, 7); }, [&] { return rows(1, 2, 1); });
  ExpectOutside(
      Outside::SECOND, [&] { return columns(0, 1, 7); }, [&] { return columns(1, 2, 1); });
}

// --- The records of the gather

// Puts the records of `rank` between two other ones that no matrix can have.
std::vector<MatrixLocalInfo> PutBetweenOthers(DenseRank<>& rank) {
  constexpr std::int64_t kHuge = std::int64_t{1} << 40;
  Buffer<MatrixLocalInfo>& infos = rank.rank.aggregator.mLocalInfos;
  MatrixLocalInfo const other =
      RecordOf(DensePiece<>(kHuge, kHuge, true, kHuge, {}).matrix, true);
  std::vector<MatrixLocalInfo> records{other, infos.mData[0], infos.mData[1], other};
  infos.Borrow(records.data() + 1, 2);
  infos.mCapacity = 3;
  return records;
}

TEST(DenseScatter, ReadsOnlyTheRecordsOfTheGather) {
  DenseRank<> root(0, Pieces(ColumnShare(0, true), ColumnShare(1, true)));
  DenseRank<> one(1, Pieces(ColumnShare(0, true), ColumnShare(1, true)));
  GatherFirst(root);
  GatherFirst(one, true);
  auto const rootRecords = PutBetweenOthers(root);
  auto const oneRecords = PutBetweenOthers(one);
  NumberTarget(one);

  ExpectOutcome(root.Scatter(root.local), STATUS_OK, "");
  ExpectOutcome(one.Scatter(one.local), STATUS_OK, "");

  EXPECT_THAT(one.local.values, ElementsAre(2, 3, 4, 7, 8, 9, 12, 13, 14));
}

TEST(DenseScatter, CountsTheRecordsInUseAndNotTheRoomForThem) {
  DenseRank<> root(0, Pieces(ColumnShare(0, true), ColumnShare(1, true)));
  std::vector<double> sent(15);
  root.script->On(CommOp::SCATTERV, Keep(sent));
  GatherFirst(root);
  NumberTarget(root);
  auto const records = PutBetweenOthers(root);
  root.rank.aggregator.mLocalInfos.mCapacity = 0;

  ExpectOutcome(root.Scatter(root.local), STATUS_OK, "");

  EXPECT_THAT(sent, ElementsAre(0, 1, 5, 6, 10, 11, 2, 3, 4, 7, 8, 9, 12, 13, 14));
}

}  // namespace
}  // namespace Pavex
