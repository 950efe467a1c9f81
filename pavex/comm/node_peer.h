// Another process of the node, and its arena as this process maps it. Not installed.

#pragma once

#include "pavex/comm/node_arena.h"
#include "pavex/comm/node_process.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace Pavex {

// Maps the whole arena of a peer. Communicators with the same peer share one mapping, which
// goes with the last of them.
class NodePeer {
 public:
  // Null if the system does not permit it, if the file found is not the one that `id` names, as
  // in another PID namespace, or if the end of the peer would go unnoticed. A file that is
  // another one is not opened.
  static std::shared_ptr<NodePeer const> Open(NodeFileId const& id);

  explicit NodePeer(NodeFileId const& id);
  NodePeer(NodePeer const&) = delete;
  NodePeer& operator=(NodePeer const&) = delete;
  ~NodePeer();

  // The memory at `offset` of the peer's arena; null if the range is not inside the arena.
  unsigned char* At(std::uint64_t offset, std::size_t bytes) const {
    bool const inside = bytes <= mBytes && offset <= mBytes - bytes;
    return inside ? mBase + offset : nullptr;
  }

  NodeHugePages const& HugePages() const { return mHugePages; }

  // False once the process has ended.
  bool IsAlive() const { return mProcess.IsAlive(); }

 private:
  bool Map(NodeFileId const& id);

  NodeProcess mProcess;
  std::int64_t mOwner;  // the process that made this; a child of it does not have the mapping
  unsigned char* mBase = nullptr;
  std::size_t mBytes = 0;
  NodeHugePages mHugePages;
};

}  // namespace Pavex
