// One small exchange, by which all processes know what each of them found.

#pragma once

#include "pavex/runtime/buffer.h"
#include "pavex/runtime/comm.h"

#include <type_traits>

namespace Pavex {

// Fills `all`, one element per process, with the `own` of each. Calls nothing for one process.
// Collective.
template <typename Record>
PavexStatus Exchange(Comm const& comm, Record const& own, Buffer<Record>& all) {
  static_assert(std::is_trivially_copyable_v<Record>, "sent as bytes");
  if (all.mSize == 1) {
    all.mData[0] = own;
    return STATUS_OK;
  }
  constexpr int kBytes = sizeof(Record);
  return comm.Allgather(&own, kBytes, DATATYPE_BYTE, all.mData, kBytes, DATATYPE_BYTE);
}

}  // namespace Pavex
