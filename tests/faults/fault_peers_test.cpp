// Every call of one rank fails while its peers run in other threads.

#include "pavex/comm/local_comm.h"
#include "tests/faults/fault_run.h"
#include "tests/faults/kinds.h"
#include "tests/support/log_level.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <memory>

namespace Pavex {
namespace {

// All ranks of a job, one of which fails.
template <typename T, typename I>
class FaultyJob {
 public:
  FaultyJob(Round const& round, int rank, FaultRun<T, I> const& run, Injection const& injection)
      : mRound(round), mRank(rank), mRun(run), mInjection(injection) {
    for (std::size_t p = 0; p < round.pieces.size(); ++p) {
      mRanks.push_back(std::make_unique<FaultyRank<T, I>>(round, static_cast<int>(p)));
      mStatus.push_back(99);
    }
  }

  // Makes one rank fail; the others end as they can.
  std::string Fail() {
    LocalComm::Run(Size(), [this](auto const& comm) {
      FaultyRank<T, I>& rank = At(comm->Rank());
      rank.Bind(comm);
      PavexStatus& status = mStatus[static_cast<std::size_t>(comm->Rank())];
      status = rank.Prepare(mRun.operation);
      if (status != STATUS_OK) return;
      if (comm->Rank() == mRank) rank.Plan(mInjection);
      status = rank.Run(mRun.operation);
    });
    for (int p = 0; p < Size(); ++p) {
      PavexStatus const status = mStatus[static_cast<std::size_t>(p)];
      std::string const problem =
          p == mRank ? mRun.CheckInjected(At(p), mInjection, status)
                     : FaultRun<T, I>(mRound, p, mRun.operation).CheckPeer(At(p), status);
      if (!problem.empty()) return "rank " + std::to_string(p) + ": " + problem;
    }
    return "";
  }

  // Gathers again on the same objects over a new communicator. Every rank calls it.
  std::string Recover(std::shared_ptr<Comm> const& comm) {
    FaultyRank<T, I>& rank = At(comm->Rank());
    rank.Bind(comm);
    FaultRun<T, I> const run(mRound, comm->Rank(), Operation::GATHER);
    return run.CheckDone(rank, Operation::GATHER, rank.Run(Operation::GATHER));
  }

 private:
  int Size() const { return static_cast<int>(mRanks.size()); }
  FaultyRank<T, I>& At(int rank) { return *mRanks[static_cast<std::size_t>(rank)]; }

  Round const& mRound;
  int const mRank;
  FaultRun<T, I> const& mRun;
  Injection const mInjection;
  std::vector<std::unique_ptr<FaultyRank<T, I>>> mRanks;
  std::vector<PavexStatus> mStatus;
};

// The faults to inject. There are fewer than in a single process, because threads make each one
// expensive.
std::vector<Injection> PeerInjections(std::vector<Step> const& steps) {
#ifdef PAVEX_EVERY_FAULT
  return AllInjections(steps);
#else
  return TwoInjectionsEach(steps);
#endif
}

template <typename Instance>
class FaultsAmongPeers : public testing::Test {
 protected:
  using T = typename Instance::Value;
  using I = typename Instance::Index;

  void InjectIntoAll(int ranks) {
    LogLevel const level(-1);  // the lines do not show from which rank they come
    std::vector<Round> const rounds = OneRoundOfEachKind(ranks);
    ASSERT_EQ(rounds.size(), CountOfKinds(ranks));
    for (Round const& round : rounds) {
      for (Operation const operation : OperationsOn(round)) {
        for (int rank = 0; rank < ranks; ++rank)
          InjectIntoOperation(round, rank, operation);
      }
      if (this->HasFailure()) break;
    }
    std::printf("%ld faults injected into %d ranks that run side by side, %zu kinds\n",
                mInjected, ranks, rounds.size());
    EXPECT_GE(mInjected, kLeastFaultsPerKind * static_cast<long>(rounds.size()));
  }

 private:
  using Job = FaultyJob<T, I>;

  void InjectIntoOperation(Round const& round, int rank, Operation operation) {
    FaultRun<T, I> const run(round, rank, operation);
    std::vector<std::unique_ptr<Job>> jobs;
    std::vector<std::string> names;
    for (Injection const& injection : PeerInjections(run.steps)) {
      names.push_back(Describe(round) + ", " + NameOf(operation) + " on rank " +
                      std::to_string(rank) + " of " + std::to_string(round.pieces.size()) +
                      ", " + Text(injection));
      jobs.push_back(std::make_unique<Job>(round, rank, run, injection));
      EXPECT_EQ(jobs.back()->Fail(), "") << names.back();
    }
    mInjected += static_cast<long>(jobs.size());
    LocalComm::Run(static_cast<int>(round.pieces.size()), [&](auto const& comm) {
      for (std::size_t k = 0; k < jobs.size(); ++k)
        EXPECT_EQ(jobs[k]->Recover(comm), "") << "afterwards: " << names[k];
    });
  }

  long mInjected = 0;
};

// Which rounds fail depends on no type, so two instances are enough where calls move few
// elements.
#ifdef PAVEX_MOST_PER_CALL
TYPED_TEST_SUITE(FaultsAmongPeers, TwoFaultInstances);
#else
TYPED_TEST_SUITE(FaultsAmongPeers, FaultInstances);
#endif

TYPED_TEST(FaultsAmongPeers, LetTheOtherOfTwoRanksEnd) {
  this->InjectIntoAll(2);
}

TYPED_TEST(FaultsAmongPeers, LetTheOthersOfThreeRanksEnd) {
  this->InjectIntoAll(3);
}

TYPED_TEST(FaultsAmongPeers, LetTheOthersOfFourRanksEnd) {
  this->InjectIntoAll(4);
}

}  // namespace
}  // namespace Pavex
