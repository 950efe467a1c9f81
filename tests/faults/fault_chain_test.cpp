// Every call of one rank fails in every way. A record of a clean run takes the place of the
// peers, so that the rank is alone and each line of the log is its own.

#include "pavex/comm/local_comm.h"
#include "tests/faults/fault_run.h"
#include "tests/faults/kinds.h"
#include "tests/faults/replay.h"
#include "tests/support/capture.h"
#include "tests/support/outcome.h"

#include <cstdio>
#include <gtest/gtest.h>

namespace Pavex {
namespace {

// The data that arrived at one rank in a run without faults.
struct Recordings {
  std::vector<RecordedCall> gather;
  std::vector<RecordedCall> update;
  std::vector<RecordedCall> scatter;

  // The data that arrives from the first call until `operation` has ended.
  std::vector<RecordedCall> Until(Operation operation) const {
    std::vector<RecordedCall> calls = gather;
    auto const append = [&calls](std::vector<RecordedCall> const& more) {
      calls.insert(calls.end(), more.begin(), more.end());
    };
    if (operation == Operation::GATHER_AGAIN) append(gather);
    if (operation >= Operation::UPDATE) append(update);
    if (operation == Operation::SCATTER) append(scatter);
    return calls;
  }
};

template <typename Instance>
class FaultChains : public testing::Test {
 protected:
  using T = typename Instance::Value;
  using I = typename Instance::Index;

  void InjectIntoAll(int ranks) {
    std::vector<Round> const rounds = OneRoundOfEachKind(ranks);
    ASSERT_EQ(rounds.size(), CountOfKinds(ranks));
    for (Round const& round : rounds) {
      InjectIntoRound(round);
      if (this->HasFailure()) break;
    }
    std::printf("%ld faults injected into the calls of each of %d ranks, %zu kinds\n",
                mInjected, ranks, rounds.size());
    EXPECT_GE(mInjected, kLeastFaultsPerKind * static_cast<long>(rounds.size()));
  }

 private:
  using Run = FaultRun<T, I>;

  void InjectIntoRound(Round const& round) {
    auto const ranks = static_cast<int>(round.pieces.size());
    std::vector<Recordings> const recordings = RunClean(round);
    if (this->HasFailure()) return;
    for (int rank = 0; rank < ranks; ++rank) {
      for (Operation const operation : OperationsOn(round))
        InjectIntoOperation(round, rank, operation, recordings[static_cast<std::size_t>(rank)]);
    }
  }

  static std::vector<Recordings> RunClean(Round const& round) {
    std::vector<Recordings> recordings(round.pieces.size());
    LocalComm::Run(static_cast<int>(round.pieces.size()), [&](auto const& comm) {
      auto const recorder = std::make_shared<RecordingComm>(comm);
      FaultyRank<T, I> rank(round, comm->Rank());
      rank.Bind(recorder);
      Recordings& own = recordings[static_cast<std::size_t>(comm->Rank())];
      RunAndRecord(round, rank, *recorder, Operation::GATHER, own.gather);
      RunAndRecord(round, rank, *recorder, Operation::UPDATE, own.update);
      if (round.IsDense())
        RunAndRecord(round, rank, *recorder, Operation::SCATTER, own.scatter);
    });
    return recordings;
  }

  static void RunAndRecord(Round const& round, FaultyRank<T, I>& rank, RecordingComm& recorder,
                           Operation operation, std::vector<RecordedCall>& calls) {
    Run const run(round, recorder.Rank(), operation);
    PavexStatus const status = rank.Run(operation);
    EXPECT_EQ(run.CheckDone(rank, operation, status), "")
        << Describe(round) << ", clean " << NameOf(operation) << " on rank " << recorder.Rank();
    calls = recorder.Take();
  }

  // Prints the name and the lines of each fault. All texts are compared at once, because it is
  // expensive to capture one.
  void InjectIntoOperation(Round const& round, int rank, Operation operation,
                           Recordings const& recordings) {
    Run const run(round, rank, operation);
    std::vector<Injection> const injections = AllInjections(run.steps);
    std::string problems;
    std::string expected;
    std::string const output = CaptureStdout([&] {
      for (Injection const& injection : injections) {
        std::string const name = Text(injection);
        Purpose const purpose = run.steps[injection.step].purpose;
        expected += name + "\n" + StatusLines(LinesOf(purpose, operation), injection.status);
        std::printf("%s\n", name.c_str());
        std::string const problem = Inject(round, rank, run, injection, recordings);
        if (!problem.empty()) problems += name + ": " + problem + "\n";
      }
    });
    mInjected += static_cast<long>(injections.size());
    std::string const where = Describe(round) + ", " + NameOf(operation) + " on rank " +
                              std::to_string(rank) + " of " +
                              std::to_string(round.pieces.size());
    EXPECT_EQ(output, expected) << where;
    EXPECT_EQ(problems, "") << where;
  }

  // Fails one call, then gathers again on the same object.
  static std::string Inject(Round const& round, int rank, Run const& run,
                            Injection const& injection, Recordings const& recordings) {
    auto const ranks = static_cast<int>(round.pieces.size());
    FaultyRank<T, I> faulty(round, rank);
    faulty.Bind(std::make_shared<ReplayComm>(rank, ranks, recordings.Until(run.operation)));
    PavexStatus const prepared = faulty.Prepare(run.operation);
    if (prepared != STATUS_OK) return "preparation failed with " + std::to_string(prepared);
    faulty.Plan(injection);
    std::string const problem = run.CheckInjected(faulty, injection, faulty.Run(run.operation));
    if (!problem.empty()) return problem;

    faulty.Bind(std::make_shared<ReplayComm>(rank, ranks, recordings.gather));
    std::string const after =
        run.CheckDone(faulty, Operation::GATHER, faulty.Run(Operation::GATHER));
    return after.empty() ? "" : "in the gather afterwards: " + after;
  }

  long mInjected = 0;
};
TYPED_TEST_SUITE(FaultChains, FaultInstances);

TYPED_TEST(FaultChains, EndTheOnlyRankCleanly) {
  this->InjectIntoAll(1);
}

TYPED_TEST(FaultChains, EndEachOfTwoRanksCleanly) {
  this->InjectIntoAll(2);
}

// Rounds multiply the calls.
#if !defined(PAVEX_MOST_PER_CALL) || defined(PAVEX_TESTS_ALL)
TYPED_TEST(FaultChains, EndEachOfThreeRanksCleanly) {
  this->InjectIntoAll(3);
}

TYPED_TEST(FaultChains, EndEachOfFourRanksCleanly) {
  this->InjectIntoAll(4);
}
#endif

}  // namespace
}  // namespace Pavex
