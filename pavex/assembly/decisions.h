// What all processes decide identically about an assembly (assembly_plan.cpp), the words of a
// refusal (refusal.cpp) and the price (cost.cpp). Nothing here logs, communicates or takes
// memory.

#pragma once

#include "pavex/aggregator/rounds.h"
#include "pavex/assembly/assembly_plan.h"
#include "pavex/runtime/buffer.h"
#include "pavex/runtime/log.h"

#include <cstddef>
#include <cstdint>

namespace Pavex {

// Rows, elements of lists or dense elements that several processes send at most: what one call
// counts. Entries may be more only if their pieces are placed in the order of the seats, which
// the rounds of an Aggregator follow. Tests build the library with few.
constexpr std::int64_t kMostCounted = kMostPerCall;

// What the `records` of an operation, one per process by rank, refuse it for: the first flaw
// that a process found, or the first process that calls another operation than process 0. A
// plan that is not refused if all is well. Local; logs nothing.
AssemblyPlan FirstFault(Buffer<AssemblyRecord> const& records);

// Plans the assembly of `records`, one per process by rank. Writes the ranks into `order`, one
// per process: the order in which their pieces are placed. Bands are placed by their begins and
// those without rows last, other pieces in the order of the ranks. `most`: what the index type
// counts. Local; logs nothing.
AssemblyPlan PlanAssembly(Buffer<AssemblyRecord> const& records, Buffer<int> const& order,
                          std::int64_t most);

// What a flaw with that verdict makes an operation return on every process. Never STATUS_OK.
PavexStatus StatusOf(AssemblyFlaw flaw, AssemblyVerdict const& verdict);

// A text of one line, cut to what a line of the log takes.
struct AssemblyReason {
  char mText[Log::kMostFormat] = {};
};

// Why process `process` is at fault, with row and cure.
AssemblyReason ReasonOf(AssemblyFlaw flaw, int process, AssemblyVerdict const& verdict);

// Why `plan` is refused: the process at fault, row and cure.
AssemblyReason ReasonOf(AssemblyPlan const& plan, Buffer<AssemblyRecord> const& records);

// What an update costs the process `rank`. `merges`: it does not send its entries as they are.
// Here and below, `indexBytes` and `valueBytes` are the sizes of I and T.
AssemblyCost CostOfUpdate(AssemblyPlan const& plan, Buffer<AssemblyRecord> const& records,
                          int rank, std::size_t valueBytes, bool merges);
// What a gather of the pattern costs the process `rank`. A gather with values costs an update
// more.
AssemblyCost CostOfPattern(AssemblyPlan const& plan, Buffer<AssemblyRecord> const& records,
                           int rank, std::size_t indexBytes, bool merges);
// What a scatter and a collect of `columns` columns cost the process `rank`, if its own matrix
// lies column by column without gaps.
AssemblyCost CostOfScatter(Buffer<AssemblyRecord> const& records, int rank,
                           std::size_t valueBytes, std::int64_t columns);
AssemblyCost CostOfCollect(Buffer<AssemblyRecord> const& records, int rank,
                           std::size_t valueBytes, std::int64_t columns);

}  // namespace Pavex
