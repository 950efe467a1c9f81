// Every call of one process fails while the others run on, over memory that they share.

#include "pavex/comm/node_comm.h"
#include "pavex/comm/node_pool.h"
#include "tests/faults/fault_run.h"
#include "tests/faults/kinds.h"
#include "tests/support/log_level.h"
#include "tests/support/meeting_comm.h"

#include <algorithm>
#include <cstdio>
#include <gtest/gtest.h>
#include <memory>

namespace Pavex {
namespace {

// Each kind takes many faults: without PAVEX_TESTS_ALL every eighth one.
#ifdef PAVEX_TESTS_ALL
constexpr std::size_t kStride = 1;
#else
constexpr std::size_t kStride = 8;
#endif

class FaultsOverSharedMemory : public ::testing::Test {
 protected:
  using Rank = FaultyRank<double, int>;
  using Run = FaultRun<double, int>;

  int Processes() const { return mComm->Size(); }

  // A process that waits for a message of Send does not notice a failure of its sender.
  bool SendsMessages(Round const& round, Operation operation) const {
    for (int rank = 0; rank < Processes(); ++rank) {
      for (Step const& step : StepsOf(round, rank, operation, Rank::kBytes)) {
        bool const message = step.op == CommOp::SEND || step.op == CommOp::RECV;
        if (!step.isPool && message) return true;
      }
    }
    return false;
  }

  // What this process did on the way, and the gather afterwards.
  void Inject(Round const& round, int failing, Operation operation,
              Injection const& injection) {
    Run const run(round, mComm->Rank(), operation);
    Rank rank(round, mComm->Rank(), &mPool);
    rank.Bind(mComm);
    PavexStatus const prepared = rank.Prepare(operation);
    EXPECT_EQ(prepared, STATUS_OK);
    bool const fails = mComm->Rank() == failing;
    if (fails) rank.Plan(injection);
    PavexStatus const status = rank.Run(operation);
    std::string const difference =
        fails ? run.CheckInjected(rank, injection, status) : run.CheckPeer(rank, status, true);
    EXPECT_EQ(difference, "");
    mComm->Meet();

    rank.Bind(mComm);
    EXPECT_EQ(run.CheckDone(rank, Operation::GATHER, rank.Run(Operation::GATHER)), "");
    ++mInjected;
  }

  LogLevel const mLevel{-1};  // which line is whose cannot be told
  NodePool mPool;
  std::shared_ptr<MeetingComm> const mComm =
      std::make_shared<MeetingComm>(std::make_shared<NodeComm>(MPI_COMM_WORLD));
  long mInjected = 0;
};

// The calls of the pool and of the communicator are those over any other communicator, also
// where every other process has plain blocks.
TEST_F(FaultsOverSharedMemory, AreNoneInAnyKindOfMatrix) {
  for (Round const& round : OneRoundOfEachKind(Processes())) {
    for (Operation const operation : OperationsOn(round)) {
      for (bool const mixed : {false, true}) {
        SCOPED_TRACE(Describe(round) + ", " + NameOf(operation));
        bool const plain = mixed && mComm->Rank() % 2 == 1;
        Run const run(round, mComm->Rank(), operation);
        Rank rank(round, mComm->Rank(), plain ? nullptr : &mPool);
        rank.Bind(mComm);
        EXPECT_EQ(rank.Prepare(operation), STATUS_OK);
        EXPECT_EQ(run.CheckDone(rank, operation, rank.Run(operation)), "");
      }
    }
  }
}

TEST_F(FaultsOverSharedMemory, LetTheOthersEndAndGatherAgain) {
  std::vector<Round> const rounds = OneRoundOfEachKind(Processes());
  for (std::size_t k = 0; k < rounds.size() && !HasFailure(); k += kStride) {
    Round const& round = rounds[k];
    for (Operation const operation : OperationsOn(round)) {
      if (SendsMessages(round, operation)) continue;
      for (int failing = 0; failing < Processes(); ++failing) {
        std::vector<Step> const steps = StepsOf(round, failing, operation, Rank::kBytes);
        for (Injection const& injection : TwoInjectionsEach(steps)) {
          SCOPED_TRACE(Describe(round) + ", " + NameOf(operation) + " on rank " +
                       std::to_string(failing) + ", " + Text(injection));
          Inject(round, failing, operation, injection);
        }
      }
    }
  }
  if (mComm->Rank() == 0)
    std::printf("%ld faults injected into %d processes that share memory\n", mInjected,
                Processes());
  EXPECT_GE(mInjected, kLeastFaultsPerKind * static_cast<long>(rounds.size() / kStride / 2));
}

}  // namespace
}  // namespace Pavex
