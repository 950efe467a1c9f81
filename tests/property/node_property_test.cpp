#include "pavex/comm/node_pool.h"
#include "tests/property/node_cases.h"

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

void RunCases(int largest, bool (*shares)(int rank)) {
  NodePool shared;
  int processes = 0;
  MPI_Comm_size(MPI_COMM_WORLD, &processes);
  RunNodeCases(DefaultCases(processes), largest, shared, shares, "node_property_test");
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
