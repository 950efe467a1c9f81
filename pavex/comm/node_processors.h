// Which processors the processes of a node may run on. Not installed.

#pragma once

#include <sched.h>

namespace Pavex {

// The processors that a process may run on, or several processes together. Launchers often
// give each process a processor of its own.
class NodeProcessors {
 public:
  // None.
  NodeProcessors() { CPU_ZERO(&mSet); }

  // Those of the calling thread. All that can be named if the system does not tell, as on a
  // machine with more than that.
  static NodeProcessors OfThread();

  void Add(NodeProcessors const& others) { CPU_OR(&mSet, &mSet, &others.mSet); }
  int Count() const { return CPU_COUNT(&mSet); }

 private:
  cpu_set_t mSet;
};

}  // namespace Pavex
