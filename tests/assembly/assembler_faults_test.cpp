// Lets every allocation and every call of a communicator fail once, on each of three ranks.

#include "pavex/assembly/assembler.h"
#include "pavex/comm/local_comm.h"
#include "tests/assembly/assembly_reference.h"
#include "tests/support/ledger_pool.h"
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
constexpr PavexStatus kInjected = 4711;

enum class Step { GATHER, UPDATE, UPDATE_IN_PLACE, SCATTER, COLLECT };
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
  std::array<bool, kRanks> hasWhole{};
  std::array<bool, kRanks> isGood{};  // the whole is what it was before the fault
  bool struck = false;
};

using Case = AssemblyCase<double, int>;

// One rank of a run.
struct FaultyRank {
  LedgerPool pool;
  std::shared_ptr<TraceComm> comm;
  Assembler<double, int> assembler{&pool};
  Case const& expected;
  CasePiece<double, int> const& piece;
  CaseDense<double, int> own;
  CaseDense<double, int> whole;

  FaultyRank(std::shared_ptr<Comm> const& inner, Case const& all)
      : comm(std::make_shared<TraceComm>(inner)),
        expected(all),
        piece(all.pieces[static_cast<std::size_t>(inner->Rank())]),
        own(static_cast<long>(piece.ownRows.size()), 2, true, 1),
        whole(all.request.mRows, 2, false, 0) {}

  PavexStatus Run(Step step) {
    switch (step) {
      case Step::GATHER:
        return assembler.Gather(comm, piece.Pass(true), expected.request);
      case Step::UPDATE:
        return assembler.Update(piece.Values(0), piece.Values(1));
      case Step::UPDATE_IN_PLACE:
        return assembler.UpdateInPlace(piece.Values(0), piece.Values(1));
      case Step::SCATTER:
        return assembler.Scatter(whole.matrix, own.matrix);
      case Step::COLLECT:
        return assembler.Collect(own.matrix, Overlap::ADD, whole.matrix);
    }
    return 1;
  }
};

Result Run(Case const& expected, Injection const& injection) {
  Result result;
  LocalComm::Run(kRanks, [&](std::shared_ptr<Comm> const& comm) {
    auto const at = static_cast<std::size_t>(comm->Rank());
    FaultyRank rank(comm, expected);
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
    result.hasWhole[at] = rank.assembler.Whole() != nullptr;
    result.isGood[at] =
        result.hasWhole[at] && CheckWhole(expected, true, *rank.assembler.Whole()).empty();
  });
  return result;
}

bool Receives(Case const& expected, int rank) {
  return expected.request.mReceiver == kEverybody || expected.request.mReceiver == rank;
}

// Checks one run whose fault has struck, and returns whether all ranks failed with it.
bool Check(Case const& expected, Injection const& injection, Result const& result) {
  bool all = true;
  for (int rank = 0; rank < kRanks; ++rank) {
    auto const at = static_cast<std::size_t>(rank);
    PavexStatus const status = result.status[at];
    if (rank == injection.rank) {
      EXPECT_EQ(status, kInjected);
    }
    EXPECT_TRUE(status == STATUS_OK || status == kInjected || status == STATUS_COMM_FAILED)
        << status;
    bool const keeps = injection.step != Step::GATHER || status == STATUS_OK;
    EXPECT_EQ(result.hasWhole[at], keeps && Receives(expected, rank)) << "rank " << rank;
    EXPECT_EQ(result.isGood[at], result.hasWhole[at]) << "rank " << rank;
    all = all && status == kInjected;
  }
  return all;
}

struct Tally {
  int faults = 0;
  int agreed = 0;
};

// Raises the number of the failing call until none fails.
Tally Inject(Case const& expected, Step step, Place place, int rank) {
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
    if (Check(expected, injection, result)) ++tally.agreed;
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
std::vector<Case> Cases(AssemblyPath path) {
  std::vector<Case> cases;
  for (std::uint64_t number = 0; cases.size() < 2 && number < 2000; ++number) {
    Rng rng(7, number);
    Case candidate(rng, kRanks);
    bool isRich = candidate.request.mWithValues;
    for (auto const& piece : candidate.pieces)
      isRich = isRich && !piece.blocks.empty() && !piece.blocks[0].values.empty();
    if (!isRich) continue;
    bool chosen = false;
    LocalComm::Run(kRanks, [&](std::shared_ptr<Comm> const& comm) {
      FaultyRank rank(comm, candidate);
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
  for (Case const& expected : Cases(GetParam())) {
    for (int rank = 0; rank < kRanks; ++rank) {
      for (Step const step :
           {Step::GATHER, Step::UPDATE, Step::UPDATE_IN_PLACE, Step::SCATTER, Step::COLLECT}) {
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
