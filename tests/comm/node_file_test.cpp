// Memory files in a process that locks all memory that it maps.

#include "pavex/comm/node_file.h"

#include "pavex/comm/node_huge_pages.h"
#include "pavex/comm/node_window.h"

#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Pavex {
namespace {

constexpr std::size_t kBytes = std::size_t{64} << 20;
constexpr long kFewKiB = 8 << 10;

// In KiB: what /proc/self/status says of `field`.
long StatusOf(std::string const& field) {
  std::ifstream status("/proc/self/status");
  std::string name;
  long value = -1;
  while (status >> name) {
    if (name == field + ":") status >> value;
  }
  return value;
}

// Whether this process may map, and so lock, a file of kBytes at a huge page.
bool MayMap() {
  std::size_t const room = kBytes + NodeHugePages::kBytes;
  void* const mapped =
      mmap(nullptr, room, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (mapped != MAP_FAILED) munmap(mapped, room);
  return mapped != MAP_FAILED;
}

// Runs `check` in a child that locks everything, unless it may lock nothing: 0 if it returned
// true.
template <typename Check>
int InLockingChild(Check const& check) {
  pid_t const child = fork();
  if (child == 0) {
    rlimit limit{};
    getrlimit(RLIMIT_MEMLOCK, &limit);
    if (mlockall(MCL_FUTURE) != 0) _exit(limit.rlim_cur == 0 ? 0 : 2);
    _exit(check() ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Where the system locks too little for the file, it refuses the mapping, and no memory is
// shared.
TEST(LockingAllMemory, MakesNoPagesOfASparseFile) {
  EXPECT_EQ(InLockingChild([] {
              NodeFileId id;
              int const file = MakeMemoryFile(kBytes, &id);
              unsigned char* const pages = MapAtHugePage(file, kBytes);
              if (pages == nullptr) return !MayMap();
              pages[kBytes / 2] = 1;
              return StatusOf("RssShmem") < kFewKiB;
            }),
            0);
}

TEST(LockingAllMemory, MakesNoCopiesOfPagesThatAreShown) {
  EXPECT_EQ(InLockingChild([] {
              auto const window = NodeWindow::Make(0, kBytes);
              if (window == nullptr) return !MayMap();
              window->Array()[kBytes / 2] = 7;
              NodeFileId id;
              unsigned char* const place = MapAtHugePage(MakeMemoryFile(kBytes, &id), kBytes);
              long const before = StatusOf("RssAnon");
              bool const shown = window->ShowAt(place, 0, kBytes) && place[kBytes / 2] == 7;
              return shown && StatusOf("RssAnon") - before < kFewKiB &&
                     StatusOf("RssShmem") < kFewKiB;
            }),
            0);
}

}  // namespace
}  // namespace Pavex
