// How long a step takes.

#pragma once

#include "tools/ranks/collect.h"
#include "tools/ranks/out_of_memory.h"

#include <chrono>
#include <string>

namespace Pavex::Tool {

// A clock that runs from its construction on.
class Stopwatch {
 public:
  double Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - mStart).count();
  }

 private:
  std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
};

// The seconds that the slowest rank needs for `operation`, which returns a status and takes its
// memory from `pool`. All ranks begin it at about the same time. `what` names the step, as in
// "the gather". Collective; a failed operation throws JobError.
template <typename Operation>
double TimeTogether(Comm const& comm, MemoryPool const& pool, std::string const& what,
                    Operation const& operation) {
  Require(comm.Barrier(), "the barrier", comm);
  Stopwatch const stopwatch;
  RequireWithin(pool, operation(), what, comm);
  return LargestOfAll(comm, stopwatch.Seconds());
}

}  // namespace Pavex::Tool
