// What a process sends of its contribution: compressed rows in which no column repeats.

#pragma once

#include "pavex/assembly/assembly_plan.h"
#include "pavex/assembly/check.h"
#include "pavex/assembly/contribution.h"
#include "pavex/runtime/buffer.h"
#include "pavex/runtime/memory_pool.h"

namespace Pavex {

// The arrays borrow those of the contribution where these can be sent as they are.
template <typename I>
struct AssemblyPiece {
  Buffer<I> mOffsets;  // one more than rows
  Buffer<I> mCols;     // global columns
  Buffer<I> mTouched;  // the row of each row, if the record says kTouched
  Buffer<I> mSlots;    // the entry of the piece to which each given entry adds; empty: itself
};

// Builds the piece of a contribution that has been checked, and describes it in `record`:
//
// - One block of compressed rows with global columns is sent as it is, if the columns of each
//   row ascend, or if they need not and none repeats.
// - Other compressed rows keep their rows. Within each row, columns are sorted and what repeats
//   is added.
// - Entries become compressed rows: a band if most rows between the first and the last have
//   entries, otherwise the rows that have some.
//
// `found`: what the check returned. Only the first way takes no memory, unless columns need
// not ascend. See Assembler for bytes. Local; returns the status of the pool.
template <typename I>
PavexStatus BuildPiece(MemoryPool& pool, ContributionPattern<I> const& own,
                       CheckFindings const& found, bool sortColumns, AssemblyRecord& record,
                       AssemblyPiece<I>& piece);

extern template PavexStatus BuildPiece<int>(MemoryPool&, ContributionPattern<int> const&,
                                            CheckFindings const&, bool, AssemblyRecord&,
                                            AssemblyPiece<int>&);
extern template PavexStatus BuildPiece<long>(MemoryPool&, ContributionPattern<long> const&,
                                             CheckFindings const&, bool, AssemblyRecord&,
                                             AssemblyPiece<long>&);

}  // namespace Pavex
