// A memory pool whose blocks the processes of a node can map.

#pragma once

#include "pavex/runtime/export.h"
#include "pavex/runtime/memory_pool.h"

namespace Pavex {

// A MemoryPool over the shared memory of this process. Where it receives, the processes of its
// node store their pieces into its blocks themselves, if the communicator is a NodeComm. Over
// any other communicator it works as a MemoryPool does.
//
// Where the system refuses shared memory (no memory files, a limit on file size or address
// space), and for what goes beyond the memory of the machine, the blocks come from where those
// of a MemoryPool come from.
//
// A large array that all processes of a node have received through a NodeComm is in memory
// once. Readers of their blocks share its pages; a process that writes gets its own copy of a
// page, which no other process sees. A block that receives other data, or goes back to the
// system, is ordinary memory again.
//
// A process makes its shared memory, for all its pools and communicators, when it makes the
// first of either; it lasts as long as the process. Blocks may outlive every communicator. A
// child that was forked must not use them. What the blocks take counts as shared memory: a sum
// over processes must be one of proportional set sizes (Pss). Local, and no lock: one pool per
// rank.
class PAVEX_API NodePool : public MemoryPool {
 public:
  NodePool();
  ~NodePool() override;

  // Whether the blocks are shared. Local.
  bool Active() const;
};

}  // namespace Pavex
