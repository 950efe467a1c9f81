// Compares the formulas of docs/cost.md with what a counting communicator and a counting pool
// see, for every format, mode, partition and operation.

#include "tests/docs/cost_model.h"

#include "pavex/aggregator/aggregator.h"
#include "pavex/comm/local_comm.h"
#include "tests/faults/kinds.h"
#include "tests/property/local_matrix.h"
#include "tests/support/aggregator_probe.h"
#include "tests/support/instances.h"

#include <gtest/gtest.h>
#include <memory>
#include <numeric>
#include <vector>

namespace Pavex {
namespace {

long Sum(std::vector<int> const& counts) {
  return std::accumulate(counts.begin(), counts.end(), 0L);
}

// Adds the bytes of one call to a cost, seen from `rank` of `ranks`.
void Count(CommCall const& call, int rank, int ranks, Cost& cost) {
  auto const sent = static_cast<long>(DatatypeSize(call.sendtype));
  auto const received = static_cast<long>(DatatypeSize(call.recvtype));
  bool const isRoot = rank == call.peer;
  switch (call.op) {
    case CommOp::RANK:
    case CommOp::SIZE:
      return;
    case CommOp::SEND:
      cost.out += call.sendcount * sent;
      break;
    case CommOp::RECV:
      cost.in += call.recvcount * received;
      break;
    case CommOp::GATHERV:
    case CommOp::ALLGATHERV:
      cost.out += call.sendcount * sent;
      cost.in += Sum(call.recvcountsRead) * received;
      break;
    case CommOp::SCATTERV:
      cost.out += Sum(call.sendcountsRead) * sent;
      cost.in += call.recvcount * received;
      break;
    case CommOp::ALLGATHER:
      cost.out += call.sendcount * sent;
      cost.in += call.recvcount * received * ranks;
      break;
    case CommOp::BCAST:
      (isRoot ? cost.out : cost.in) += call.recvcount * received;
      break;
    default:
      ADD_FAILURE() << "the library calls " << call;
  }
  ++cost.calls;
}

// One rank of a round with its counting pool and communicator.
template <typename T, typename I>
class CountedRank {
 public:
  CountedRank(Round const& round, std::shared_ptr<Comm> const& comm)
      : mRound(round),
        mRank(comm->Rank()),
        mRanks(comm->Size()),
        mPiece(round.PieceOf(mRank)),
        mModel(round, mRank, sizeof(T), sizeof(I)),
        mGathered(round, mRank, GATHERED, mPiece.hasValues, 1),
        mUpdated(round, mRank, UPDATED, true, 2),
        mScattered(round, mRank, SCATTERED, true, 3),
        mCounted(comm) {}

  void CheckAll() {
    Check("gather", mModel.Gather(), [this] { return Gather(); });
    EXPECT_EQ(static_cast<long>(mCounted.pool.OutstandingBytes()), mModel.Held())
        << Describe(mRound) << ", bytes held on rank " << mRank << " of " << mRanks;
    Check("update", mModel.Update(),
          [this] { return mCounted.aggregator.Update(mUpdated.Matrix()); });
    Check("update in place", mModel.UpdateInPlace(),
          [this] { return mCounted.aggregator.UpdateInPlace(mUpdated.Matrix()); });
    if (mRound.IsDense())
      Check("scatter", mModel.Scatter(),
            [this] { return mCounted.aggregator.Scatter(mScattered.Matrix()); });
    mCounted.aggregator.Clear();  // as the next gather does first
    Check("gather again", mModel.GatherAgain(), [this] { return Gather(); });
  }

 private:
  PavexStatus Gather() {
    auto& aggregator = mCounted.aggregator;
    return mRound.toAll
               ? aggregator.Allgather(mCounted.comm, mGathered.Matrix(), mPiece.withValues)
               : aggregator.Gather(mCounted.comm, mGathered.Matrix(), mPiece.withValues);
  }

  template <typename Operation>
  void Check(char const* name, Cost const& expected, Operation operation) {
    mCounted.ForgetThePast();
    mCounted.pool.RestartPeak();
    std::size_t const before = mCounted.pool.OutstandingBytes();
    EXPECT_EQ(operation(), STATUS_OK);
    Cost cost;
    for (CommCall const& call : mCounted.comm->Calls())
      Count(call, mRank, mRanks, cost);
    cost.peak = static_cast<long>(mCounted.pool.PeakBytes() - before);
    EXPECT_EQ(cost, expected) << Describe(mRound) << ", " << name << " on rank " << mRank
                              << " of " << mRanks;
  }

  Round const& mRound;
  int const mRank;
  int const mRanks;
  Piece const& mPiece;
  CostModel const mModel;
  LocalMatrix<T, I> mGathered;
  LocalMatrix<T, I> mUpdated;
  LocalMatrix<T, I> mScattered;
  RankUnderTest<T, I> mCounted;
};

template <typename Instance>
class CostModelOf : public testing::Test {};
using Instances = testing::Types<Instance<double, int>, Instance<std::complex<float>, long>,
                                 Instance<float, long>>;
TYPED_TEST_SUITE(CostModelOf, Instances);

TYPED_TEST(CostModelOf, HoldsForEveryFormatModePartitionAndOperation) {
  for (int ranks = 1; ranks <= 4; ++ranks) {
    for (Round const& round : OneRoundOfEachKind(ranks)) {
      LocalComm::Run(ranks, [&round](std::shared_ptr<Comm> const& comm) {
        CountedRank<typename TypeParam::Value, typename TypeParam::Index>(round, comm)
            .CheckAll();
      });
    }
  }
}

}  // namespace
}  // namespace Pavex
