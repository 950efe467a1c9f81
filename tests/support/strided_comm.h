// A communicator that moves runs, for tests.

#pragma once

#include "tests/support/trace_comm.h"

#include <memory>
#include <string>
#include <vector>

namespace Pavex {

// Passes every call to the wrapped communicator, as TraceComm does, and moves runs over it: it
// packs them and calls Gatherv, Allgatherv or Scatterv. `RunCalls` are the calls of GatherRuns
// and ScatterRuns alone, such as
//   GatherRuns({0, 2, 3, 4}; {0, 2, 3, 5} {2, 3, 3, 5}; root 0)     on a receiver
//   GatherRuns({0, 2, 3, 4}; root 0)                                elsewhere
//   ScatterRuns({0, 2, 3, 5} {2, 3, 3, 5}; {0, 2, 3, 2}; root 0)    on the root
// where runs are {begin, length, count, stride}.
class StridedComm : public TraceComm {
 public:
  explicit StridedComm(std::shared_ptr<Comm> const& inner);

  std::vector<std::string> const& RunCalls() const { return mRunCalls; }

  bool Strided() const override;
  PavexStatus GatherRuns(void const* sendbuf, Runs const& sent, void* recvbuf,
                         Runs const* received, Datatype type, int root) const override;
  PavexStatus ScatterRuns(void const* sendbuf, Runs const* sent, void* recvbuf,
                          Runs const& received, Datatype type, int root) const override;

 private:
  std::vector<std::string> mutable mRunCalls;
};

}  // namespace Pavex
