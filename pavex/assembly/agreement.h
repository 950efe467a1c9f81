// One small exchange, by which all processes know what each of them found.

#pragma once

#include "pavex/assembly/assembly_plan.h"
#include "pavex/runtime/buffer.h"
#include "pavex/runtime/comm.h"

#include <memory>

namespace Pavex {

// Fills `all`, one record per process, with the `own` of each. Its memory need not be set. A
// record that does not arrive is a default one. Every operation makes the same call, so that
// processes that are in different ones meet here. Calls nothing for one process. Collective.
// STATUS_INVALID_VALUE on this process alone if the communicator has no rank for it, as an
// MpiComm after MPI was finalised.
inline PavexStatus Exchange(Comm const& comm, AssemblyRecord const& own,
                            Buffer<AssemblyRecord>& all) {
  std::uninitialized_fill_n(all.mData, all.mSize, AssemblyRecord());
  int const rank = comm.Rank();
  if (rank < 0 || rank >= all.mSize) return STATUS_INVALID_VALUE;
  all.mData[rank] = own;
  if (all.mSize == 1) return STATUS_OK;
  constexpr int kBytes = sizeof(AssemblyRecord);
  return comm.Allgather(&own, kBytes, DATATYPE_BYTE, all.mData, kBytes, DATATYPE_BYTE);
}

}  // namespace Pavex
