// A communicator that moves runs if another one does, and whose calls can fail, for tests.

#pragma once

#include "tests/support/trace_comm.h"

#include <memory>

namespace Pavex {

// As TraceComm, but also passes on the operations that move runs. Those may fail like any call,
// but only their number is recorded.
class RunsComm : public TraceComm {
 public:
  explicit RunsComm(std::shared_ptr<Comm> const& inner) : TraceComm(inner), mRunsOf(inner) {}

  // How many calls have moved runs, or failed to.
  long RunCalls() const { return mRunCalls; }

  bool Strided() const override { return mRunsOf->Strided(); }
  PavexStatus GatherRuns(void const* sendbuf, Runs const& sent, void* recvbuf,
                         Runs const* received, Datatype type, int root) const override {
    ++mRunCalls;
    return RunOrFail(
        [&] { return mRunsOf->GatherRuns(sendbuf, sent, recvbuf, received, type, root); });
  }
  PavexStatus ScatterRuns(void const* sendbuf, Runs const* sent, void* recvbuf,
                          Runs const& received, Datatype type, int root) const override {
    ++mRunCalls;
    return RunOrFail(
        [&] { return mRunsOf->ScatterRuns(sendbuf, sent, recvbuf, received, type, root); });
  }

 private:
  std::shared_ptr<Comm> const mRunsOf;
  long mutable mRunCalls = 0;
};

}  // namespace Pavex
