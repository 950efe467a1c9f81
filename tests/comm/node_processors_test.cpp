#include "pavex/comm/node_processors.h"

#include <gtest/gtest.h>

namespace Pavex {
namespace {

TEST(NodeProcessors, AreThoseThatTheThreadMayRunOn) {
  cpu_set_t before;
  ASSERT_EQ(sched_getaffinity(0, sizeof before, &before), 0);
  int first = 0;
  while (!CPU_ISSET(first, &before))
    ++first;
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(first, &one);
  NodeProcessors const all = NodeProcessors::OfThread();

  ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
  NodeProcessors const bound = NodeProcessors::OfThread();
  ASSERT_EQ(sched_setaffinity(0, sizeof before, &before), 0);

  EXPECT_EQ(all.Count(), CPU_COUNT(&before));
  EXPECT_EQ(bound.Count(), 1);
}

TEST(NodeProcessors, OfSeveralProcessesCountOnce) {
  NodeProcessors const all = NodeProcessors::OfThread();
  NodeProcessors together;
  EXPECT_EQ(together.Count(), 0);

  together.Add(all);
  together.Add(all);

  EXPECT_EQ(together.Count(), all.Count());
}

}  // namespace
}  // namespace Pavex
