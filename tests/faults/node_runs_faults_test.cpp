// Every call of one process fails while the others run on, over memory that they share, where
// the pieces of matrices are moved as runs.

#include "pavex/comm/node_comm.h"
#include "pavex/comm/node_pool.h"
#include "tests/faults/faulty_rank.h"
#include "tests/faults/kinds.h"
#include "tests/support/log_level.h"
#include "tests/support/meeting_comm.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace Pavex {
namespace {

// Each kind takes many faults: without PAVEX_TESTS_ALL every eighth one.
#ifdef PAVEX_TESTS_ALL
constexpr std::size_t kStride = 1;
#else
constexpr std::size_t kStride = 8;
#endif

constexpr PavexStatus kInjected = -77;

class FaultsOfRuns : public ::testing::Test {
 protected:
  using Rank = FaultyRank<double, int>;

  int Processes() const { return mComm->Size(); }

  // A process that waits for a message of Send does not notice a failure of its sender.
  bool SendsMessages(Round const& round) const {
    return round.holding == Holding::ONE && !round.toAll;
  }

  // Whether the blocks in use are those of the gathered matrix and of metadata.
  std::string CheckMemory(Rank& rank) const {
    auto const ranks = static_cast<std::size_t>(Processes());
    std::size_t const records = 72 * ranks;
    std::size_t const counts = sizeof(int) * ranks;
    for (std::size_t const kept : {std::size_t{0}, records, records + counts}) {
      if (rank.CheckMemory(kept).empty()) return "";
    }
    return rank.CheckMemory(records + 2 * counts);
  }

  std::string CheckDone(Rank& rank, Operation operation, PavexStatus status) const {
    if (status != STATUS_OK) return "status is " + std::to_string(status);
    std::string const difference = rank.CheckSuccess(operation);
    return difference.empty() ? CheckMemory(rank) : difference;
  }

  std::string CheckFailed(Rank& rank, Operation operation, bool inPlace) const {
    std::string const difference = rank.CheckFailure(operation, inPlace);
    return difference.empty() ? CheckMemory(rank) : difference;
  }

  std::string Check(Rank& rank, Operation operation, PavexStatus status,
                    Injection const* injection) const {
    if (injection != nullptr && rank.FaultStruck()) {
      if (status != injection->status) return "status is " + std::to_string(status);
      bool const arrives = !injection->isPool && injection->mode == TraceComm::AFTERWARDS;
      return CheckFailed(rank, operation, arrives && rank.ReceivesInPlace(operation));
    }
    return status == STATUS_COMM_FAILED
               ? CheckFailed(rank, operation, rank.ReceivesInPlace(operation))
               : CheckDone(rank, operation, status);
  }

  // What every process did on the way, and the gather afterwards. Whether the fault has struck;
  // the same on all.
  bool Inject(Round const& round, int failing, Operation operation,
              Injection const& injection) {
    Rank rank(round, mComm->Rank(), &mPool);
    rank.BindRuns(mComm);
    EXPECT_EQ(rank.Prepare(operation), STATUS_OK);
    bool const fails = mComm->Rank() == failing;
    if (fails) rank.Plan(injection);
    PavexStatus const status = rank.Run(operation);
    EXPECT_EQ(Check(rank, operation, status, fails ? &injection : nullptr), "");
    mRunCalls += rank.RunCalls();
    mFailedRunCalls += rank.RunCallFailed() ? 1 : 0;
    int struck = fails && rank.FaultStruck() ? 1 : 0;
    mComm->Meet();
    EXPECT_EQ(mComm->Bcast(&struck, 1, DATATYPE_INT, failing), STATUS_OK);

    rank.BindRuns(mComm);
    EXPECT_EQ(CheckDone(rank, Operation::GATHER, rank.Run(Operation::GATHER)), "");
    mInjected += struck;
    return struck != 0;
  }

  // Lets the first call fail, then the second, until no call is left.
  void InjectAll(Round const& round, int failing, Operation operation, bool isPool,
                 TraceComm::FaultMode mode) {
    Injection injection;
    injection.isPool = isPool;
    injection.status = kInjected;
    injection.mode = mode;
    while (Inject(round, failing, operation, injection) && !HasFailure())
      ++injection.nth;
  }

  LogLevel const mLevel{-1};  // which line is whose cannot be told
  NodePool mPool;
  std::shared_ptr<MeetingComm> const mComm =
      std::make_shared<MeetingComm>(std::make_shared<NodeComm>(MPI_COMM_WORLD));
  long mInjected = 0;
  long mRunCalls = 0;
  long mFailedRunCalls = 0;  // of this process
};

TEST_F(FaultsOfRuns, LetTheOthersEndAndGatherAgain) {
  std::vector<Round> const rounds = OneRoundOfEachKind(Processes());
  for (std::size_t k = 0; k < rounds.size(); k += kStride) {
    Round const& round = rounds[k];
    if (SendsMessages(round)) continue;
    for (Operation const operation : OperationsOn(round)) {
      for (int failing = 0; failing < Processes(); ++failing) {
        SCOPED_TRACE(Describe(round) + ", " + NameOf(operation) + " on rank " +
                     std::to_string(failing));
        InjectAll(round, failing, operation, true, TraceComm::INSTEAD);
        InjectAll(round, failing, operation, false, TraceComm::INSTEAD);
        InjectAll(round, failing, operation, false, TraceComm::AFTERWARDS);
        if (HasFailure()) return;
      }
    }
  }
  EXPECT_GE(mInjected, static_cast<long>(rounds.size() / kStride));
  EXPECT_GE(mRunCalls, static_cast<long>(rounds.size() / kStride));
  EXPECT_GT(mFailedRunCalls, 0);
}

}  // namespace
}  // namespace Pavex
