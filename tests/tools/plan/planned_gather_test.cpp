// Checks that a gather does what its plan says: the mode, the calls, the messages with their
// bytes and the peak of the pool on each rank.

#include "pavex/aggregator/aggregator.h"
#include "pavex/comm/local_comm.h"
#include "tests/support/ledger_pool.h"
#include "tests/support/strided_comm.h"
#include "tools/matrix/local_matrix.h"
#include "tools/plan/plan.h"
#include "tools/source/type_choice.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>

namespace Pavex::Tool {
namespace {

using testing::IsEmpty;

// The calls of one rank, and the messages and bytes that they bring from others.
struct Received {
  int mCalls = 0;
  long mMessages = 0;
  long mBytes = 0;
};

void AddCall(CommCall const& call, int rank, int size, Received& received) {
  long const bytes = static_cast<long>(DatatypeSize(call.recvtype));
  auto const add = [&received, bytes](long messages, long elements) {
    received.mMessages += messages;
    received.mBytes += elements * bytes;
  };
  ++received.mCalls;
  switch (call.op) {
    case CommOp::ALLGATHER:
      return add(size - 1, (size - 1L) * call.recvcount);
    case CommOp::GATHERV:
      if (rank != call.peer) return;
      [[fallthrough]];
    case CommOp::ALLGATHERV:
      return add(size - 1,
                 std::accumulate(call.recvcountsRead.begin(), call.recvcountsRead.end(), 0L) -
                     call.recvcountsRead[static_cast<std::size_t>(rank)]);
    case CommOp::BCAST:
      if (rank != call.peer) add(1, call.recvcount);
      return;
    case CommOp::RECV:
      return add(1, call.recvcount);
    case CommOp::SEND:
      return;
    default:
      ADD_FAILURE() << "a gather does not do this: " << call;
  }
}

Received ReceivedBy(TraceComm const& comm, int rank, int size) {
  Received received;
  for (CommCall const& call : comm.Calls())
    if (call.op != CommOp::RANK && call.op != CommOp::SIZE) AddCall(call, rank, size, received);
  return received;
}

// What one rank gathers with. `Traced`: a communicator that records its calls.
template <typename T, typename I, typename Traced>
struct TracedRank {
  explicit TracedRank(std::shared_ptr<Comm> const& inner)
      : comm(std::make_shared<Traced>(inner)), aggregator(&pool) {}

  LedgerPool pool;
  std::shared_ptr<Traced> comm;
  Aggregator<T, I> aggregator;
};

// Gathers on one rank, and compares the calls with the plan.
template <typename T, typename I, typename Traced>
void ExpectAsPlanned(Plan const& plan, Source const& source,
                     std::shared_ptr<Comm> const& comm) {
  int const ranks = plan.mRun.mRanks;
  int const rank = comm->Rank();
  bool const withValues = plan.mCut.mWithValues;
  Piece const piece = CutPiece(source.Whole(), plan.mCut, ranks, rank);
  LocalMatrix<T, I> const local(source.Cut(piece, {}), piece, source.Whole(), plan.mCut);
  TracedRank<T, I, Traced> here(comm);
  auto& aggregator = here.aggregator;

  PavexStatus const status = plan.mRun.mToAll
                                 ? aggregator.Allgather(here.comm, local.Matrix(), withValues)
                                 : aggregator.Gather(here.comm, local.Matrix(), withValues);

  PlanRank const& planned = plan.mRanks[static_cast<std::size_t>(rank)];
  Received const received = ReceivedBy(*here.comm, rank, ranks);
  ASSERT_EQ(status, STATUS_OK);
  EXPECT_EQ(aggregator.Mode(), plan.mMode);
  EXPECT_EQ(aggregator.Describe(), plan.mDescription);
  EXPECT_EQ(local.Matrix().NNZ(), planned.mEntries);
  EXPECT_EQ(local.Bytes(), planned.mBytes);
  EXPECT_EQ(aggregator.Target() != nullptr, planned.mReceiver);
  EXPECT_EQ(received.mCalls, planned.mCalls);
  EXPECT_EQ(received.mMessages, planned.mMessages);
  EXPECT_EQ(received.mBytes, planned.mMessageBytes);
  EXPECT_EQ(static_cast<long>(here.pool.PeakBytes()), planned.mPeakPoolBytes);
}

// `kind`: what the plan is for; `Traced` behaves like it.
template <typename Traced>
void CheckPlan(CommKind kind, std::string const& input, GatherOptions const& options) {
  SCOPED_TRACE(NameOf(kind) + std::string(" ") + input + " " + NameOf(options.mFormat) +
               " by " + NameOf(options.mPartition) + " on " + std::to_string(options.mRanks) +
               (options.mToAll ? " to all" : "") +
               (options.mWithValues ? "" : " without values"));
  auto const source = OpenGenerator(input);
  Plan const plan = MakePlan(*source, options, options, kind);
  ASSERT_TRUE(plan.Accepted()) << plan.mRefusal;
  EXPECT_THAT(plan.mWarnings, IsEmpty());
  WithTypes(plan.mValue, options.mIndex, [&](auto valueTag, auto indexTag) {
    using T = typename decltype(valueTag)::Type;
    using I = typename decltype(indexTag)::Type;
    LocalComm::Run(options.mRanks, [&](std::shared_ptr<Comm> const& comm) {
      ExpectAsPlanned<T, I, Traced>(plan, *source, comm);
    });
  });
}

struct Cut {
  Format format;
  Partition partition;
};

class PlannedGather : public testing::TestWithParam<Cut> {};

// Each case runs on one to five ranks, to the root and to all, with two pairs of types. With
// the second pair a sparse matrix has no values, and a dense one has gaps between the runs.
TEST_P(PlannedGather, DoesWhatThePlanSays) {
  GatherOptions options;
  options.mFormat = GetParam().format;
  options.mPartition = GetParam().partition;
  // A matrix of a single row or column that can be cut that way.
  std::string const thin = options.mPartition == Partition::COLUMNS ? "dense:1x9" : "dense:9x1";
  for (options.mRanks = 1; options.mRanks <= 5; ++options.mRanks) {
    if (options.mPartition == Partition::ONE) options.mHolder = options.mRanks / 2;
    for (bool const toAll : {false, true}) {
      options.mToAll = toAll;
      for (bool const plain : {true, false}) {
        options.mValue = plain ? ValueKind::FLOAT : ValueKind::COMPLEX_DOUBLE;
        options.mIndex = plain ? IndexKind::LONG : IndexKind::INT;
        options.mWithValues = plain || IsDense(options.mFormat);
        options.mPad = !plain && IsDense(options.mFormat) ? 3 : 0;
        for (std::string const& input : {std::string("random:23"), thin}) {
          CheckPlan<TraceComm>(CommKind::MPI, input, options);
          if (options.mRanks > 1) CheckPlan<StridedComm>(CommKind::LOCAL, input, options);
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    , PlannedGather,
    testing::Values(
        Cut{Format::COO, Partition::ROWS}, Cut{Format::COO, Partition::COLUMNS},
        Cut{Format::COO, Partition::ENTRIES}, Cut{Format::COO, Partition::ONE},
        Cut{Format::COO, Partition::ALL}, Cut{Format::CSR, Partition::ROWS},
        Cut{Format::CSR, Partition::ONE}, Cut{Format::CSR, Partition::ALL},
        Cut{Format::CSC, Partition::COLUMNS}, Cut{Format::CSC, Partition::ONE},
        Cut{Format::CSC, Partition::ALL}, Cut{Format::DENSE_ROW, Partition::ROWS},
        Cut{Format::DENSE_ROW, Partition::COLUMNS}, Cut{Format::DENSE_ROW, Partition::ONE},
        Cut{Format::DENSE_ROW, Partition::ALL}, Cut{Format::DENSE_COL, Partition::ROWS},
        Cut{Format::DENSE_COL, Partition::COLUMNS}, Cut{Format::DENSE_COL, Partition::ONE},
        Cut{Format::DENSE_COL, Partition::ALL}),
    [](testing::TestParamInfo<Cut> const& test) {
      std::string name =
          std::string(NameOf(test.param.format)) + "_" + NameOf(test.param.partition);
      std::replace(name.begin(), name.end(), '-', '_');
      return name;
    });

}  // namespace
}  // namespace Pavex::Tool
