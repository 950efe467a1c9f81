#include "pavex/comm/node_peer.h"

#include "pavex/comm/node_pool.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Pavex {
namespace {

// The arena of this process, mapped again as that of a peer.
TEST(NodePeer, MapsTheMemoryOfAnArena) {
  NodePool pool;
  ASSERT_TRUE(pool.Active());
  void* block = nullptr;
  ASSERT_EQ(pool.Allocate(&block, 100000), STATUS_OK);
  std::uint64_t const place = NodeArena::OfProcess()->OffsetOf(block, 100000);

  auto const peer = NodePeer::Open(NodeArena::OfProcess()->Id());

  ASSERT_NE(peer, nullptr);
  std::memset(block, 0x5A, 100000);
  EXPECT_EQ(peer->At(place, 100000)[99999], 0x5A);
  EXPECT_EQ(peer->At(NodeArena::OfProcess()->Id().bytes - 1, 2), nullptr);
  EXPECT_TRUE(peer->IsAlive());
  pool.Deallocate(block, 100000);
}

TEST(NodePeer, IsMappedOnceForAllWhoHoldIt) {
  NodeFileId const& id = NodeArena::OfProcess()->Id();
  auto const first = NodePeer::Open(id);

  auto const second = NodePeer::Open(id);

  EXPECT_EQ(first, second);
}

TEST(NodePeer, IsNotAnotherFile) {
  NodeFileId const& id = NodeArena::OfProcess()->Id();
  for (int field = 0; field < 4; ++field) {
    NodeFileId other = id;
    if (field == 0) other.inode += 1;
    if (field == 1) other.device += 1;
    if (field == 2) other.bytes -= 4096;
    if (field == 3) other.file += 1000;

    EXPECT_EQ(NodePeer::Open(other), nullptr) << field;
  }
}

// Even opening a file can have an effect, if it is a device.
TEST(NodePeer, DoesNotOpenAFileThatIsAnotherOne) {
  char path[] = "/tmp/pavex-peer-XXXXXX";
  int const file = mkstemp(path);
  ASSERT_GE(file, 0);
  int const watch = inotify_init1(IN_NONBLOCK);
  ASSERT_GE(inotify_add_watch(watch, path, IN_OPEN), 0);
  NodeFileId other = NodeArena::OfProcess()->Id();
  other.file = file;

  EXPECT_EQ(NodePeer::Open(other), nullptr);

  char events[512];
  EXPECT_EQ(read(watch, events, sizeof events), -1) << "the file has been opened";
  std::string const again = "/proc/self/fd/" + std::to_string(file);
  close(open(again.c_str(), O_RDONLY));
  EXPECT_GT(read(watch, events, sizeof events), 0) << "the watch does not notice opening";
  close(watch);
  close(file);
  unlink(path);
}

// A child has its own memory at the addresses of the mapping.
TEST(NodePeer, LeavesTheMemoryOfAChildAlone) {
  auto peer = NodePeer::Open(NodeArena::OfProcess()->Id());
  ASSERT_NE(peer, nullptr);
  void* const place = peer->At(0, 4096);
  pid_t const child = fork();
  if (child == 0) {
    void* const own = mmap(place, 4096, PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
    peer.reset();
    *static_cast<char volatile*>(own) = 1;
    NodePool pool;
    _exit(pool.Active() ? 2 : 0);
  }

  int status = -1;
  waitpid(child, &status, 0);

  EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
}  // namespace Pavex
