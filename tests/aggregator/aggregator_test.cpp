// The object, and the state in which a gather leaves it for later operations.

#include "pavex/aggregator/aggregator.h"

#include "tests/support/instances.h"
#include "tests/support/shares.h"

#include <gmock/gmock.h>
#include <type_traits>

namespace Pavex {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kMismatch[] =
    "[ERROR] The input matrix is inconsistent with that in the gather phase.\n";

// --- The object

template <typename Instance>
class AggregatorObject : public ::testing::Test {};
TYPED_TEST_SUITE(AggregatorObject, AllInstances);

TYPED_TEST(AggregatorObject, IsTheSameSizeForAllInstances) {
  using Object = Aggregator<typename TypeParam::Value, typename TypeParam::Index>;

  EXPECT_EQ(sizeof(Object), 240U);
  EXPECT_FALSE(std::is_polymorphic_v<Object>);
  EXPECT_FALSE(std::is_copy_constructible_v<Object>);
  EXPECT_FALSE(std::is_copy_assignable_v<Object>);
  EXPECT_FALSE(std::is_move_constructible_v<Object>);
  EXPECT_FALSE(std::is_move_assignable_v<Object>);
}

TYPED_TEST(AggregatorObject, HoldsItsMembersAtTheirOffsets) {
  LedgerPool pool;
  AggregatorProbe<typename TypeParam::Value, typename TypeParam::Index> probe(&pool);
  auto const offset = [&probe](auto const& member) {
    return reinterpret_cast<char const*>(&member) - reinterpret_cast<char const*>(&probe);
  };

  EXPECT_EQ(offset(probe.mComm), 0);
  EXPECT_EQ(offset(probe.mPool), 16);
  EXPECT_EQ(offset(probe.mTarget), 24);
  EXPECT_EQ(offset(probe.mLocalInfos), 32);
  EXPECT_EQ(offset(probe.mMode), 72);
  EXPECT_EQ(offset(probe.mSourceRank), 76);
  EXPECT_EQ(offset(probe.mLocalIsWhole), 80);
  EXPECT_EQ(offset(probe.mRoot), 84);
  EXPECT_EQ(offset(probe.mIsReceiver), 88);
  EXPECT_EQ(offset(probe.mWithValues), 89);
  EXPECT_EQ(offset(probe.mPattern), 92);
  EXPECT_EQ(offset(probe.mAttribute), 96);
  EXPECT_EQ(offset(probe.mStoreType), 100);
  EXPECT_EQ(offset(probe.mPartition), 104);
  EXPECT_EQ(offset(probe.mGlobalRows), 120);
  EXPECT_EQ(offset(probe.mGlobalCols), 128);
  EXPECT_EQ(offset(probe.mRows), 136);
  EXPECT_EQ(offset(probe.mCols), 144);
  EXPECT_EQ(offset(probe.mNnz), 152);
  EXPECT_EQ(offset(probe.mCounts), 160);
  EXPECT_EQ(offset(probe.mDispls), 200);
}

TEST(Aggregator, StartsEmptyOverItsPool) {
  LedgerPool pool;
  AggregatorProbe<double, int> aggregator(&pool);

  EXPECT_EQ(aggregator.GetComm(), nullptr);
  EXPECT_EQ(aggregator.mPool, &pool);
  EXPECT_EQ(aggregator.Target(), nullptr);
  EXPECT_EQ(aggregator.mLocalInfos.mData, nullptr);
  EXPECT_EQ(aggregator.mPartition.type, 3);
  EXPECT_EQ(aggregator.mPartition.begin, 0);
  EXPECT_EQ(aggregator.mCounts.mData, nullptr);
  EXPECT_EQ(aggregator.mDispls.mData, nullptr);
  EXPECT_THAT(pool.Events(), IsEmpty());
}

TEST(Aggregator, GivesBackTheMatrixThenItsOwnArraysInReverseOrder) {
  CooPiece<> const own = Share(0);
  CooPiece<> const other = Share(1);
  LedgerPool pool;
  auto const comm = ScriptedRank(0, {&own.matrix, &other.matrix});
  {
    Aggregator<double, int> aggregator(&pool);
    ASSERT_EQ(aggregator.Gather(comm, own.matrix, true), STATUS_OK);
    pool.ForgetEvents();
    EXPECT_EQ(comm.use_count(), 2);
  }

  EXPECT_EQ(pool.Events(), (std::vector<PoolEvent>{GaveBack(40), GaveBack(20), GaveBack(20),
                                                   GaveBack(8), GaveBack(8), GaveBack(144)}));
  EXPECT_EQ(comm.use_count(), 1);
}

TEST(Aggregator, HandsOutTheVeryPointerToItsCommunicator) {
  RankUnderTest<> rank = SingleRank();
  std::shared_ptr<Comm> const first = std::make_shared<SelfComm>();
  std::shared_ptr<Comm> const second = std::make_shared<SelfComm>();
  rank.aggregator.SetComm(first);
  std::shared_ptr<Comm> const& held = rank.aggregator.GetComm();
  EXPECT_EQ(&held, &rank.aggregator.mComm);
  EXPECT_EQ(held, first);

  rank.aggregator.SetComm(second);

  EXPECT_EQ(held, second);
  EXPECT_EQ(first.use_count(), 1);
  EXPECT_EQ(second.use_count(), 2);
}

TEST(Aggregator, BindsTheCommunicatorOfTheLastGather) {
  RankUnderTest<> rank = SingleRank();
  CooPiece<> const piece = Share(0);
  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);
  EXPECT_EQ(rank.aggregator.GetComm(), rank.comm);
  std::shared_ptr<Comm> const another = std::make_shared<SelfComm>();

  ASSERT_EQ(rank.aggregator.Allgather(another, piece.matrix, true), STATUS_OK);

  EXPECT_EQ(rank.aggregator.GetComm(), another);
}

// --- A new object

TEST(FreshAggregator, DoesNothingOnClear) {
  RankUnderTest<> rank = SingleRank();

  rank.aggregator.Clear();

  EXPECT_EQ(rank.aggregator.Target(), nullptr);
  EXPECT_THAT(rank.pool.Events(), IsEmpty());
}

TEST(FreshAggregator, RefusesToUpdate) {
  RankUnderTest<> rank = SingleRank();
  CooPiece<> const piece = Share(0);

  Outcome const outcome = Watch([&] { return rank.aggregator.Update(piece.matrix); });

  ExpectOutcome(outcome, -11, kNotGathered);
  EXPECT_THAT(rank.pool.Events(), IsEmpty());
}

TEST(FreshAggregator, RefusesToScatter) {
  RankUnderTest<> rank = SingleRank();
  CooPiece<> piece = Share(0);

  Outcome const outcome = Watch([&] { return rank.aggregator.Scatter(piece.matrix); });

  ExpectOutcome(outcome, -11, kNotGathered);
}

TEST(FreshAggregator, RefusesToUpdateWithACommunicatorButNoGather) {
  RankUnderTest<> rank = SingleRank();
  rank.aggregator.SetComm(rank.comm);
  CooPiece<> const piece = Share(0);

  Outcome const outcome = Watch([&] { return rank.aggregator.Update(piece.matrix); });

  ExpectOutcome(outcome, -11, kNotGathered);
}

// --- A second gather

TEST(SecondGather, DeletesTheFirstMatrixBeforeAnythingElse) {
  RankUnderTest<> rank = ShareRank(0);
  CooPiece<> const piece = Share(0);
  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);
  rank.ForgetThePast();

  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);

  EXPECT_EQ(rank.pool.Events(),
            (std::vector<PoolEvent>{GaveBack(40), GaveBack(20), GaveBack(20), Took(144),
                                    GaveBack(144), Took(8), GaveBack(8), Took(8), GaveBack(8),
                                    Took(20), Took(20), Took(40)}));
}

TEST(SecondGather, DeletesTheFirstMatrixEvenIfItFails) {
  RankUnderTest<> rank = ShareRank(0);
  CooPiece<> const piece = Share(0);
  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);
  rank.ForgetThePast();
  rank.comm->Fail(Fault::Once(1, -77));

  Outcome const outcome = Gather(rank, piece.matrix);

  ExpectOutcome(outcome, -77, StatusLines(3, -77));
  EXPECT_EQ(rank.aggregator.Target(), nullptr);
  EXPECT_EQ(rank.pool.Events(),
            (std::vector<PoolEvent>{GaveBack(40), GaveBack(20), GaveBack(20), Took(144),
                                    GaveBack(144)}));
}

TEST(SecondGather, MayRunOverAnotherCommunicatorAndClass) {
  RankUnderTest<> rank = ShareRank(0);
  CooPiece<> const share = Share(0);
  ASSERT_EQ(Gather(rank, share.matrix).status, STATUS_OK);
  CsrPiece<> const whole(2, 3, {0, 1, 2}, {0, 2}, {10, 20});

  ASSERT_EQ(rank.aggregator.Gather(std::make_shared<SelfComm>(), whole.matrix, true),
            STATUS_OK);

  EXPECT_EQ((rank.Target<MatrixCSR<double, int>>().mRows), 2);
  EXPECT_EQ(rank.aggregator.mLocalInfos.mSize, 1);
}

// --- Clear

TEST(AnotherCommunicator, InWhichItsRankHasNoRecordStopsAnUpdateWithOneLine) {
  CooPiece<> const own = Share(0);
  CooPiece<> const other = Share(1);
  RankUnderTest<> rank(ScriptedRank(0, {&own.matrix, &other.matrix}));
  ASSERT_EQ(Gather(rank, own.matrix).status, STATUS_OK);
  auto const another = std::make_shared<TraceComm>(std::make_shared<ScriptedComm>(2, 3));
  rank.aggregator.SetComm(another);

  Outcome const outcome = Watch([&] { return rank.aggregator.Update(own.matrix); });

  ExpectOutcome(outcome, -11, kNotGathered);
  EXPECT_THAT(another->DataTexts(), IsEmpty());
}

TEST(Clear, DeletesTheMatrixAndNothingElse) {
  RankUnderTest<> rank = ShareRank(0);
  CooPiece<> const piece = Share(0);
  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);
  rank.ForgetThePast();

  rank.aggregator.Clear();

  EXPECT_EQ(rank.aggregator.Target(), nullptr);
  EXPECT_EQ(rank.pool.Events(),
            (std::vector<PoolEvent>{GaveBack(40), GaveBack(20), GaveBack(20)}));
  EXPECT_EQ(rank.aggregator.GetComm(), rank.comm);
  EXPECT_EQ(rank.aggregator.mLocalInfos.mSize, 2);
  EXPECT_EQ(rank.aggregator.mNnz, 5);
  EXPECT_TRUE(rank.aggregator.mIsReceiver);
}

TEST(Clear, StopsAFollowingUpdateOrScatterOnAReceiver) {
  RankUnderTest<> rank = ShareRank(0);
  CooPiece<> piece = Share(0);
  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);
  rank.aggregator.Clear();
  rank.ForgetThePast();

  ExpectOutcome(Watch([&] { return rank.aggregator.Update(piece.matrix); }), -11, kNotGathered);
  ExpectOutcome(Watch([&] { return rank.aggregator.Scatter(piece.matrix); }), -11,
                kNotGathered);
  EXPECT_THAT(rank.comm->Texts(), IsEmpty());
}

TEST(Clear, DoesNotStopAFollowingUpdateElsewhere) {
  RankUnderTest<> rank = ShareRank(1);
  CooPiece<> const piece = Share(1);
  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);
  rank.aggregator.Clear();

  EXPECT_EQ(rank.aggregator.Update(piece.matrix), STATUS_OK);
  ExpectOutcome(Watch([&] { return rank.aggregator.Update(Share(0).matrix); }), -9,
                kMismatch + StatusLines(1, -9));
}

// --- After a failed gather

TEST(FailedGather, LeavesNothingToUpdateOnAReceiver) {
  RankUnderTest<> rank = ShareRank(0);
  CooPiece<> const piece = Share(0);
  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);
  rank.comm->Fail(Fault::Once(1, -77));
  ASSERT_EQ(Gather(rank, piece.matrix).status, -77);

  ExpectOutcome(Watch([&] { return rank.aggregator.Update(piece.matrix); }), -11, kNotGathered);
}

TEST(FailedGather, LeavesNothingToUpdateAnywhereIfItWasTheFirstAndTheRecordsDisagreed) {
  for (int const ownRank : {0, 1}) {
    RankUnderTest<> rank = ShareRank(ownRank);
    CooPiece<> piece = Share(ownRank);
    piece.matrix.mPattern += 1;
    ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_INCONSISTENT);

    Outcome const outcome = Watch([&] { return rank.aggregator.Update(piece.matrix); });

    ExpectOutcome(outcome, -11, kNotGathered);
  }
}

TEST(FailedGather, LetsAnUpdateElsewhereMoveValuesIfTheRecordsAgreed) {
  RankUnderTest<> rank = ShareRank(1);
  CooPiece<> const piece = Share(1);
  rank.comm->Fail(Fault::Once(2, -77));
  ASSERT_EQ(Gather(rank, piece.matrix).status, -77);
  rank.ForgetThePast();

  EXPECT_EQ(rank.aggregator.Update(piece.matrix), STATUS_OK);
  EXPECT_THAT(rank.comm->DataTexts(), ElementsAre("Gatherv(3 double; double; root 0)"));
}

TEST(FailedGather, LeavesTheReceiversOfTheEarlierOneIfItsRecordsDidNotArrive) {
  RankUnderTest<> rank = ShareRank(1);
  CooPiece<> const piece = Share(1);
  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);
  rank.comm->Fail(Fault::Once(1, -77));
  ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, true), -77);
  rank.ForgetThePast();

  EXPECT_EQ(rank.aggregator.Update(piece.matrix), STATUS_OK);
  EXPECT_THAT(rank.comm->DataTexts(), ElementsAre("Gatherv(3 double; double; root 0)"));
}

TEST(FailedGather, MayBeFollowedByAGatherThatSucceeds) {
  RankUnderTest<> rank = ShareRank(0);
  CooPiece<> const piece = Share(0);
  rank.comm->Fail(Fault::Once(2, -77));
  ASSERT_EQ(Gather(rank, piece.matrix).status, -77);

  ExpectOutcome(Gather(rank, piece.matrix), STATUS_OK, "");
  EXPECT_NE(rank.aggregator.Target(), nullptr);
}

}  // namespace
}  // namespace Pavex
