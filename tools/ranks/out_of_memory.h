// Says what a log line cannot: how much memory was asked for in vain.

#pragma once

#include "pavex/runtime/comm.h"
#include "pavex/runtime/memory_pool.h"

#include <cstddef>
#include <string>

namespace Pavex::Tool {

// "8.4 GB"; below 1000 "24 bytes". Units are powers of 1000.
std::string AmountOf(std::size_t bytes);

// As Require, for an operation on this rank that takes its memory from `pool`. Where the pool
// refused a request, the message names its size: "rank 0: out of memory, 8.4 GB asked for with
// 3.1 GB in use".
void RequireWithin(MemoryPool const& pool, PavexStatus status, std::string const& what,
                   Comm const& comm);

}  // namespace Pavex::Tool
