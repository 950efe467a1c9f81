#include "pavex/comm/node_key.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Pavex {
namespace {

TEST(NodeKey, IsTheSameForTheProcessesOfANode) {
  NodeKey const mine = NodeKey::OfProcess();
  ASSERT_TRUE(mine.IsKnown());

  pid_t const child = fork();
  if (child == 0) _exit(NodeKey::OfProcess().Compare(mine) == 0 ? 0 : 1);
  int status = -1;
  waitpid(child, &status, 0);

  EXPECT_EQ(status, 0);
}

TEST(NodeKey, DiffersInEachOfItsParts) {
  NodeKey const mine = NodeKey::OfProcess();
  NodeKey otherBoot = mine;
  NodeKey otherProcesses = mine;
  NodeKey otherNetwork = mine;
  otherBoot.boot[3] = otherBoot.boot[3] == 'a' ? 'b' : 'a';
  otherProcesses.processes += 1;
  otherNetwork.network += 1;

  for (NodeKey const& other : {otherBoot, otherProcesses, otherNetwork}) {
    EXPECT_NE(mine.Compare(other), 0);
    EXPECT_EQ(mine.Compare(other) < 0, other.Compare(mine) > 0);
  }
}

TEST(NodeKey, IsUnknownUntilTheSystemHasToldIt) {
  EXPECT_FALSE(NodeKey().IsKnown());
}

}  // namespace
}  // namespace Pavex
