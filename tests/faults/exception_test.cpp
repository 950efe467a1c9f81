// Exceptions that a pool or a communicator of an application throws. They reach the caller, and
// leave the object in the same state as a failed status at the same point.

#include "tests/support/pieces.h"
#include "tests/support/shares.h"
#include "tests/support/throwing.h"

#include <gtest/gtest.h>
#include <memory>

namespace Pavex {
namespace {

// Rank 0 of two, which receives the shares of both.
struct ThrowingRank {
  ThrowingRank()
      : comm(std::make_shared<ThrowingComm>(ScriptedRank(0, {&own.matrix, &other.matrix}))),
        aggregator(&pool) {}

  PavexStatus Gather() { return aggregator.Gather(comm, own.matrix, true); }
  PavexStatus Update() { return aggregator.Update(own.matrix); }
  double const* TargetValues() {
    return dynamic_cast<MatrixCOO<double, int>&>(*aggregator.Target()).mValues.mData;
  }

  CooPiece<> own = Share(0);
  CooPiece<> other = Share(1);
  ThrowingPool pool;
  std::shared_ptr<ThrowingComm> comm;
  Aggregator<double, int> aggregator;
};

// A gather takes six blocks: records, counts, displacements and three arrays. It makes four
// calls: the exchange and three transfers.
constexpr int kBlocksOfGather = 6;
constexpr int kCallsOfGather = 4;

TEST(ExceptionOfThePool, LeavesNoGatheredMatrixAndAGatherThatSucceedsAfterwards) {
  for (int nth = 1; nth <= kBlocksOfGather; ++nth) {
    ThrowingRank rank;
    rank.pool.ThrowAt(nth);

    EXPECT_THROW(rank.Gather(), Thrown);

    EXPECT_EQ(rank.aggregator.Target(), nullptr);
    EXPECT_LE(rank.pool.OutstandingBlocks(), 3U);  // records, counts, displacements
    EXPECT_EQ(rank.Gather(), STATUS_OK);
    EXPECT_EQ(rank.pool.OutstandingBlocks(), 6U);
  }
}

TEST(ExceptionOfTheCommunicator, LeavesNoGatheredMatrixAndAGatherThatSucceedsAfterwards) {
  for (int nth = 1; nth <= kCallsOfGather; ++nth) {
    ThrowingRank rank;
    rank.comm->ThrowAt(nth);

    EXPECT_THROW(rank.Gather(), Thrown);

    EXPECT_EQ(rank.aggregator.Target(), nullptr);
    EXPECT_LE(rank.pool.OutstandingBlocks(), 3U);
    EXPECT_EQ(rank.Gather(), STATUS_OK);
    EXPECT_EQ(rank.pool.OutstandingBlocks(), 6U);
  }
}

TEST(ExceptionInAnUpdate, LeavesTheOldValues) {
  ThrowingRank rank;
  ASSERT_EQ(rank.Gather(), STATUS_OK);
  double const* const before = rank.TargetValues();

  rank.pool.ThrowAt(1);
  EXPECT_THROW(rank.Update(), Thrown);
  EXPECT_EQ(rank.TargetValues(), before);
  EXPECT_EQ(rank.pool.OutstandingBlocks(), 6U);

  rank.comm->ThrowAt(1);
  EXPECT_THROW(rank.Update(), Thrown);
  EXPECT_EQ(rank.TargetValues(), before);
  EXPECT_EQ(rank.pool.OutstandingBlocks(), 6U);
}

}  // namespace
}  // namespace Pavex
