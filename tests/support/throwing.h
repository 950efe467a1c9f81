// A pool and a communicator of an application that throw, for tests.

#pragma once

#include "tests/support/ledger_pool.h"
#include "tests/support/trace_comm.h"

#include <cstddef>
#include <exception>

namespace Pavex {

struct Thrown : std::exception {};

// Throws instead of serving its n-th request from now on.
class ThrowingPool : public LedgerPool {
 public:
  PavexStatus Allocate(void** block, std::size_t bytes) override {
    if (--mLeft == 0) throw Thrown();
    return LedgerPool::Allocate(block, bytes);
  }
  void ThrowAt(int nth) { mLeft = nth; }

 private:
  int mLeft = 0;
};

// Throws instead of making its n-th call that moves data from now on.
class ThrowingComm : public TraceComm {
 public:
  using TraceComm::TraceComm;
  void ThrowAt(int nth) { mLeft = nth; }

 protected:
  PavexStatus Handle(CommCall& call) const override {
    bool const moves = call.op != CommOp::RANK && call.op != CommOp::SIZE;
    if (moves && --mLeft == 0) throw Thrown();
    return TraceComm::Handle(call);
  }

 private:
  int mutable mLeft = 0;
};

}  // namespace Pavex
