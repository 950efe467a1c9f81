// Puts the columns of a compressed matrix together, row after row.

#pragma once

#include "pavex/runtime/buffer.h"
#include "pavex/runtime/memory_pool.h"

#include <algorithm>
#include <cstdint>

namespace Pavex {

// Writes each column of a row once, and knows where. For each row: Add all columns, Close, and
// then ask PlaceOf for any of them. Takes one index for each column of a range, which Prepare
// fills once; no row clears it. Example: the columns 5 2 5 become 2 5 when sorted, and
// PlaceOf(5) is 1 more than where the row begins.
template <typename I>
class RowMerger {
 public:
  // Columns are `first` to `first` + `count` - 1. `cols` has room for the columns of all rows
  // and belongs to the caller.
  PavexStatus Prepare(MemoryPool& pool, std::int64_t first, std::int64_t count, bool sort,
                      I* cols) {
    PavexStatus const status = pool.Get(mPlaces, count);
    if (status != STATUS_OK) return status;
    std::fill_n(mPlaces.mData, count, I{-1});
    mFirst = static_cast<I>(first);
    mSort = sort;
    mCols = cols;
    return STATUS_OK;
  }

  // Adds a column to the open row, unless the row has it.
  void Add(I col) {
    I& place = mPlaces.mData[col - mFirst];
    if (place >= mBegin) return;
    mAscends = mAscends && (mEnd == mBegin || mCols[mEnd - 1] < col);
    place = mEnd;
    mCols[mEnd++] = col;
  }

  // Adds `count` different columns to the open row, which has none, and closes it. PlaceOf does
  // not know them: their places follow each other.
  void AddWholeRow(I const* cols, std::int64_t count) {
    std::copy_n(cols, count, mCols + mEnd);
    mEnd = static_cast<I>(mEnd + count);
    mBegin = mEnd;
  }

  // Sorts the open row if asked to, and opens the next one.
  void Close() {
    if (mSort && !mAscends) {
      std::sort(mCols + mBegin, mCols + mEnd);
      for (I at = mBegin; at < mEnd; ++at)
        mPlaces.mData[mCols[at] - mFirst] = at;
    }
    mAscends = true;
    mBegin = mEnd;
  }

  // The place of a column of the row that was closed last.
  I PlaceOf(I col) const { return mPlaces.mData[col - mFirst]; }

  // Columns of all rows so far.
  I End() const { return mEnd; }

 private:
  Buffer<I> mPlaces;  // where a column was last placed; a place before mBegin is of another row
  I* mCols = nullptr;
  I mFirst = 0;
  I mBegin = 0;  // of the open row
  I mEnd = 0;
  bool mSort = true;
  bool mAscends = true;  // the open row so far
};

// Copies the `used` elements of `array` into a smaller block, if an eighth or more of its own
// is not used.
template <typename I>
PavexStatus Shrink(MemoryPool& pool, std::int64_t used, Buffer<I>& array) {
  array.mSize = used;
  if (array.mCapacity - used < array.mCapacity / 8) return STATUS_OK;
  Buffer<I> exact;
  PavexStatus const status = pool.Get(exact, used);
  if (status != STATUS_OK) return status;
  std::copy_n(array.mData, used, exact.mData);
  array.Swap(exact);
  return STATUS_OK;
}

// Turns counts in elements 1 to `count` into offsets, with 0 in element 0.
template <typename I>
void SumCounts(I* offsets, std::int64_t count) {
  offsets[0] = 0;
  for (std::int64_t k = 0; k < count; ++k)
    offsets[k + 1] = static_cast<I>(offsets[k + 1] + offsets[k]);
}

}  // namespace Pavex
