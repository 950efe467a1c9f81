// Processes that call different operations of an assembler, and records that do not arrive.

#include "pavex/assembly/assembler.h"
#include "pavex/comm/local_comm.h"
#include "tests/assembly/mixed_operations.h"
#include "tests/assembly/small_case.h"
#include "tests/assembly/spoiled_input.h"
#include "tests/support/capture.h"
#include "tests/support/ledger_pool.h"
#include "tests/support/log_level.h"
#include "tests/support/trace_comm.h"

#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace Pavex {
namespace {

TEST(AssemblerAgreement, RefusesOnEveryProcessEveryOperationThatMeetsAnotherOne) {
  LogLevel const silent(-1);
  for (int const ranks : {2, 3}) {
    LocalComm::Run(ranks, [](std::shared_ptr<Comm> const& comm) {
      LedgerPool pool;
      EXPECT_EQ(RunAllMixed(comm, pool), "");
    });
  }
}

TEST(AssemblerAgreement, NamesTheProcessThatCallsAnotherOperationOnEveryProcess) {
  for (int const odd : {0, 1, 2}) {
    std::string const printed = CaptureStdout([odd] {
      LocalComm::Run(3, [odd](std::shared_ptr<Comm> const& comm) {
        LedgerPool pool;
        MixedProcess process(comm, pool, true);
        ASSERT_EQ(process.Run(MixedOperation::GATHER), STATUS_OK);
        EXPECT_EQ(
            process.Run(comm->Rank() == odd ? MixedOperation::UPDATE : MixedOperation::GATHER),
            STATUS_INCONSISTENT);
        if (comm->Rank() != odd) {
          EXPECT_EQ(process.Assembled().Describe().rfind("Process ", 0), 0U)
              << process.Assembled().Describe();
        }
      });
    });
    std::string const line = "[ERROR] Process " + std::to_string(odd == 0 ? 1 : odd) +
                             " calls another operation or overlap than process 0; call one.\n";
    std::size_t lines = 0;
    for (auto at = printed.find(line); at != std::string::npos; at = printed.find(line, at + 1))
      ++lines;
    EXPECT_EQ(lines, 3U) << printed;
  }
}

// A gather of the pattern fails on its receiver alone if there is no room to make a whole.
TEST(AssemblerAgreement, RefusesOnEveryProcessWhatFollowsAGatherThatFailedOnOne) {
  SharedRows const rows;
  double const values[] = {1, 2};
  AssemblyRequest request = Square(3);
  request.mWithValues = false;
  std::string const printed = CaptureStdout([&] {
    LocalComm::Run(3, [&](std::shared_ptr<Comm> const& comm) {
      LedgerPool pool;
      Assembler<double, int> assembler(&pool);
      ASSERT_EQ(assembler.Gather(comm, rows.Pass(nullptr), request), STATUS_OK);
      int last = 0;  // allocation of the gather
      for (PoolEvent const& event : pool.Events())
        last += event.kind == PoolEvent::TOOK ? 1 : 0;
      bool const receives = comm->Rank() == 0;
      if (receives) pool.Fail(Fault::Once(last, STATUS_OUT_OF_MEMORY));
      ASSERT_EQ(assembler.Gather(comm, rows.Pass(nullptr), request),
                receives ? STATUS_OUT_OF_MEMORY : STATUS_OK);

      EXPECT_EQ(assembler.Update(values), STATUS_WRONG_ORDER);
      EXPECT_EQ(assembler.Gather(comm, rows.Pass(nullptr), request), STATUS_OK);
      EXPECT_EQ(assembler.Update(values), STATUS_OK);
    });
  });
  EXPECT_EQ(CountOf("[ERROR] Process 0 has gathered nothing; gather on all processes first.\n",
                    printed),
            3)
      << printed;
}

// Has no rank for its process any more after End, as an MpiComm after MPI was finalised.
class EndingComm : public TraceComm {
 public:
  using TraceComm::TraceComm;

  void End() { mEnded = true; }

 protected:
  PavexStatus Handle(CommCall& call) const override {
    bool const asks = call.op == CommOp::RANK || call.op == CommOp::SIZE;
    return mEnded && asks ? -1 : TraceComm::Handle(call);
  }

 private:
  bool mEnded = false;
};

// Ends `comm`; all operations but Gather are then refused without a call.
void ExpectRefusalsOnceEnded(MixedProcess& process, EndingComm& comm) {
  comm.End();
  comm.ForgetCalls();
  for (MixedOperation const operation : kMixedOperations) {
    if (operation == MixedOperation::GATHER) continue;
    EXPECT_EQ(process.Run(operation), STATUS_INVALID_VALUE) << static_cast<int>(operation);
  }
  EXPECT_TRUE(comm.DataTexts().empty());
}

TEST(AnAssemblerWhoseCommunicatorHasEnded, RefusesEveryOperationWithoutACall) {
  LogLevel const silent(-1);
  for (int const ranks : {1, 2}) {
    LocalComm::Run(ranks, [](std::shared_ptr<Comm> const& comm) {
      auto const ending = std::make_shared<EndingComm>(comm);
      LedgerPool pool;
      MixedProcess process(ending, pool, true);
      ASSERT_EQ(process.Run(MixedOperation::GATHER), STATUS_OK);
      ExpectRefusalsOnceEnded(process, *ending);
      EXPECT_EQ(process.Run(MixedOperation::GATHER), STATUS_INVALID_VALUE);
    });
  }
}

TEST(AnAssemblerWhoseCommunicatorHasEnded, RefusesWhatFollowsAGatherThatFailed) {
  LogLevel const silent(-1);
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    auto const ending = std::make_shared<EndingComm>(comm);
    LedgerPool pool;
    MixedProcess process(ending, pool, true);
    ending->Fail(Fault::Once(1, STATUS_COMM_FAILED), TraceComm::AFTERWARDS);
    ASSERT_EQ(process.Run(MixedOperation::GATHER), STATUS_COMM_FAILED);
    ExpectRefusalsOnceEnded(process, *ending);
  });
}

TEST(AnAssemblerWhoseCommunicatorHasEnded, StillKnowsItsCosts) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    auto const ending = std::make_shared<EndingComm>(comm);
    LedgerPool pool;
    MixedProcess process(ending, pool, true);
    ASSERT_EQ(process.Run(MixedOperation::GATHER), STATUS_OK);
    Assembler<double, int> const& assembled = process.Assembled();
    auto const bytes = [&assembled] {
      return std::vector<std::int64_t>{
          assembled.CostOfGather().mBytesIn, assembled.CostOfUpdate().mBytesIn,
          assembled.CostOfScatter(2).mBytesIn, assembled.CostOfCollect(2).mBytesIn};
    };
    std::vector<std::int64_t> const before = bytes();
    ending->End();
    EXPECT_EQ(bytes(), before);
  });
}

// Says that an exchange of records has succeeded, and brings none.
class SilentComm : public CallComm {
 public:
  SilentComm(int rank, int size) : CallComm(rank, size) {}

 protected:
  PavexStatus Handle(CommCall& call) const override {
    if (call.op == CommOp::RANK) return mRank;
    return call.op == CommOp::SIZE ? mSize : STATUS_OK;
  }
};

TEST(AssemblerAgreement, RefusesRecordsThatHaveNotArrived) {
  LogLevel const silent(-1);
  for (int const rank : {0, 1, 2}) {
    LedgerPool pool;  // fills its blocks with bytes of its own
    Assembler<double, int> assembler(&pool);
    EXPECT_EQ(assembler.Gather(std::make_shared<SilentComm>(rank, 3), Own(), Square(2)),
              STATUS_INCONSISTENT);
    EXPECT_EQ(assembler.Describe(), "Process " + std::to_string(rank == 0 ? 1 : rank) +
                                        " calls another operation or overlap than process 0; "
                                        "call one.");
  }
}

}  // namespace
}  // namespace Pavex
