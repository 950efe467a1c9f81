// Another process of this node, to notice its end. Not installed.

#pragma once

#include <cstdint>

namespace Pavex {

// Asks the system through a descriptor of the process, or, where the system has none (before
// Linux 5.3, or forbidden in a container), through what /proc says of it.
class NodeProcess {
 public:
  // When process `pid` was started, in the units of the system; 0: it has ended, or the system
  // does not tell. A process that gets the same number later was started later.
  static std::uint64_t StartOf(std::int64_t pid);

  // `start`: StartOf of the process, as the process itself has found it.
  NodeProcess(std::int64_t pid, std::uint64_t start);
  NodeProcess(NodeProcess const&) = delete;
  NodeProcess& operator=(NodeProcess const&) = delete;
  ~NodeProcess();

  // Whether the system tells when the process ends.
  bool IsWatched() const { return mDescriptor >= 0 || mStart != 0; }

  // False once the process has ended, also if nothing has waited for it yet.
  bool IsAlive() const;

 private:
  std::int64_t mPid;
  std::uint64_t mStart;
  int mDescriptor;  // becomes readable when the process ends; -1: the system has none
};

}  // namespace Pavex
