// Which node a process runs on. Not installed.

#pragma once

#include <cstdint>

namespace Pavex {

// What the processes of a node have in common and no other process has: the start of the
// system, and the namespaces of processes and of the network. Processes in different namespaces
// of processes cannot name each other. Those in different networks count as two nodes, as they
// do for MPI.
struct NodeKey {
  char boot[40] = "";           // empty: unknown, so that the process shares memory with none
  std::uint64_t processes = 0;  // inodes of the namespaces; 0 where the system has none
  std::uint64_t network = 0;

  // That of this process. Local.
  static NodeKey OfProcess();

  bool IsKnown() const { return boot[0] != '\0'; }

  // Negative, zero or positive: an order without meaning, the same on all processes.
  int Compare(NodeKey const& other) const;
};

}  // namespace Pavex
