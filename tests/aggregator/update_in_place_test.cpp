// The update into the array that the gathered matrix already has.

#include "pavex/comm/local_comm.h"
#include "tests/support/arrays.h"
#include "tests/support/dense_rank.h"
#include "tests/support/formats.h"
#include "tests/support/log_level.h"
#include "tests/support/ownership.h"
#include "tests/support/shares.h"

#include <gmock/gmock.h>

namespace Pavex {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// --- Compressed and coordinate matrices

// Rank `rank` of two, which hold the bands of a compressed matrix.
template <typename Format>
RankUnderTest<> BandRank(int rank) {
  auto const first = BandOf<Format>(0);
  auto const second = BandOf<Format>(1);
  return RankUnderTest<>(ScriptedRank(rank, {&first.matrix, &second.matrix}));
}

template <typename Format>
class UpdateInPlace : public ::testing::Test {};
TYPED_TEST_SUITE(UpdateInPlace, CompressedFormats);

TYPED_TEST(UpdateInPlace, WritesTheArrayThatTheGatheredMatrixHas) {
  RankUnderTest<> rank = BandRank<TypeParam>(0);
  auto const piece = BandOf<TypeParam>(0);
  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);
  auto& values = rank.Target<typename TypeParam::Matrix>().mValues;
  double const* const before = values.mData;
  rank.ForgetThePast();

  ExpectOutcome(Watch([&] { return rank.aggregator.UpdateInPlace(piece.matrix); }), STATUS_OK,
                "");

  EXPECT_EQ(values.mData, before);
  EXPECT_EQ(rank.comm->Calls().at(1).recvbuf, before);
  EXPECT_THAT(rank.comm->DataTexts(),
              ElementsAre("Gatherv(3 double; {3, 2} at {0, 3} double; root 0)"));
  EXPECT_THAT(rank.pool.Events(), IsEmpty());
  ExpectOwned(values, rank.pool, 5);
}

TYPED_TEST(UpdateInPlace, BringsTheValuesOfEveryProcessToEachReceiver) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    auto piece = BandOf<TypeParam>(comm->Rank());
    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, true), STATUS_OK);
    auto const& values = rank.template Target<typename TypeParam::Matrix>().mValues;
    double const* const before = values.mData;
    for (double& value : piece.values)
      value += 1;

    ASSERT_EQ(rank.aggregator.UpdateInPlace(piece.matrix), STATUS_OK);

    EXPECT_THAT(Elements(values), ElementsAre(11, 21, 31, 41, 51));
    EXPECT_EQ(values.mData, before);
  });
}

TYPED_TEST(UpdateInPlace, TakesAnArrayWhereOnlyThePatternWasGathered) {
  RankUnderTest<> rank = BandRank<TypeParam>(0);
  auto const piece = BandOf<TypeParam>(0);
  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);
  auto& values = rank.Target<typename TypeParam::Matrix>().mValues;
  values = Buffer<double>();  // as after a gather of the pattern
  rank.ForgetThePast();

  ASSERT_EQ(rank.aggregator.UpdateInPlace(piece.matrix), STATUS_OK);

  EXPECT_EQ(rank.pool.Events(), std::vector<PoolEvent>{Took(40)});
  ExpectOwned(values, rank.pool, 5);
}

TYPED_TEST(UpdateInPlace, ReplacesAnArrayOfAnotherLengthOrOfAnotherOwner) {
  for (bool const owned : {false, true}) {
    RankUnderTest<> rank = BandRank<TypeParam>(0);
    auto const piece = BandOf<TypeParam>(0);
    ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);
    std::vector<double> other(5);
    auto& values = rank.Target<typename TypeParam::Matrix>().mValues;
    if (owned)
      values = Owned(rank.pool, std::vector<double>(4));
    else
      values.Borrow(other.data(), 5);

    ASSERT_EQ(rank.aggregator.UpdateInPlace(piece.matrix), STATUS_OK);

    EXPECT_NE(values.mData, other.data());
    ExpectOwned(values, rank.pool, 5);
  }
}

TYPED_TEST(UpdateInPlace, ShowsTheNewArrayOfAHolderThatReceives) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    auto const old = CompressedWholeOn<TypeParam>(0, comm->Rank());
    auto const fresh = CompressedWholeOn<TypeParam>(0, comm->Rank());
    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, old.matrix, true), STATUS_OK);
    auto const& values = rank.template Target<typename TypeParam::Matrix>().mValues;
    double const* const before = values.mData;

    ASSERT_EQ(rank.aggregator.UpdateInPlace(fresh.matrix), STATUS_OK);

    if (comm->Rank() == 0)
      ExpectBorrowed(values, fresh.values);
    else
      EXPECT_EQ(values.mData, before);
    EXPECT_THAT(Elements(values), ElementsAre(10, 20, 30));
  });
}

TEST(UpdateInPlaceOfCoordinates, MeetsAnUpdateOfTheOtherProcesses) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    auto piece = Share(comm->Rank());
    ASSERT_EQ(rank.aggregator.Gather(rank.comm, piece.matrix, true), STATUS_OK);
    piece.values[0] = 7;
    bool const root = comm->Rank() == 0;
    double const* const before =
        root ? rank.Target<MatrixCOO<double, int>>().mValues.mData : nullptr;

    ASSERT_EQ(root ? rank.aggregator.UpdateInPlace(piece.matrix)
                   : rank.aggregator.Update(piece.matrix),
              STATUS_OK);

    if (!root) return;
    auto const& values = rank.Target<MatrixCOO<double, int>>().mValues;
    EXPECT_THAT(Elements(values), ElementsAre(7, 20, 7, 40, 50));
    EXPECT_EQ(values.mData, before);
  });
}

TEST(UpdateInPlaceOfCoordinates, IsRefusedAsAnUpdateIs) {
  RankUnderTest<> rank = ShareRank(0);
  auto const piece = Share(0);
  auto const other = Share(1);
  ExpectOutcome(Watch([&] { return rank.aggregator.UpdateInPlace(piece.matrix); }),
                STATUS_WRONG_ORDER, kNotGathered);
  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);

  ExpectOutcome(Watch([&] { return rank.aggregator.UpdateInPlace(other.matrix); }),
                STATUS_MISMATCH,
                "[ERROR] The input matrix is inconsistent with that in the gather phase.\n" +
                    StatusLines(1, STATUS_MISMATCH));
}

TEST(UpdateInPlaceOfCoordinates, ReportsAFailedTransferAsAnUpdateDoes) {
  RankUnderTest<> rank = ShareRank(0);
  auto const piece = Share(0);
  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);
  double const* const before = rank.Target<MatrixCOO<double, int>>().mValues.mData;
  rank.comm->Fail(Fault::Once(1, STATUS_COMM_FAILED), TraceComm::INSTEAD);

  ExpectOutcome(Watch([&] { return rank.aggregator.UpdateInPlace(piece.matrix); }),
                STATUS_COMM_FAILED, StatusLines(1, STATUS_COMM_FAILED));

  EXPECT_EQ((rank.Target<MatrixCOO<double, int>>().mValues.mData), before);
}

// --- Dense matrices

// Updates in place. Returns the status and the log lines.
Outcome UpdateDenseInPlace(DenseRank<>& rank, DensePiece<> const& values) {
  return Watch([&] { return rank.rank.aggregator.UpdateInPlace(values.matrix); });
}

TEST(DenseUpdateInPlace, ReceivesBandsAlongTheRunsInTheArray) {
  DenseRank<> zero(0, Pieces(RowShare(0, true), RowShare(1, true)));
  ASSERT_EQ(zero.Gather().status, STATUS_OK);
  double const* const before = zero.Target().mValues.mData;
  zero.rank.ForgetThePast();
  zero.script->On(CommOp::GATHERV,
                  Deliver({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}));

  ExpectOutcome(UpdateDenseInPlace(zero, zero.local), STATUS_OK, "");

  EXPECT_THAT(zero.TargetValues(),
              ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
  EXPECT_EQ(zero.Target().mValues.mData, before);
  EXPECT_THAT(zero.Events(), IsEmpty());
}

TEST(DenseUpdateInPlace, ReordersBandsSideBySideFromABlockOfTheirOwnIntoTheArray) {
  LogLevel const level(LOG_DEBUG);
  DenseRank<> zero(0, Pieces(ColumnShare(0, true, 1), ColumnShare(1, true)));
  ASSERT_EQ(zero.Gather().status, STATUS_OK);
  double const* const before = zero.Target().mValues.mData;
  zero.rank.ForgetThePast();
  zero.script->On(CommOp::GATHERV, Deliver({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}));

  ExpectOutcome(UpdateDenseInPlace(zero, zero.local), STATUS_OK,
                "[DEBUG] Reorder values of dense matrix from received data\n");

  EXPECT_THAT(zero.TargetValues(),
              ElementsAre(0, 1, 6, 7, 8, 2, 3, 9, 10, 11, 4, 5, 12, 13, 14));
  EXPECT_EQ(zero.Target().mValues.mData, before);
  EXPECT_EQ(zero.Events(), (std::vector<PoolEvent>{Took(15 * 8), Took(6 * 8), GaveBack(15 * 8),
                                                   GaveBack(6 * 8)}));
  ExpectOwned(zero.Target().mValues, zero.rank.pool, 15);
}

TEST(DenseUpdateInPlace, CopiesTheValuesOfAHolderWhoseGatheredMatrixIsACopy) {
  for (int const padding : {0, 2}) {
    DenseRank<> zero(0, Pieces(WholeShare(true, 2), EmptyShare(true)));
    ASSERT_EQ(zero.Gather().status, STATUS_OK);
    double const* const before = zero.Target().mValues.mData;
    DensePiece<> const fresh = DenseBlock(5, 3, 5, 5, true, padding);

    ExpectOutcome(UpdateDenseInPlace(zero, fresh), STATUS_OK, "");

    EXPECT_THAT(zero.TargetValues(),
                ElementsAre(55, 56, 57, 58, 59, 65, 66, 67, 68, 69, 75, 76, 77, 78, 79));
    EXPECT_EQ(zero.Target().mValues.mData, before);
    ExpectOwned(zero.Target().mValues, zero.rank.pool, 15);
  }
}

TEST(DenseUpdateInPlace, ShowsTheNewArrayWhereTheGatheredMatrixBorrows) {
  DenseRank<> holder(0, Pieces(WholeShare(true), EmptyShare(true)));
  DenseRank<> all(0, Pieces(WholeShare(true), WholeShare(true)));
  for (DenseRank<>* const rank : {&holder, &all}) {
    ASSERT_EQ(rank->Gather().status, STATUS_OK);
    DensePiece<> const fresh = DenseBlock(5, 3, 5, 5, true);

    ExpectOutcome(UpdateDenseInPlace(*rank, fresh), STATUS_OK, "");

    ExpectBorrowed(rank->Target().mValues, fresh.values);
  }
}

}  // namespace
}  // namespace Pavex
