// The random cases over memory that the processes of a node share.

#pragma once

#include "pavex/comm/node_comm.h"
#include "pavex/runtime/log.h"
#include "tests/property/property.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace Pavex {

// Runs `cases` cases, unless the environment says which. The ranks that `shares` names take
// their blocks from `shared`, the others from the heap. At most `largest` processes share
// memory. `program`: its name, for the report. Collective.
inline void RunNodeCases(long cases, int largest, MemoryPool& shared, bool (*shares)(int rank),
                         char const* program) {
  auto const comm = std::make_shared<NodeComm>(MPI_COMM_WORLD, largest);
  MemoryPool* const source = shares(comm->Rank()) ? &shared : nullptr;
  auto const options = PropertyOptions::FromEnvironment(cases);
  Log::mMaxLogLevel = -1;  // refusals are part of the cases
  for (long number = options.first; number < options.first + options.cases; ++number) {
    std::string const difference = RunCase(options.seed, number, comm, source);
    // Ends the job: the other ranks would wait for this one.
    if (!difference.empty()) FAIL() << difference << " " << program;
  }
  Log::mMaxLogLevel = LOG_ERROR;
}

}  // namespace Pavex
