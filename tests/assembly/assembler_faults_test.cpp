// Lets every allocation and every call of a communicator fail once, on each of three ranks.

#include "pavex/comm/local_comm.h"
#include "tests/assembly/faulty_assembly.h"
#include "tests/support/log_level.h"
#include "tests/support/trace_comm.h"

#include <array>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace Pavex {
namespace {

constexpr int kRanks = 3;

enum class Place { POOL, COMM };

struct Injection {
  Step step;
  Place place;
  int rank;
  int nth;
};

// What happened on each rank.
struct Result {
  std::array<PavexStatus, kRanks> status{};
  std::array<std::string, kRanks> difference;  // what is wrong with the whole
  bool struck = false;
};

Result Run(FaultyCase const& expected, Injection const& injection) {
  Result result;
  LocalComm::Run(kRanks, [&](std::shared_ptr<Comm> const& comm) {
    auto const at = static_cast<std::size_t>(comm->Rank());
    FaultyRank<TraceComm> rank(std::make_shared<TraceComm>(comm), expected);
    if (injection.step != Step::GATHER) {
      ASSERT_EQ(rank.Run(Step::GATHER), STATUS_OK);
    }
    if (comm->Rank() == injection.rank) {
      Fault const fault = Fault::Once(injection.nth, kInjected);
      if (injection.place == Place::POOL)
        rank.pool.Fail(fault);
      else
        rank.comm->Fail(fault);
    }
    result.status[at] = rank.Run(injection.step);
    if (comm->Rank() == injection.rank)
      result.struck = rank.pool.FaultStruck() || rank.comm->FaultStruck();
    result.difference[at] = rank.CheckAfter(injection.step, result.status[at]);
  });
  return result;
}

// Checks one run whose fault has struck, and returns whether all ranks failed with it.
bool Check(Injection const& injection, Result const& result) {
  bool all = true;
  for (int rank = 0; rank < kRanks; ++rank) {
    auto const at = static_cast<std::size_t>(rank);
    PavexStatus const status = result.status[at];
    if (rank == injection.rank) {
      EXPECT_EQ(status, kInjected);
    }
    EXPECT_TRUE(status == STATUS_OK || status == kInjected || status == STATUS_COMM_FAILED)
        << status;
    EXPECT_EQ(result.difference[at], "") << "rank " << rank;
    all = all && status == kInjected;
  }
  return all;
}

struct Tally {
  int faults = 0;
  int agreed = 0;
};

// Raises the number of the failing call until none fails.
Tally Inject(FaultyCase const& expected, Step step, Place place, int rank) {
  Tally tally;
  for (int nth = 1; nth < 200; ++nth) {
    Injection const injection = {step, place, rank, nth};
    Result const result = Run(expected, injection);
    if (!result.struck) {
      for (PavexStatus const status : result.status)
        EXPECT_EQ(status, STATUS_OK);
      return tally;
    }
    ++tally.faults;
    if (Check(injection, result)) ++tally.agreed;
    if (testing::Test::HasFailure()) {
      ADD_FAILURE() << "step " << static_cast<int>(step) << ", place "
                    << static_cast<int>(place) << ", rank " << rank << ", call " << nth;
      return tally;
    }
  }
  ADD_FAILURE() << "it never succeeds";
  return tally;
}

// Two random cases of each path that all ranks contribute to.
std::vector<FaultyCase> Cases(AssemblyPath path) {
  std::vector<FaultyCase> cases;
  for (std::uint64_t number = 0; cases.size() < 2 && number < 2000; ++number) {
    FaultyCase candidate(7, number, kRanks);
    if (!candidate.IsRich()) continue;
    bool chosen = false;
    LocalComm::Run(kRanks, [&](std::shared_ptr<Comm> const& comm) {
      FaultyRank<TraceComm> rank(std::make_shared<TraceComm>(comm), candidate);
      ASSERT_EQ(rank.Run(Step::GATHER), STATUS_OK);
      if (comm->Rank() == 0) chosen = rank.assembler.Path() == path;
    });
    if (chosen) cases.push_back(std::move(candidate));
  }
  EXPECT_EQ(cases.size(), 2U);
  return cases;
}

class AssemblerFaults : public testing::TestWithParam<AssemblyPath> {
  LogLevel const mSilent{-1};
};
INSTANTIATE_TEST_SUITE_P(OnEachPath, AssemblerFaults,
                         testing::Values(AssemblyPath::BANDS, AssemblyPath::MERGE),
                         [](auto const& path) -> std::string {
                           return AssemblyPathStr(path.param);
                         });

TEST_P(AssemblerFaults, ReturnTheirStatusLoseNoMemoryAndKeepTheWhole) {
  Tally pool;
  Tally comm;
  for (FaultyCase const& expected : Cases(GetParam())) {
    for (int rank = 0; rank < kRanks; ++rank) {
      for (Step const step : kSteps) {
        Tally const ofPool = Inject(expected, step, Place::POOL, rank);
        pool.faults += ofPool.faults;
        pool.agreed += ofPool.agreed;
        comm.faults += Inject(expected, step, Place::COMM, rank).faults;
        if (HasFailure()) return;
      }
    }
  }
  EXPECT_GT(pool.faults, 60);
  EXPECT_GT(pool.agreed, 10) << "what fails before the agreement fails everywhere";
  EXPECT_GT(comm.faults, 50);
}

}  // namespace
}  // namespace Pavex
