// Puts the columns of a compressed matrix together, row after row.

#pragma once

#include "pavex/runtime/buffer.h"
#include "pavex/runtime/memory_pool.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <utility>

namespace Pavex {

// Writes each column of a row once, and knows where. For each row: Add all columns, Close, and
// then ask PlacesOf for all of them in the same order. Example: the columns 5 2 5 become 2 5
// when sorted, and PlacesOf gives 5 1 more than where the row begins.
//
// It takes memory for one index for each column of a range. Prepare fills that once, and no row
// clears it.
//
// A row often has the columns of the row before, shifted: always in a regular mesh, and by 0
// where several unknowns belong to one node. Such a row is neither merged nor sorted again.
template <typename I>
class RowMerger {
 public:
  RowMerger() = default;
  RowMerger(RowMerger const&) = delete;
  RowMerger& operator=(RowMerger const&) = delete;

  // Columns are `first` to `first` + `count` - 1. `cols` has room for all columns that are ever
  // added, repeated ones included, and belongs to the caller.
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

  // Adds `count` columns to the open row. Compares them with the row before while it keeps
  // them.
  void Add(I const* cols, std::int64_t count) {
    if (mIsLong || mAdded + count > kShort) return AddToLongRow(cols, count);
    if (mAdded == 0 && count > 0) mShift = static_cast<I>(cols[0] - mEarlier[0]);
    I* const __restrict row = mRow + mAdded;
    I const* const earlier = mEarlier + mAdded;
    I const shift = mShift;
    I differs = mDiffers;
    for (std::int64_t k = 0; k < count; ++k) {
      differs = static_cast<I>(differs | ((cols[k] - earlier[k]) ^ shift));
      row[k] = cols[k];
    }
    mDiffers = differs;
    mAdded += count;
  }

  // Adds `count` columns of rows without repeated ones, while the open row has none, and closes
  // them. PlacesOf does not know them: their places follow each other.
  void AddWholeRows(I const* cols, std::int64_t count) {
    std::copy_n(cols, count, mCols + mEnd);
    mEnd = static_cast<I>(mEnd + count);
    mBegin = mEnd;
  }

  // Sorts the open row if asked to, and opens the next one.
  void Close() {
    if (mAdded == 0) return;
    if (!mIsLong && mDiffers == 0 && mAdded == mEarlierAdded)
      RepeatRow();
    else
      FinishRow();
    mAsked = 0;
    mBegin = mEnd;
    mAdded = 0;
    mDiffers = 0;
    mIsLong = false;
  }

  // The places of columns of the row that was closed last.
  void PlacesOf(I const* cols, std::int64_t count, I* places) {
    if (mEarlierAdded == kNone) return LookUp(cols, count, places);
    I const* const known = mPlacesInRow + mAsked;
    I const begin = mLast;
    for (std::int64_t k = 0; k < count; ++k)
      places[k] = static_cast<I>(known[k] + begin);
    mAsked += count;
  }

  // The number of columns that all rows have so far.
  I End() const { return mEnd; }

 private:
  static constexpr std::int64_t kShort = 256;    // columns of a row that are kept
  static constexpr std::int64_t kSortable = 64;  // different ones that are sorted by rank
  static constexpr std::int64_t kNone = -1;

  void AddToLongRow(I const* cols, std::int64_t count) {
    if (!mIsLong) Merge(mRow, mAdded);
    mIsLong = true;
    mAdded += count;
    Merge(cols, count);
  }

  // The open row is the row before, shifted.
  void RepeatRow() {
    I const* const earlier = mCols + mLast;
    I* const row = mCols + mBegin;
    I const shift = mShift;
    for (std::int64_t k = 0; k < mLastCount; ++k)
      row[k] = static_cast<I>(earlier[k] + shift);
    mLast = mBegin;
    mEnd = static_cast<I>(mBegin + mLastCount);
    std::swap(mRow, mEarlier);
  }

  void FinishRow() {
    if (!mIsLong) Merge(mRow, mAdded);
    if (mSort && !std::is_sorted(mCols + mBegin, mCols + mEnd)) Sort();
    mLast = mBegin;
    mLastCount = mEnd - mBegin;
    mEarlierAdded = mIsLong ? kNone : mAdded;
    if (mIsLong) return;
    LookUp(mRow, mAdded, mPlacesInRow);
    for (std::int64_t k = 0; k < mAdded; ++k)
      mPlacesInRow[k] = static_cast<I>(mPlacesInRow[k] - mBegin);
    std::swap(mRow, mEarlier);
  }

  // Adds columns to the open row, except those that it has. Takes no branch, which would often
  // be mispredicted: counted from the begin of the row and without a sign, a place of an
  // earlier row is beyond the end. A repeated column is written behind the row, where the next
  // one overwrites it.
  void Merge(I const* cols, std::int64_t count) {
    using U = std::make_unsigned_t<I>;
    I* const places = mPlaces.mData;
    I* const row = mCols + mBegin;
    U const begin = static_cast<U>(mBegin);
    I const first = mFirst;
    U end = static_cast<U>(mEnd) - begin;
    for (std::int64_t k = 0; k < count; ++k) {
      I& place = places[cols[k] - first];
      U const at = std::min(static_cast<U>(static_cast<U>(place) - begin), end);
      row[end] = cols[k];
      place = static_cast<I>(at + begin);
      end += at == end ? 1 : 0;
    }
    mEnd = static_cast<I>(end + begin);
  }

  void LookUp(I const* cols, std::int64_t count, I* places) const {
    I const* const known = mPlaces.mData;
    I const first = mFirst;
    for (std::int64_t k = 0; k < count; ++k)
      places[k] = known[cols[k] - first];
  }

  void Sort() {
    I* const row = mCols + mBegin;
    std::int64_t const count = mEnd - mBegin;
    bool const isNarrow = mPlaces.mSize <= std::numeric_limits<std::int32_t>::max();
    if (count <= kSortable && isNarrow)  // GCOVR_EXCL_BR_LINE: wide ranges take 16 GB
      SortByRank(row, count);
    else
      std::sort(row, row + count);
    for (std::int64_t k = 0; k < count; ++k)
      mPlaces.mData[row[k] - mFirst] = static_cast<I>(mBegin + k);
  }

  // Moves each column behind those that are smaller. Counting them takes more comparisons than
  // a sort, but no branch, and the compiler makes vector instructions of it.
  void SortByRank(I* row, std::int64_t count) const {
    std::int32_t narrow[kSortable];
    std::int64_t const padded = (count + 7) / 8 * 8;
    for (std::int64_t k = 0; k < count; ++k)
      narrow[k] = static_cast<std::int32_t>(row[k] - mFirst);
    std::fill(narrow + count, narrow + padded, std::numeric_limits<std::int32_t>::max());
    for (std::int64_t k = 0; k < count; ++k) {
      std::int32_t smaller = 0;
      for (std::int64_t j = 0; j < padded; ++j)
        smaller += narrow[j] < narrow[k] ? 1 : 0;
      row[smaller] = static_cast<I>(narrow[k] + mFirst);
    }
  }

  Buffer<I> mPlaces;  // where a column was last placed; a place before mBegin is of another row
  I* mCols = nullptr;
  I mFirst = 0;
  I mBegin = 0;  // of the open row
  I mEnd = 0;
  bool mSort = true;

  // The open row. Its columns are kept until it is closed, unless they are more than kShort:
  // those of a long row are merged at once.
  bool mIsLong = false;
  std::int64_t mAdded = 0;  // columns that were added to it
  I mShift = 0;             // its first column minus the first one of the row before
  I mDiffers = 0;           // 0 while all its columns are those of the row before plus mShift

  // The last row that was closed, and what PlacesOf has given of it.
  I mLast = 0;                         // where it begins
  I mLastCount = 0;                    // columns that it has
  std::int64_t mEarlierAdded = kNone;  // columns that were added to it, unless it is long
  std::int64_t mAsked = 0;             // columns

  I mKept[2][kShort] = {};
  I* mRow = mKept[0];
  I* mEarlier = mKept[1];
  I mPlacesInRow[kShort] = {};  // of the columns of mEarlier
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
