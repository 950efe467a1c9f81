// The statuses with which an operation may end if its input may be anything.

#pragma once

#include "pavex/runtime/status.h"

#include <algorithm>
#include <iterator>

namespace Pavex {

// STATUS_OUT_OF_MEMORY comes from the pool, STATUS_COMM_FAILED from the communicator.
inline bool IsKnownStatus(PavexStatus status) {
  constexpr PavexStatus kKnown[] = {
      STATUS_OK,       STATUS_NOT_SUPPORTED, STATUS_OUT_OF_MEMORY, STATUS_INVALID_VALUE,
      STATUS_MISMATCH, STATUS_WRONG_ORDER,   STATUS_INCONSISTENT,  STATUS_COMM_FAILED};
  return std::find(std::begin(kKnown), std::end(kKnown), status) != std::end(kKnown);
}

// Whether a gather may end with `status`. It compares nothing with an earlier gather.
inline bool IsGatherStatus(PavexStatus status) {
  return IsKnownStatus(status) && status != STATUS_MISMATCH && status != STATUS_WRONG_ORDER;
}

// Whether `status` comes from the pool or the communicator, so that only some processes may
// have it.
inline bool IsOthersFailure(PavexStatus status) {
  return status == STATUS_OUT_OF_MEMORY || status == STATUS_COMM_FAILED;
}

}  // namespace Pavex
