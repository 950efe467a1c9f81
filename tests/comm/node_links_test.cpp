// What a process knows of the others on its node.

#include "pavex/comm/node_links.h"

#include "tests/comm/mpi_fixture.h"

#include <climits>
#include <sched.h>
#include <vector>

namespace Pavex {
namespace {

// Puts this process where it may run before and after a test.
class NodeLinksTest : public MpiCommTest {
 protected:
  NodeLinksTest() {
    sched_getaffinity(0, sizeof mBefore, &mBefore);
    // Launchers may have bound each process to a processor of its own.
    cpu_set_t any;
    CPU_ZERO(&any);
    for (int processor = 0; processor < CPU_SETSIZE; ++processor)
      CPU_SET(processor, &any);
    sched_setaffinity(0, sizeof any, &any);
    sched_getaffinity(0, sizeof any, &any);
    for (int processor = 0; processor < CPU_SETSIZE; ++processor) {
      if (CPU_ISSET(processor, &any)) mProcessors.push_back(processor);
    }
  }
  ~NodeLinksTest() override { sched_setaffinity(0, sizeof mBefore, &mBefore); }

  // Collective.
  static bool IsCrowded(int largest = INT_MAX) {
    NodeLinks links;
    EXPECT_EQ(links.Join(MPI_COMM_WORLD, largest), MPI_SUCCESS);
    bool const crowded = links.Crowded();
    links.Leave();
    return crowded;
  }

  static void BindTo(int processor) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(processor, &one);
    ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
  }

  int Processors() const { return static_cast<int>(mProcessors.size()); }

  cpu_set_t mBefore;
  std::vector<int> mProcessors;  // that this machine lets processes run on
};

TEST_F(NodeLinksTest, AreCrowdedWhereProcessesOutnumberProcessors) {
  EXPECT_EQ(IsCrowded(), mSize > Processors());
}

TEST_F(NodeLinksTest, AreNotCrowdedWhereEachProcessIsBoundToItsOwnProcessor) {
  BindTo(mProcessors[static_cast<std::size_t>(mRank % Processors())]);

  EXPECT_EQ(IsCrowded(), mSize > Processors());
}

TEST_F(NodeLinksTest, AreCrowdedWhereAllProcessesShareAProcessor) {
  BindTo(mProcessors[0]);

  EXPECT_EQ(IsCrowded(), mSize > 1);
}

// Two groups on one node take turns on the same processors.
TEST_F(NodeLinksTest, CountTheProcessesOfTheNodeAndNotThoseOfTheGroup) {
  BindTo(mProcessors[0]);

  EXPECT_EQ(IsCrowded(1), mSize > 1);
}

}  // namespace
}  // namespace Pavex
