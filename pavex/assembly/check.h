// Looks for what is wrong with the contribution of one process, before anything moves.

#pragma once

#include "pavex/assembly/assembly_plan.h"
#include "pavex/assembly/contribution.h"
#include "pavex/assembly/range.h"

#include <cstdint>

namespace Pavex {

// Entries of block `block`. The offsets of compressed rows must have been checked. Negative if
// there are more than 64 bits count.
template <typename I>
std::int64_t EntriesOf(ContributionPattern<I> const& own, int block);

// The row of the whole that row `row` of the process is.
template <typename I>
std::int64_t GlobalRow(ContributionPattern<I> const& own, std::int64_t row) {
  return own.mListed ? std::int64_t{own.mRowList[row]} : own.mBegin + row;
}

// What a check finds out about a contribution without a flaw.
struct CheckFindings {
  bool mAscends = false;  // one block of compressed rows with global columns, which ascend in
                          // each row
  Range mRows;            // of the entries as they were passed, if there is one block
  Range mCols;            // of the columns as they were passed, if there is one block
};

// Writes the request and the size of the contribution into `record`, and the first flaw that
// this process can see alone. `hasValues` says which block has values. `processes`: of the
// communicator. Local.
template <typename I>
CheckFindings CheckContribution(ContributionPattern<I> const& own, bool const* hasValues,
                                AssemblyRequest const& request, int processes,
                                AssemblyRecord& record);

extern template std::int64_t EntriesOf<int>(ContributionPattern<int> const&, int);
extern template std::int64_t EntriesOf<long>(ContributionPattern<long> const&, int);
extern template CheckFindings CheckContribution<int>(ContributionPattern<int> const&,
                                                     bool const*, AssemblyRequest const&, int,
                                                     AssemblyRecord&);
extern template CheckFindings CheckContribution<long>(ContributionPattern<long> const&,
                                                      bool const*, AssemblyRequest const&, int,
                                                      AssemblyRecord&);

}  // namespace Pavex
