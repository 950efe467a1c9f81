// Turns the pieces that a receiver got, one behind the other, into the whole.
//
// MergeStack passes the rows of the stack to a RowMerger (row_merger.h), which writes the rows
// of the whole: it merges rows that overlap, and copies others as they are. The MergeMap
// (merge_map.h) keeps where each entry went: with it, every update adds the values that arrive.

#pragma once

#include "pavex/assembly/assembly_plan.h"
#include "pavex/assembly/merge_map.h"
#include "pavex/runtime/buffer.h"
#include "pavex/runtime/memory_pool.h"

#include <cstdint>

namespace Pavex {

// The rows of all pieces in the order of a plan, with offsets from 0. `mOffsets` has room for
// at least as many offsets as `mRows` + 1.
template <typename I>
struct AssemblyStack {
  std::int64_t mRows = 0;
  Buffer<I> mOffsets;
  Buffer<I> mCols;
};

// The lists of rows of all processes that have one, by rank.
template <typename I>
struct RowLists {
  Buffer<I> mListed;   // what processes declared
  Buffer<I> mTouched;  // rows with entries, if the records say kTouched
};

// Gives every row of the stack, whose pieces are bands in order, its place among the `rows`
// rows of the whole. The stack keeps its columns; `stack.mOffsets` becomes the offsets of the
// whole. Takes no memory if the bands fill the whole. Local.
template <typename I>
PavexStatus PlaceBands(MemoryPool& pool, Buffer<AssemblyRecord> const& records,
                       Buffer<int> const& order, std::int64_t rows, AssemblyStack<I>& stack);

// Merges the rows of the stack, whose pieces are in rank order, into `offsets` and `cols` of a
// `rows` x `columns` whole. `map`: where the entries of the stack belong. Empties the stack.
// Local.
template <typename I>
PavexStatus MergeStack(MemoryPool& pool, Buffer<AssemblyRecord> const& records,
                       RowLists<I> const& lists, AssemblyRequest const& request,
                       AssemblyStack<I>& stack, Buffer<I>& offsets, Buffer<I>& cols,
                       MergeMap<I>& map);

#define PAVEX_EXTERN(I)                                                                       \
  extern template PavexStatus PlaceBands<I>(MemoryPool&, Buffer<AssemblyRecord> const&,       \
                                            Buffer<int> const&, std::int64_t,                 \
                                            AssemblyStack<I>&);                               \
  extern template PavexStatus MergeStack<I>(                                                  \
      MemoryPool&, Buffer<AssemblyRecord> const&, RowLists<I> const&, AssemblyRequest const&, \
      AssemblyStack<I>&, Buffer<I>&, Buffer<I>&, MergeMap<I>&);
PAVEX_EXTERN(int)
PAVEX_EXTERN(long)
#undef PAVEX_EXTERN

}  // namespace Pavex
