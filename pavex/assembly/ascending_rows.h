// Finds out in one pass whether compressed rows can be sent as they are.

#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace Pavex {

// Reads rows of a compressed matrix, a few at a time: first their offsets, then their columns
// without looking where rows begin, and then the two columns where each row begins. So every
// array is read from memory once. No loop has a branch that depends on what it reads, and the
// inner ones have a fixed length: compilers make vector instructions of them. The last of the
// three steps finds its columns in the cache and leaves the memory idle, so the second one asks
// for columns of later rows.
template <typename I>
class AscendingRows {
 public:
  // Compressed rows whose entries lie from the offset `begin` up to `end`, `begin` < `end`.
  // Each column is below `limit`.
  AscendingRows(I const* offsets, I const* cols, I begin, I end, I limit)
      : mOffsets(offsets), mCols(cols), mBegin(begin), mEnd(end), mLimit(limit) {}

  // Whether the columns of the first row with entries ascend. It ends at the offset `end`.
  bool CheckFirst(I end) {
    mSigns = static_cast<I>(mCols[0] | BelowLimit(mCols[mEnd - mBegin - 1]));
    return Descents(static_cast<I>(mBegin + 1), end) == 0;
  }

  // Whether the offsets of the rows `row` to `end` - 1, at least one, do not descend, and the
  // columns of each row ascend. All rows before have been found to, and not all of them are
  // empty. The last row of all is not.
  bool Check(std::int64_t row, std::int64_t end) {
    I const* const offsets = mOffsets + row;
    std::int64_t const rows = end - row;
    if (offsets[rows - 1] >= mEnd || offsets[rows] > mEnd) return false;
    I descents = 0;
    I empty = 0;
    for (std::int64_t r = 0; r < rows; ++r) {
      descents = static_cast<I>(descents + (offsets[r + 1] < offsets[r] ? 1 : 0));
      empty = static_cast<I>(empty + (offsets[r + 1] == offsets[r] ? 1 : 0));
    }
    if (descents != 0) return false;
    descents = Descents(offsets[0], offsets[rows]);
    return descents == (empty == 0 ? DescentsAtStarts<false>(offsets, rows)
                                   : DescentsAtStarts<true>(offsets, rows));
  }

  // Whether the columns of all rows that ascend are in range: the first one of each is at least
  // 0, and the last one is below the limit.
  bool InRange() const { return mSigns >= 0; }

 private:
  using U = std::make_unsigned_t<I>;
  static constexpr std::int64_t kAtOnce = 32;
  static constexpr std::int64_t kPerLine = std::int64_t{64 / sizeof(I)};  // of the cache
  static constexpr std::int64_t kAhead = 128 * kPerLine;

  // Negative for a column at or above the limit. Columns below 0 are not looked at.
  I BelowLimit(I col) const {
    return static_cast<I>(static_cast<U>(mLimit) - 1 - static_cast<U>(col));
  }

  // Asks for the columns that are checked some steps after the kAtOnce ones from `col` on.
  void Prefetch(I const* col) const {
    if (mCols + (mEnd - mBegin) - col < kAhead + kAtOnce) return;
    for (std::int64_t k = 0; k < kAtOnce; k += kPerLine)
      __builtin_prefetch(col + kAhead + k);
  }

  // How many of the entries from the offset `begin` up to `end` have no greater column than the
  // entry before.
  I Descents(I begin, I end) const {
    I const* col = mCols + (begin - mBegin);
    I const* const last = mCols + (end - mBegin);
    I ascents = 0;
    for (; last - col >= kAtOnce; col += kAtOnce) {
      Prefetch(col);
      I some = 0;
      for (std::int64_t k = 0; k < kAtOnce; ++k)
        some = static_cast<I>(some + (col[k] > col[k - 1] ? 1 : 0));
      ascents = static_cast<I>(ascents + some);
    }
    for (; col < last; ++col)
      ascents = static_cast<I>(ascents + (col[0] > col[-1] ? 1 : 0));
    return static_cast<I>(end - begin - ascents);
  }

  // How many rows with entries begin with a column that is not greater than the last one of the
  // row before. An empty row begins where a later one does.
  template <bool kSomeEmpty>
  I DescentsAtStarts(I const* offsets, std::int64_t rows) {
    I descents = 0;
    std::int64_t r = 0;
    for (; rows - r >= kAtOnce; r += kAtOnce)
      descents = static_cast<I>(descents + DescentsAtSome<kSomeEmpty>(offsets + r, kAtOnce));
    return static_cast<I>(descents + DescentsAtSome<kSomeEmpty>(offsets + r, rows - r));
  }

  template <bool kSomeEmpty>
  I DescentsAtSome(I const* offsets, std::int64_t rows) {
    I signs = 0;
    I descents = 0;
    for (std::int64_t r = 0; r < rows; ++r) {
      I const at = static_cast<I>(offsets[r] - mBegin);
      I const first = mCols[at];
      I const last = mCols[at - 1];
      bool const counts = !kSomeEmpty || offsets[r] != offsets[r + 1];
      signs = static_cast<I>(signs | first | BelowLimit(last));
      descents = static_cast<I>(descents + (((first <= last) & counts) ? 1 : 0));
    }
    mSigns = static_cast<I>(mSigns | signs);
    return descents;
  }

  I const* mOffsets;
  I const* mCols;  // the first one is that of the entry at the offset mBegin
  I mBegin;        // any number: an offset alone is not a distance within mCols
  I mEnd;
  I mLimit;
  I mSigns = 0;  // negative if a column is out of range
};

// Whether the offsets of `rows` compressed rows do not descend, their entries can be counted,
// and the columns of each row ascend, from 0 or more to less than `limit`. Reads nothing beyond
// the arrays of rows that are right.
template <typename I>
bool RowsAscend(I const* offsets, std::int64_t rows, I const* cols, I limit) {
  constexpr std::int64_t kRowsAtOnce = 64;  // their columns usually fit into the first cache
  I const begin = offsets[0];
  I const end = offsets[rows];
  std::int64_t first = 0;  // the first row with entries
  while (first < rows && offsets[first + 1] == begin)
    ++first;
  if (first == rows) return true;
  bool const countable = begin >= 0 || end <= begin + std::numeric_limits<I>::max();
  if (end <= begin || !countable) return false;
  while (offsets[rows - 1] == end)
    --rows;
  I const firstEnd = offsets[first + 1];
  if (firstEnd < begin || firstEnd > end) return false;

  AscendingRows<I> ascending(offsets, cols, begin, end, limit);
  if (!ascending.CheckFirst(firstEnd)) return false;
  for (std::int64_t row = first + 1; row < rows; row += kRowsAtOnce)
    if (!ascending.Check(row, std::min(row + kRowsAtOnce, rows))) return false;
  return ascending.InRange();
}

}  // namespace Pavex
