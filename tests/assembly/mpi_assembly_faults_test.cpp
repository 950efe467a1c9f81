// Lets every allocation and every call of a communicator fail once, on each process of a job,
// over MPI and over memory that the processes share. The process that fails makes the calls
// that it has left out afterwards, so that the others do not wait for ever.

#include "pavex/comm/mpi_comm.h"
#include "pavex/comm/node_comm.h"
#include "pavex/comm/node_pool.h"
#include "tests/assembly/faulty_assembly.h"
#include "tests/assembly/stand_in_comm.h"
#include "tests/support/log_level.h"
#include "tests/support/meeting_comm.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <mpi.h>
#include <string>
#include <vector>

namespace Pavex {
namespace {

// How many cases of each path, and which part of their faults. Where processes spin while they
// wait, a job with more of them than cores crawls.
#ifdef PAVEX_TESTS_ALL
constexpr std::size_t kCases = 4;
constexpr int kOneOf = 1;
#else
constexpr std::size_t kCases = 2;
constexpr int kOneOf = 3;
#endif
#ifdef MPICH_VERSION
constexpr bool kSpins = true;
#else
constexpr bool kSpins = false;
#endif

enum class Place { POOL, INSTEAD_OF_CALL, AFTER_CALL };

struct Injection {
  Step step;
  Place place;
  int rank;
  int nth;
};

std::string Text(Injection const& injection) {
  return "step " + std::to_string(static_cast<int>(injection.step)) + ", place " +
         std::to_string(static_cast<int>(injection.place)) + ", rank " +
         std::to_string(injection.rank) + ", number " + std::to_string(injection.nth);
}

bool Crawls(int processes) {
  return kSpins && processes > 2;
}

// Random cases of a path that all processes contribute to. Collective.
template <typename C>
std::vector<FaultyCase> Cases(AssemblyPath path, std::shared_ptr<C> const& comm,
                              MemoryPool& pool) {
  std::vector<FaultyCase> cases;
  std::size_t const count = Crawls(comm->Size()) ? 1 : kCases;
  for (std::uint64_t number = 0; cases.size() < count && number < 2000; ++number) {
    FaultyCase candidate(11, number, comm->Size());
    if (!candidate.IsRich()) continue;
    FaultyRank<C> rank(comm, candidate, &pool);
    EXPECT_EQ(rank.Run(Step::GATHER), STATUS_OK);
    if (rank.assembler.Path() == path) cases.push_back(std::move(candidate));
  }
  EXPECT_EQ(cases.size(), count);
  return cases;
}

struct OverMpi {
  using Communicator = MpiComm;
  using Pool = MemoryPool;
};
struct OverSharedMemory {
  using Communicator = NodeComm;
  using Pool = NodePool;
};

template <typename Over>
class AssemblerFaultsAmongProcesses : public testing::Test {
 protected:
  using Rank = FaultyRank<StandInComm>;

  int Stride() const { return Crawls(mComm->Size()) ? 8 * kOneOf : kOneOf; }

  // Records what each process calls in `step` without a fault.
  void Record(FaultyCase const& all, Step step) {
    Rank rank(mComm, all, &mPool);
    if (step != Step::GATHER) {
      EXPECT_EQ(rank.Run(Step::GATHER), STATUS_OK);
    }
    mComm->Record();
    EXPECT_EQ(rank.Run(step), STATUS_OK);
    mComm->Repeat({});
  }

  // Injects one fault and checks every process, also in a gather afterwards. Returns whether
  // there was something to fail.
  bool Inject(FaultyCase const& all, Injection const& injection) {
    Rank rank(mComm, all, &mPool);
    if (injection.step != Step::GATHER) {
      EXPECT_EQ(rank.Run(Step::GATHER), STATUS_OK);
    }
    bool const fails = mComm->Rank() == injection.rank;
    mComm->Repeat({});
    if (fails) Plan(injection, rank);
    PavexStatus const status = rank.Run(injection.step);
    int struckAndTold[2] = {0, 0};
    if (fails) {
      EXPECT_EQ(mComm->MakeUp(), STATUS_OK);
      struckAndTold[0] = rank.pool.FaultStruck() || mComm->FaultStruck() ? 1 : 0;
      struckAndTold[1] = mComm->Told() ? 1 : 0;
    }
    MPI_Bcast(static_cast<int*>(struckAndTold), 2, MPI_INT, injection.rank, MPI_COMM_WORLD);
    bool const struck = struckAndTold[0] != 0;
    bool const told = struckAndTold[1] != 0;
    EXPECT_EQ(status, struck && (fails || told) ? kInjected : STATUS_OK);
    EXPECT_EQ(rank.CheckAfter(injection.step, status), "");

    rank.pool.Fail({});
    mComm->Repeat({});
    PavexStatus const again = rank.Run(Step::GATHER);
    EXPECT_EQ(again, STATUS_OK);
    EXPECT_EQ(rank.CheckAfter(Step::GATHER, again), "");
    mFaults += struck ? 1 : 0;
    mTold += told ? 1 : 0;
    return struck;
  }

  // Raises the number of what fails until there is no such allocation or call.
  void InjectAll(FaultyCase const& all, Step step, Place place, int rank) {
    int const first = 1 + rank % Stride();
    for (int nth = first;; nth += Stride()) {
      Injection const injection = {step, place, rank, nth};
      SCOPED_TRACE(Text(injection));
      if (!Inject(all, injection)) return;
    }
  }

  // Whether an expectation has failed on any process: all of them stop.
  bool AnyFails() const {
    int failed = this->HasFailure() ? 1 : 0;
    MPI_Allreduce(MPI_IN_PLACE, &failed, 1, MPI_INT, MPI_MAX, MPI_COMM_WORLD);
    return failed != 0;
  }

  long mFaults = 0;
  long mTold = 0;

 private:
  void Plan(Injection const& injection, Rank& rank) {
    Fault const fault = Fault::Once(injection.nth, kInjected);
    if (injection.place == Place::POOL)
      rank.pool.Fail(fault);
    else
      mComm->Repeat(fault, injection.place == Place::AFTER_CALL ? TraceComm::AFTERWARDS
                                                                : TraceComm::INSTEAD);
  }

  LogLevel const mSilent{-1};

 protected:
  typename Over::Pool mPool;
  std::shared_ptr<StandInComm> const mComm = std::make_shared<StandInComm>(
      std::make_shared<typename Over::Communicator>(MPI_COMM_WORLD));
};

using Communicators = testing::Types<OverMpi, OverSharedMemory>;
TYPED_TEST_SUITE(AssemblerFaultsAmongProcesses, Communicators);

TYPED_TEST(AssemblerFaultsAmongProcesses, ReturnTheirStatusLoseNoMemoryAndKeepTheWhole) {
  for (AssemblyPath const path : {AssemblyPath::BANDS, AssemblyPath::MERGE}) {
    for (FaultyCase const& all : Cases(path, this->mComm, this->mPool)) {
      for (Step const step : kSteps) {
        this->Record(all, step);
        for (Place const place : {Place::POOL, Place::INSTEAD_OF_CALL, Place::AFTER_CALL})
          for (int rank = 0; rank < this->mComm->Size(); ++rank)
            this->InjectAll(all, step, place, rank);
        if (this->AnyFails()) return;
      }
    }
  }
  if (this->mComm->Rank() == 0)
    std::printf("%ld faults injected into an assembly of %d processes\n", this->mFaults,
                this->mComm->Size());
  EXPECT_GT(this->mFaults, 400 / this->Stride());
  EXPECT_GT(this->mTold, 60 / this->Stride())
      << "what fails before an agreement fails everywhere";
}

// --- Processes that leave an operation, over memory that they share: there the others notice

// Like TraceComm, and the processes can meet again.
struct LeavingComm : TraceComm {
  explicit LeavingComm(std::shared_ptr<MeetingComm> const& inner)
      : TraceComm(inner), meeting(inner) {}
  std::shared_ptr<MeetingComm> meeting;
};

class AssemblerFaultsOverSharedMemory : public testing::Test {
 protected:
  // Injects one fault; the process that fails goes on at once. Returns whether there was
  // something to fail.
  bool Inject(FaultyCase const& all, Injection const& injection) {
    FaultyRank<LeavingComm> rank(mComm, all, &mPool);
    if (injection.step != Step::GATHER) {
      EXPECT_EQ(rank.Run(Step::GATHER), STATUS_OK);
    }
    bool const fails = mComm->Rank() == injection.rank;
    Fault const fault = Fault::Once(injection.nth, kInjected);
    if (fails && injection.place == Place::POOL)
      rank.pool.Fail(fault);
    else if (fails)
      mComm->Fail(fault);
    PavexStatus const status = rank.Run(injection.step);
    int struck = rank.pool.FaultStruck() || mComm->FaultStruck() ? 1 : 0;
    rank.pool.Fail({});
    mComm->Fail({});
    mComm->meeting->Meet();

    MPI_Bcast(&struck, 1, MPI_INT, injection.rank, MPI_COMM_WORLD);
    bool const mayFail = !fails && struck != 0;
    EXPECT_TRUE(status == (fails && struck != 0 ? kInjected : STATUS_OK) ||
                (mayFail && (status == kInjected || status == STATUS_COMM_FAILED)))
        << status;
    EXPECT_EQ(rank.CheckAfter(injection.step, status), "");
    PavexStatus const again = rank.Run(Step::GATHER);
    EXPECT_EQ(again, STATUS_OK);
    EXPECT_EQ(rank.CheckAfter(Step::GATHER, again), "");
    mFaults += struck;
    mLeft += status == STATUS_COMM_FAILED ? 1 : 0;
    return struck != 0;
  }

  LogLevel const mSilent{-1};
  NodePool mPool;
  std::shared_ptr<LeavingComm> const mComm = std::make_shared<LeavingComm>(
      std::make_shared<MeetingComm>(std::make_shared<NodeComm>(MPI_COMM_WORLD)));
  long mFaults = 0;
  long mLeft = 0;  // operations that this process ended because another one had left
};

TEST_F(AssemblerFaultsOverSharedMemory, LetTheOthersEndAndGatherAgain) {
  int const ranks = mComm->Size();
  for (AssemblyPath const path : {AssemblyPath::BANDS, AssemblyPath::MERGE}) {
    for (FaultyCase const& all : Cases(path, mComm, mPool)) {
      for (Step const step : kSteps) {
        for (Place const place : {Place::POOL, Place::INSTEAD_OF_CALL}) {
          for (int rank = 0; rank < ranks; ++rank) {
            for (int nth = 1 + rank % kOneOf;; nth += kOneOf) {
              Injection const injection = {step, place, rank, nth};
              SCOPED_TRACE(Text(injection));
              if (!Inject(all, injection)) break;
            }
          }
        }
      }
    }
  }
  if (mComm->Rank() == 0)
    std::printf("%ld faults injected into an assembly of %d processes that share memory\n",
                mFaults, ranks);
  EXPECT_GT(mFaults, 250 / kOneOf);
  EXPECT_GT(mLeft, 20 / kOneOf);
}

}  // namespace
}  // namespace Pavex
