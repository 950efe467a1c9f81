#include "pavex/comm/node_peer.h"

#include <cstdio>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <new>
#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Pavex {

namespace {

// The mappings that communicators of this process hold now, by the inode of the file.
struct Registry {
  std::mutex mutex;
  std::map<std::uint64_t, std::weak_ptr<NodePeer const>> peers;
};

Registry& OpenPeers() {
  static auto* const registry = new Registry;  // outlives communicators with static storage
  return *registry;
}

bool IsFile(int file, NodeArenaId const& id) {
  struct stat status {};
  return fstat(file, &status) == 0 && status.st_dev == id.device && status.st_ino == id.inode &&
         static_cast<std::uint64_t>(status.st_size) == id.bytes;
}

}  // namespace

std::shared_ptr<NodePeer const> NodePeer::Open(NodeArenaId const& id) try {
  Registry& registry = OpenPeers();
  std::lock_guard<std::mutex> const lock(registry.mutex);
  std::weak_ptr<NodePeer const>& known = registry.peers[id.inode];
  if (std::shared_ptr<NodePeer const> peer = known.lock()) return peer;

  char path[64];
  std::snprintf(path, sizeof path, "/proc/%ld/fd/%ld", static_cast<long>(id.pid),
                static_cast<long>(id.file));
  int const file = open(path, O_RDWR | O_CLOEXEC);
  if (file < 0) return nullptr;
  std::shared_ptr<NodePeer> peer(new NodePeer);
  if (IsFile(file, id)) peer->mBase = MapAtHugePage(file, id.bytes);
  close(file);
  if (peer->mBase == nullptr) return nullptr;
  peer->mBytes = id.bytes;
  peer->mHugePages = NodeHugePages(peer->mBase);
  peer->mProcess = static_cast<int>(syscall(SYS_pidfd_open, static_cast<pid_t>(id.pid), 0));
  known = peer;
  return peer;
} catch (std::bad_alloc const&) {
  return nullptr;
}

NodePeer::~NodePeer() {
  if (mBase != nullptr) munmap(mBase, mBytes);
  if (mProcess >= 0) close(mProcess);
}

bool NodePeer::IsAlive() const {
  pollfd ended{mProcess, POLLIN, 0};  // a negative descriptor is ignored
  return poll(&ended, 1, 0) <= 0;
}

}  // namespace Pavex
