// Reports how much memory an operation requested in vain. A log line does not contain that.

#pragma once

#include "pavex/runtime/comm.h"
#include "pavex/runtime/memory_pool.h"

#include <cstddef>
#include <string>

namespace Pavex::Tool {

// A text for a number of bytes: "8.4 GB", or "24 bytes" below 1000. Units are powers of 1000.
std::string AmountOf(std::size_t bytes);

// Like Require, for an operation on this rank that takes its memory from `pool`. If the pool
// refused a request, the message names its size: "rank 0: out of memory, 8.4 GB asked for with
// 3.1 GB in use".
void RequireWithin(MemoryPool const& pool, PavexStatus status, std::string const& what,
                   Comm const& comm);

}  // namespace Pavex::Tool
