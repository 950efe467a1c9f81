// Where the entries that arrive on a receiver belong in the whole.

#pragma once

#include "pavex/runtime/buffer.h"

namespace Pavex {

// Most rows come from one process: their entries move as they are. The entries of the others
// add up, by a slot for each. Example: rows 0 and 2 of the stack are one row of the whole, row
// 1 is another one of 3 entries that begins at 4: mPlaces is {-1, 4, -3} if row 0 has 2
// entries, and mSlots lists the places of those of row 0, then of those of row 2.
template <typename I>
struct MergeMap {
  Buffer<I> mOffsets;  // of the rows of the stack
  Buffer<I> mPlaces;   // where a row begins in the whole; or -1 minus where its slots begin
  Buffer<I> mSlots;    // for each entry of a row that adds: its place in the whole
  Buffer<I> mSums;     // begin and length of each row of the whole that is a sum
};

}  // namespace Pavex
