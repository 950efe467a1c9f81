// Looks for what is wrong with the contribution of one process, before anything moves.

#pragma once

#include "pavex/assembly/assembly_plan.h"
#include "pavex/assembly/contribution.h"
#include "pavex/runtime/wrapping.h"

#include <cstdint>

namespace Pavex {

// Entries of block `block`. The offsets of compressed rows must have been checked. Negative if
// there are more than 64 bits count.
template <typename I>
std::int64_t EntriesOf(ContributionPattern<I> const& own, int block) {
  BlockPattern<I> const& pattern = own.mBlock[block];
  if (!pattern.mCompressed) return pattern.mNnz;
  if (own.mRows == 0) return 0;
  return WrappingSub(std::int64_t{pattern.mOffsets[own.mRows]},
                     std::int64_t{pattern.mOffsets[0]});
}

// The row of the whole that row `row` of the process is.
template <typename I>
std::int64_t GlobalRow(ContributionPattern<I> const& own, std::int64_t row) {
  return own.mListed ? std::int64_t{own.mRowList[row]} : own.mBegin + row;
}

// Writes the request and the size of the contribution into `record`, and the first flaw that
// this process can see alone. `hasValues` says which block has values. `processes`: of the
// communicator. Local.
template <typename I>
void CheckContribution(ContributionPattern<I> const& own, bool const* hasValues,
                       AssemblyRequest const& request, int processes, AssemblyRecord& record);

extern template void CheckContribution<int>(ContributionPattern<int> const&, bool const*,
                                            AssemblyRequest const&, int, AssemblyRecord&);
extern template void CheckContribution<long>(ContributionPattern<long> const&, bool const*,
                                             AssemblyRequest const&, int, AssemblyRecord&);

}  // namespace Pavex
