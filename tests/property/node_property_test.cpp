#include "pavex/comm/node_comm.h"
#include "pavex/comm/node_pool.h"
#include "pavex/runtime/log.h"
#include "tests/property/property.h"

#include <climits>
#include <gtest/gtest.h>

namespace Pavex {
namespace {

// MPI may spin while it waits, so a job with more processes than cores is very slow.
#if defined(MPICH_VERSION) || defined(PAVEX_FEW_CASES)
constexpr long kCases = 500;
#else
constexpr long kCases = 5000;
#endif

long DefaultCases(int processes) {
  return processes > 4 ? kCases / 8 : kCases;
}

// Runs the cases. The ranks that `shares` names have shared blocks, the others plain ones. At
// most `largest` processes share memory.
void RunCases(int largest, bool (*shares)(int rank)) {
  auto const comm = std::make_shared<NodeComm>(MPI_COMM_WORLD, largest);
  NodePool shared;
  MemoryPool* const source = shares(comm->Rank()) ? &shared : nullptr;
  auto const options = PropertyOptions::FromEnvironment(DefaultCases(comm->Size()));
  Log::mMaxLogLevel = -1;  // refusals are part of the cases
  for (long number = options.first; number < options.first + options.cases; ++number) {
    std::string const difference = RunCase(options.seed, number, comm, source);
    // Ends the job: the other ranks would wait for this one.
    if (!difference.empty()) FAIL() << difference << " node_property_test";
  }
  Log::mMaxLogLevel = LOG_ERROR;
}

TEST(AggregatorPropertyOverSharedMemory, GathersUpdatesAndScattersAsTheModel) {
  RunCases(INT_MAX, [](int) { return true; });
}

TEST(AggregatorPropertyOverSharedMemory, TakesPlainBlocksOfSomeRanks) {
  RunCases(INT_MAX, [](int rank) { return rank % 2 == 1; });
}

TEST(AggregatorPropertyOverSharedMemory, CrossesBetweenGroupsThatShareNoMemory) {
  RunCases(2, [](int) { return true; });
}

}  // namespace
}  // namespace Pavex
