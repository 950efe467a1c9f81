// Scatters that fail: the status, how many callers report it, which memory is given back and
// what does not change.

#include "pavex/runtime/self_comm.h"
#include "tests/support/dense_rank.h"
#include "tests/support/log_level.h"

#include <algorithm>
#include <cstring>
#include <gmock/gmock.h>
#include <numeric>

namespace Pavex {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr PavexStatus kFailure = -77;
constexpr char kMismatch[] =
    "[ERROR] The input matrix is inconsistent with that in the gather phase.\n";
constexpr char kNoValues[] = "[ERROR] Local matrix has no values when we need it.\n";

// Gathers onto rank 0 or onto all ranks, and forgets the calls and allocations of that.
void GatherFirst(DenseRank<>& rank, bool toAll = false) {
  ASSERT_EQ((toAll ? rank.Allgather() : rank.Gather()).status, STATUS_OK);
  rank.rank.ForgetThePast();
}

// --- The checks before it

TEST(RefusedScatter, NeedsGatheredMatrixOnReceiver) {
  DenseRank<> zero(0, Pieces(RowShare(0, true), RowShare(1, true)));
  GatherFirst(zero);
  zero.rank.aggregator.Clear();

  Outcome const scattered = zero.Scatter(zero.local);

  ExpectOutcome(scattered, STATUS_WRONG_ORDER, kNotGathered);
  EXPECT_THAT(zero.Calls(), IsEmpty());
}

TEST(RefusedScatter, NeedsNoGatheredMatrixElsewhere) {
  DenseRank<> one(1, Pieces(RowShare(0, true), RowShare(1, true)));
  GatherFirst(one);
  ASSERT_EQ(one.rank.aggregator.Target(), nullptr);

  Outcome const scattered = one.Scatter(one.local);

  ExpectOutcome(scattered, STATUS_OK, "");
  EXPECT_THAT(one.Calls(), ElementsAre("Scatterv(double; 10 double; root 0)"));
}

TEST(RefusedScatter, ComesBeforeAnyTransferForAnotherMatrixThanTheGathered) {
  DenseRank<> zero(0, Pieces(RowShare(0, true), RowShare(1, true)));
  GatherFirst(zero);
  DensePiece<> other = RowShare(1, true);

  Outcome const scattered = zero.Scatter(other);

  ExpectOutcome(scattered, STATUS_MISMATCH, kMismatch + StatusLines(1, STATUS_MISMATCH));
  EXPECT_THAT(zero.Calls(), IsEmpty());
}

TEST(RefusedScatter, ComesBeforeAnyTransferForMatrixWithoutValues) {
  DenseRank<> zero(0, Pieces(RowShare(0, true), RowShare(1, true)));
  GatherFirst(zero);
  DensePiece<> other = RowShare(0, true);
  other.matrix.mValues.mSize = 0;

  Outcome const scattered = zero.Scatter(other);

  ExpectOutcome(scattered, STATUS_INCONSISTENT,
                kNoValues + StatusLines(1, STATUS_INCONSISTENT));
  EXPECT_THAT(zero.Calls(), IsEmpty());
}

// Gathers `matrix` on a single process and expects its scatter to be refused for its type.
template <typename M>
void ExpectUnsupported(M& matrix, std::string const& type) {
  RankUnderTest<> rank(std::make_shared<SelfComm>());
  ASSERT_EQ(rank.aggregator.Gather(rank.comm, matrix, true), STATUS_OK);

  Outcome const scattered = Watch([&] { return rank.aggregator.Scatter(matrix); });
  ++matrix.mAttribute;
  Outcome const mismatch = Watch([&] { return rank.aggregator.Scatter(matrix); });

  ExpectOutcome(scattered, STATUS_NOT_SUPPORTED,
                "[ERROR] Unsupported matrix store type " + type + ".\n");
  // The checks of the matrix come first.
  ExpectOutcome(mismatch, STATUS_MISMATCH, kMismatch + StatusLines(1, STATUS_MISMATCH));
}

TEST(RefusedScatter, IsThatOfEverySparseMatrix) {
  CsrPiece<> csr(1, 3, {0, 2}, {0, 2}, {5, 6});
  CscPiece<> csc(3, 1, {0, 2}, {0, 2}, {5, 6});
  CooPiece<> coo(3, 3, {0, 2}, {0, 2}, {5, 6});

  ExpectUnsupported(csr.matrix, "2");
  ExpectUnsupported(csc.matrix, "5");
  ExpectUnsupported(coo.matrix, "8");
}

// --- Arrays that are too short for the shape

TEST(RefusedScatter, ReportsTheSameElementCountOnEveryRank) {
  for (int const self : {0, 1}) {
    // The pieces have 9 elements together, of a 3 x 5 matrix. They are gathered as a pattern.
    DenseRank<> rank(
        self,
        Pieces(DenseBlock(1, 3, 1, 1, true).In(3, 5, MatrixPartition::NonzeroWise()),
               DenseBlock(1, 3, 2, 2, true).In(3, 5, MatrixPartition::NonzeroWise())),
        false);
    GatherFirst(rank);

    Outcome const scattered = rank.Scatter(rank.local);

    ExpectOutcome(scattered, STATUS_INCONSISTENT,
                  "[ERROR] The Global NNZ(9) not equal to 3 * 5.\n");
    EXPECT_THAT(rank.Calls(), IsEmpty());
  }
}

// The rows have two elements, but those of the whole have three. With the leading dimension of
// the whole, the first band ends inside the 12 gathered elements, and the second one after
// them.
TEST(RefusedScatter, ReadsNothingAfterThePatternOfNarrowRowBandsAndAllThatIsInside) {
  auto const share = [](int begin, int rows) {
    return DenseBlock(1 + begin, rows, 1, 2, true).In(6, 3, MatrixPartition::RowWise(begin));
  };
  DenseRank<> zero(0, Pieces(share(0, 4), share(4, 2)), false);
  DenseRank<> one(1, Pieces(share(0, 4), share(4, 2)), false);
  GatherFirst(zero, true);
  GatherFirst(one, true);
  auto& whole = dynamic_cast<MatrixDense<double, int>&>(*zero.rank.aggregator.Target());
  std::iota(whole.mValues.mData, whole.mValues.mData + 12, 0.0);
  std::vector<double> const before = one.local.values;

  ExpectOutcome(zero.Scatter(zero.local), STATUS_OK, "");
  ExpectOutcome(one.Scatter(one.local), STATUS_INCONSISTENT,
                StatusLines(1, STATUS_INCONSISTENT));

  EXPECT_THAT(zero.local.values, ElementsAre(0, 1, 3, 4, 6, 7, 9, 10));
  EXPECT_EQ(one.local.values, before);
}

// The values are not checked if every rank holds the whole.
TEST(RefusedScatter, WritesToNoMatrixWithoutValuesWhereEveryRankHoldsTheWhole) {
  for (bool const toAll : {false, true}) {
    for (int const self : {0, 1}) {
      for (int const padding : {0, 1}) {
        DenseRank<> rank(self, Pieces(WholeShare(true), WholeShare(true)));
        GatherFirst(rank, toAll);
        DensePiece<> empty(3, 5, true, 5 + padding, {});

        Outcome const scattered = rank.Scatter(empty);

        ExpectOutcome(scattered, STATUS_INCONSISTENT, StatusLines(1, STATUS_INCONSISTENT));
        EXPECT_THAT(rank.Calls(), IsEmpty());
      }
    }
  }
}

TEST(RefusedScatter, ReadsNoGatheredMatrixWithoutValues) {
  for (bool const toAll : {false, true}) {
    DensePiece<> empty(3, 5, true, 5, {});
    DenseRank<> zero(0, Pieces(std::move(empty), WholeShare(true)));
    GatherFirst(zero, toAll);
    DensePiece<> destination = WholeShare(true);

    Outcome const scattered = zero.Scatter(destination);

    ExpectOutcome(scattered, STATUS_INCONSISTENT, StatusLines(1, STATUS_INCONSISTENT));
    EXPECT_THAT(zero.Calls(), IsEmpty());
  }
}

// --- Steps that fail

// The root of a scatter that needs every kind of storage.
DenseRank<> PaddedRoot() {
  return DenseRank<>(0, Pieces(ColumnShare(0, true, 1), ColumnShare(1, true)));
}

// The events of the pool until its n-th request fails, and how many callers report the failure.
struct PoolFailure {
  int lines;
  std::vector<PoolEvent> events;
};

TEST(FailedScatter, TransfersNothingIfThePoolFailsAtAnyPoint) {
  std::vector<PoolFailure> const expected = {{2, {Refused(120)}},
                                             {1, {Took(120), Refused(48), GaveBack(120)}}};
  int nth = 0;
  for (PoolFailure const& at : expected) {
    DenseRank<> zero = PaddedRoot();
    GatherFirst(zero);
    std::vector<double> const before = zero.local.values;
    zero.rank.pool.Fail(Fault::Once(++nth, kFailure));

    Outcome const scattered = zero.Scatter(zero.local);

    ExpectOutcome(scattered, kFailure, StatusLines(at.lines, kFailure));
    EXPECT_EQ(zero.Events(), at.events);
    EXPECT_THAT(zero.Calls(), IsEmpty());
    EXPECT_EQ(zero.local.values, before);
  }
}

TEST(FailedScatter, NeedsTwoBlocksToSucceed) {
  DenseRank<> zero = PaddedRoot();
  GatherFirst(zero);
  zero.rank.pool.Fail(Fault::Once(3, kFailure));

  ExpectOutcome(zero.Scatter(zero.local), STATUS_OK, "");

  EXPECT_FALSE(zero.rank.pool.FaultStruck());
}

TEST(FailedScatter, IsReportedByTwoCallersIfTheWholeCannotBePacked) {
  DenseRank<> zero(0, Pieces(WholeShare(true, 1), WholeShare(true)));
  GatherFirst(zero);
  zero.rank.pool.Fail(Fault::Once(1, kFailure));

  Outcome const scattered = zero.Scatter(zero.local);

  ExpectOutcome(scattered, kFailure, StatusLines(2, kFailure));
  EXPECT_THAT(zero.Calls(), IsEmpty());
}

TEST(FailedScatter, IsReportedOnceIfThereIsNoRoomToReceiveTheWhole) {
  for (auto const& holdsAll : {false, true}) {
    DenseRank<> one(
        1, Pieces(holdsAll ? WholeShare(true) : EmptyShare(true), WholeShare(true, 1)));
    GatherFirst(one);
    one.rank.pool.Fail(Fault::Once(1, kFailure));

    Outcome const scattered = one.Scatter(one.local);

    ExpectOutcome(scattered, kFailure, StatusLines(1, kFailure));
    EXPECT_THAT(one.Calls(), IsEmpty());
  }
}

TEST(FailedScatter, GivesBothBlocksBackAndLeavesTheMatricesIfThePiecesDoNotArrive) {
  DenseRank<> zero = PaddedRoot();
  zero.script->On(CommOp::SCATTERV, [](CommCall const& call) {
    std::fill_n(static_cast<double*>(call.recvbuf), call.recvcount, -5.0);
    return kFailure;
  });
  GatherFirst(zero);
  std::vector<double> const before = zero.local.values;
  std::vector<double> const whole = zero.TargetValues();

  Outcome const scattered = zero.Scatter(zero.local);

  ExpectOutcome(scattered, kFailure, StatusLines(1, kFailure));
  EXPECT_EQ(zero.Events(),
            (std::vector<PoolEvent>{Took(120), Took(48), GaveBack(120), GaveBack(48)}));
  EXPECT_EQ(zero.local.values, before);
  EXPECT_EQ(zero.rank.pool.OutstandingBlocks(), 4U);
  EXPECT_TRUE(std::memcmp(whole.data(), zero.Target().mValues.mData, 120) == 0);
}

TEST(FailedScatter, IsReportedOnceIfTheWholeDoesNotArrive) {
  struct Job {
    CommOp op;
    int self;
    std::vector<DensePiece<>> pieces;
  };
  std::vector<Job> jobs;
  jobs.push_back({CommOp::SEND, 0, Pieces(EmptyShare(true), WholeShare(true, 1))});
  jobs.push_back({CommOp::RECV, 1, Pieces(EmptyShare(true), WholeShare(true, 1))});
  jobs.push_back({CommOp::BCAST, 1, Pieces(WholeShare(true, 1), WholeShare(true, 1))});
  for (Job& job : jobs) {
    DenseRank<> rank(job.self, std::move(job.pieces));
    rank.script->Return(job.op, kFailure);
    GatherFirst(rank);
    std::vector<double> const before = rank.local.values;
    std::size_t const blocks = rank.rank.pool.OutstandingBlocks();

    Outcome const scattered = rank.Scatter(rank.local);

    ExpectOutcome(scattered, kFailure, StatusLines(1, kFailure));
    EXPECT_EQ(rank.local.values, before);
    EXPECT_EQ(rank.rank.pool.OutstandingBlocks(), blocks);
  }
}

TEST(FailedScatter, MayBeFollowedByOneThatSucceeds) {
  DenseRank<> zero = PaddedRoot();
  GatherFirst(zero);
  zero.script->Return(CommOp::SCATTERV, kFailure);
  ASSERT_EQ(zero.Scatter(zero.local).status, kFailure);
  zero.script->On(CommOp::SCATTERV, Deliver({1, 2, 3, 4, 5, 6}));

  ExpectOutcome(zero.Scatter(zero.local), STATUS_OK, "");

  EXPECT_THAT(zero.local.values, ElementsAre(1, 2, kGap, 3, 4, kGap, 5, 6));
}

TEST(FailedScatter, PrintsNothingBelowTheErrorLevel) {
  LogLevel const level(LOG_FATAL);
  DenseRank<> zero = PaddedRoot();
  GatherFirst(zero);
  zero.script->Return(CommOp::SCATTERV, kFailure);

  ExpectOutcome(zero.Scatter(zero.local), kFailure, "");
}

}  // namespace
}  // namespace Pavex
