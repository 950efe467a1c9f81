// A communicator that records the calls of another one, for tests.

#pragma once

#include "tests/support/comm_call.h"
#include "tests/support/fault.h"

#include <memory>
#include <string>
#include <vector>

namespace Pavex {

// Passes every call to the wrapped communicator and records it, Rank and Size included. It
// records buffers as pointers, so their contents can be read only while they live. Each rank
// wraps its own communicator. One thread uses it at a time.
class TraceComm : public CallComm {
 public:
  // Whether a failing call moves its data first.
  enum FaultMode { INSTEAD, AFTERWARDS };

  explicit TraceComm(std::shared_ptr<Comm> inner);

  // Decides which of the calls from now on fail; Rank and Size are not counted.
  void Fail(Fault const& fault, FaultMode mode = INSTEAD);

  // Whether a planned fault has occurred.
  bool FaultStruck() const { return mFault.Struck(); }

  // All calls since the start or the last ForgetCalls.
  std::vector<CommCall> const& Calls() const { return mCalls; }
  void ForgetCalls() { mCalls.clear(); }

  // The texts of all calls, and of all calls except Rank and Size.
  std::vector<std::string> Texts() const;
  std::vector<std::string> DataTexts() const;

 protected:
  PavexStatus Handle(CommCall& call) const override;

  // Makes a call that moves data, unless it is to fail.
  template <typename Call>
  PavexStatus RunOrFail(Call const& call) const {
    if (!mFault.Due()) return call();
    if (mFaultMode == AFTERWARDS) call();
    return mFault.Status();
  }

 private:
  PavexStatus Run(CommCall const& call) const;

  std::shared_ptr<Comm> const mInner;
  std::vector<CommCall> mutable mCalls;
  Fault mutable mFault;
  FaultMode mFaultMode = INSTEAD;
};

}  // namespace Pavex
