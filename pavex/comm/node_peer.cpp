#include "pavex/comm/node_peer.h"

#include <cstdio>
#include <fcntl.h>
#include <iterator>
#include <map>
#include <mutex>
#include <new>
#include <sys/mman.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

namespace Pavex {

namespace {

using Key = std::tuple<std::int64_t, std::uint64_t, std::uint64_t>;  // process, device, inode

// The mappings that communicators of this process hold now.
struct Registry {
  std::mutex mutex;
  std::map<Key, std::weak_ptr<NodePeer const>> peers;

  void DropEnded() {
    for (auto peer = peers.begin(); peer != peers.end();)
      peer = peer->second.expired() ? peers.erase(peer) : std::next(peer);
  }
};

Registry& OpenPeers() {
  static auto* const registry = new Registry;  // outlives communicators with static storage
  return *registry;
}

bool IsArena(struct stat const& status, NodeArenaId const& id) {
  return S_ISREG(status.st_mode) && status.st_dev == id.device && status.st_ino == id.inode &&
         static_cast<std::uint64_t>(status.st_size) == id.bytes;
}

}  // namespace

std::shared_ptr<NodePeer const> NodePeer::Open(NodeArenaId const& id) try {
  Registry& registry = OpenPeers();
  std::lock_guard<std::mutex> const lock(registry.mutex);
  registry.DropEnded();
  std::weak_ptr<NodePeer const>& known = registry.peers[{id.pid, id.device, id.inode}];
  if (std::shared_ptr<NodePeer const> peer = known.lock()) return peer;

  auto const peer = std::make_shared<NodePeer>(id);
  if (!peer->mProcess.IsWatched() || !peer->Map(id)) return nullptr;
  known = peer;
  return peer;
} catch (std::bad_alloc const&) {
  return nullptr;
}

// The process is found before its file: the file proves that it is the right one.
NodePeer::NodePeer(NodeArenaId const& id) : mProcess(id.pid, id.start), mOwner(getpid()) {}

// In another PID namespace the path names a file of some other process, maybe a device for
// which even opening has an effect. So it is looked at before it is opened, and again after.
bool NodePeer::Map(NodeArenaId const& id) {
  char path[64];
  std::snprintf(path, sizeof path, "/proc/%lld/fd/%lld", static_cast<long long>(id.pid),
                static_cast<long long>(id.file));
  struct stat status {};
  if (stat(path, &status) != 0 || !IsArena(status, id)) return false;
  int const file = open(path, O_RDWR | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (file < 0) return false;
  if (fstat(file, &status) == 0 && IsArena(status, id)) mBase = MapAtHugePage(file, id.bytes);
  close(file);
  if (mBase == nullptr) return false;
  mBytes = id.bytes;
  mHugePages = NodeHugePages(mBase);
  return true;
}

// What lies at these addresses in a child that was forked is the child's own.
NodePeer::~NodePeer() {
  if (mBase != nullptr && mOwner == getpid()) munmap(mBase, mBytes);
}

}  // namespace Pavex
