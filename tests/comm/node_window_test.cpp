#include "pavex/comm/node_window.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Pavex {
namespace {

// A child has its own memory at the addresses of the mapping.
TEST(NodeWindow, LeavesTheMemoryOfAChildAlone) {
  auto window = NodeWindow::Make(0, 4096);
  ASSERT_NE(window, nullptr);
  pid_t const child = fork();
  if (child == 0) {
    void* const own = mmap(window->Array(), 4096, PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
    window.reset();
    *static_cast<char volatile*>(own) = 1;
    _exit(0);
  }

  int status = -1;
  waitpid(child, &status, 0);

  EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
}

}  // namespace
}  // namespace Pavex
