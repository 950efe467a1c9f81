#include "pavex/comm/node_peer.h"

#include <iterator>
#include <map>
#include <mutex>
#include <new>
#include <sys/mman.h>
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

}  // namespace

std::shared_ptr<NodePeer const> NodePeer::Open(NodeFileId const& id) try {
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
NodePeer::NodePeer(NodeFileId const& id) : mProcess(id.pid, id.start), mOwner(getpid()) {}

bool NodePeer::Map(NodeFileId const& id) {
  int const file = OpenMemoryFile(id);
  if (file < 0) return false;
  mBase = MapAtHugePage(file, id.bytes);
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
