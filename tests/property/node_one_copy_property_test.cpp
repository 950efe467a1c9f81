// The random cases with larger matrices. Links a NodeComm of which a node keeps arrays once
// from two pages on.

#include "pavex/comm/node_pool.h"
#include "tests/comm/node_blocks.h"
#include "tests/property/node_cases.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <gtest/gtest.h>

namespace Pavex {
namespace {

// MPI may spin while it waits, so a job with more processes than cores is very slow.
#if defined(MPICH_VERSION)
constexpr long kCases = 40;
#elif defined(PAVEX_TESTS_ALL)
constexpr long kCases = 2000;
#else
constexpr long kCases = 150;
#endif

// Gives arrays from a page on pages of their own, as NodePool does with much larger ones: so
// they begin equally far into a page on all processes.
class PagePool : public MemoryPool {
 public:
  PavexStatus Allocate(void** block, std::size_t bytes) override {
    return mPool.Allocate(block, Rounded(bytes));
  }
  void Deallocate(void* block, std::size_t bytes) override {
    if (IsView(static_cast<unsigned char const*>(block), bytes)) ++mViews;
    mPool.Deallocate(block, Rounded(bytes));
  }

  // How many of the blocks that came back showed an array that is kept once.
  long Views() const { return mViews; }

 private:
  static std::size_t Rounded(std::size_t bytes) {
    constexpr std::size_t kOwnPages = std::size_t{128} << 10;
    return bytes < 4096 ? bytes : std::max(bytes, kOwnPages);
  }

  NodePool mPool;
  long mViews = 0;
};

// How many arrays are kept once at least, unless the environment asks for fewer cases.
long Least() {
  return PropertyOptions::FromEnvironment(kCases).cases < kCases ? 0 : kCases / 8;
}

// Returns how many arrays of this process were kept once.
long RunCases(long cases, int largest, bool (*shares)(int rank)) {
  PagePool pool;
  RunNodeCases(cases, largest, pool, shares, "node_one_copy_property_test");
  return pool.Views();
}

TEST(AggregatorPropertyWithOneCopy, GathersUpdatesAndScattersAsTheModel) {
  long const views = RunCases(kCases, INT_MAX, [](int) { return true; });

  EXPECT_GE(views, Least());
}

TEST(AggregatorPropertyWithOneCopy, TakesPlainBlocksOfSomeRanks) {
  long const views = RunCases(kCases / 4, INT_MAX, [](int rank) { return rank % 2 == 1; });

  EXPECT_EQ(views, 0);
}

// Ranks 0 and 1 share memory.
TEST(AggregatorPropertyWithOneCopy, CrossesBetweenGroupsThatShareNoMemory) {
  int rank = 0;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);

  long const views = RunCases(kCases, 2, [](int) { return true; });

  if (rank < 2)
    EXPECT_GE(views, Least());
  else
    EXPECT_EQ(views, 0);
}

}  // namespace
}  // namespace Pavex
