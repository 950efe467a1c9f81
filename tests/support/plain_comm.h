// A communicator that does not move runs, for tests.

#pragma once

#include "tests/support/comm_call.h"

#include <memory>
#include <utility>

namespace Pavex {

// Passes every call to the wrapped communicator, which may move runs. So dense matrices are
// packed and reordered, and bands send the lengths of their rows.
class PlainComm : public CallComm {
 public:
  explicit PlainComm(std::shared_ptr<Comm> inner)
      : CallComm(inner->Rank(), inner->Size()), mInner(std::move(inner)) {}

 protected:
  PavexStatus Handle(CommCall& call) const override { return Forward(call, *mInner); }

 private:
  std::shared_ptr<Comm> const mInner;
};

}  // namespace Pavex
