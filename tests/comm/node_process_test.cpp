#include "pavex/comm/node_process.h"

#include <csignal>
#include <gtest/gtest.h>
#include <memory>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Pavex {
namespace {

// A process that waits to be killed.
class Child {
 public:
  Child() : mPid(fork()) {
    if (mPid != 0) return;
    for (;;)
      pause();
  }
  Child(Child const&) = delete;
  Child& operator=(Child const&) = delete;
  ~Child() { Bury(); }

  pid_t Pid() const { return mPid; }
  // It has ended afterwards, but is still listed.
  void Kill() {
    kill(mPid, SIGKILL);
    siginfo_t ended;
    waitid(P_PID, static_cast<id_t>(mPid), &ended, WEXITED | WNOWAIT);
  }
  // It is no longer listed afterwards.
  void Bury() {
    if (mPid <= 0) return;
    Kill();
    waitpid(mPid, nullptr, 0);
    mPid = -1;
  }

 private:
  pid_t mPid;
};

// Watches `pid` as on a system that has no descriptors of processes.
std::unique_ptr<NodeProcess> WithoutDescriptor(pid_t pid, std::uint64_t start) {
  rlimit earlier{};
  getrlimit(RLIMIT_NOFILE, &earlier);
  rlimit const none{0, earlier.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  auto process = std::make_unique<NodeProcess>(pid, start);
  setrlimit(RLIMIT_NOFILE, &earlier);
  return process;
}

TEST(NodeProcess, NoticesTheEndThroughADescriptor) {
  Child child;
  NodeProcess const process(child.Pid(), 0);
  ASSERT_TRUE(process.IsWatched());
  EXPECT_TRUE(process.IsAlive());

  child.Kill();
  EXPECT_FALSE(process.IsAlive());

  child.Bury();
  EXPECT_FALSE(process.IsAlive());
}

TEST(NodeProcess, NoticesTheEndWithoutADescriptor) {
  Child child;
  auto const process = WithoutDescriptor(child.Pid(), NodeProcess::StartOf(child.Pid()));
  ASSERT_TRUE(process->IsWatched());
  EXPECT_TRUE(process->IsAlive());

  child.Kill();
  EXPECT_FALSE(process->IsAlive());

  child.Bury();
  EXPECT_FALSE(process->IsAlive());
}

TEST(NodeProcess, TakesALaterProcessOfTheSameNumberForAnotherOne) {
  Child const child;
  auto const process = WithoutDescriptor(child.Pid(), NodeProcess::StartOf(child.Pid()) - 1);

  EXPECT_FALSE(process->IsAlive());
}

TEST(NodeProcess, IsNotWatchedWhereTheSystemTellsNothing) {
  EXPECT_FALSE(WithoutDescriptor(getpid(), 0)->IsWatched());
}

TEST(NodeProcess, CountsAsAliveWhileTheSystemCannotBeAsked) {
  Child const child;
  auto const process = WithoutDescriptor(child.Pid(), NodeProcess::StartOf(child.Pid()));
  rlimit earlier{};
  getrlimit(RLIMIT_NOFILE, &earlier);
  rlimit const none{0, earlier.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);

  bool const alive = process->IsAlive();

  setrlimit(RLIMIT_NOFILE, &earlier);
  EXPECT_TRUE(alive);
}

// The name of a program may look like the fields that follow it.
TEST(NodeProcess, ReadsTheStartBehindAnyNameOfTheProgram) {
  std::uint64_t const start = NodeProcess::StartOf(getpid());
  char name[16] = "";
  prctl(PR_GET_NAME, name);

  prctl(PR_SET_NAME, "a) Z 1 2 3 (b");
  EXPECT_EQ(NodeProcess::StartOf(getpid()), start);

  prctl(PR_SET_NAME, name);
  EXPECT_NE(start, 0U);
}

}  // namespace
}  // namespace Pavex
