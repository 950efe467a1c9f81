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
  // Whether the planned fault has struck one of them.
  bool RunCallFailed() const { return mRunCallFailed; }

  bool Strided() const override { return mRunsOf->Strided(); }
  PavexStatus GatherRuns(void const* sendbuf, Runs const& sent, void* recvbuf,
                         Runs const* received, Datatype type, int root) const override {
    return Move(
        [&] { return mRunsOf->GatherRuns(sendbuf, sent, recvbuf, received, type, root); });
  }
  PavexStatus ScatterRuns(void const* sendbuf, Runs const* sent, void* recvbuf,
                          Runs const& received, Datatype type, int root) const override {
    return Move(
        [&] { return mRunsOf->ScatterRuns(sendbuf, sent, recvbuf, received, type, root); });
  }

 private:
  template <typename Call>
  PavexStatus Move(Call const& call) const {
    ++mRunCalls;
    bool const struckBefore = FaultStruck();
    PavexStatus const status = RunOrFail(call);
    mRunCallFailed |= FaultStruck() && !struckBefore;
    return status;
  }

  std::shared_ptr<Comm> const mRunsOf;
  long mutable mRunCalls = 0;
  bool mutable mRunCallFailed = false;
};

}  // namespace Pavex
