#include "pavex/assembly/piece.h"

#include "pavex/assembly/check.h"
#include "pavex/assembly/row_merger.h"
#include "pavex/runtime/log.h"

#include <algorithm>
#include <cstdint>

namespace Pavex {

namespace {

struct Range {
  std::int64_t mFirst = 0;
  std::int64_t mCount = 0;
};

// The elements lie in this range. `count` is not 0.
template <typename I>
Range RangeOf(I const* elements, std::int64_t count) {
  I least = elements[0];
  I most = elements[0];
  for (std::int64_t k = 1; k < count; ++k) {
    least = std::min(least, elements[k]);
    most = std::max(most, elements[k]);
  }
  return {least, std::int64_t{most} - least + 1};
}

template <typename I>
class PieceBuilder {
 public:
  PieceBuilder(MemoryPool& pool, ContributionPattern<I> const& own, bool sort,
               AssemblyRecord& record, AssemblyPiece<I>& piece)
      : mPool(pool), mOwn(own), mSort(sort), mRecord(record), mPiece(piece) {}

  PavexStatus Build() {
    if (mOwn.mBlocks == 0) return BorrowNothing();
    bool asItIs = false;
    PavexStatus status = FindOutWhetherAsItIs(asItIs);
    if (status != STATUS_OK) return status;
    if (asItIs) return Borrow();
    if (mRecord.mGiven == 0) return BorrowNothing();
    status = FlattenColumns();
    if (status != STATUS_OK) return status;
    return IsCompressed() ? MergeRows() : MergeEntries();
  }

 private:
  bool IsCompressed() const {
    for (int b = 0; b < mOwn.mBlocks; ++b)
      if (!mOwn.mBlock[b].mCompressed) return false;
    return true;
  }

  // A list that is a band counts as one.
  void DescribeOwnRows(std::int64_t nnz) {
    mRecord.mRows = mOwn.mRows;
    mRecord.mNnz = nnz;
    mRecord.mBegin = mOwn.mBegin;
    if (!mOwn.mListed || mOwn.mRows == 0) return;
    I const* const list = mOwn.mRowList;
    bool band = true;
    for (std::int64_t i = 1; i < mOwn.mRows && band; ++i)
      band = list[i] == list[i - 1] + 1;
    mRecord.mBegin = band ? std::int64_t{list[0]} : AssemblyRecord::kList;
  }

  // A process without entries sends no rows.
  PavexStatus BorrowNothing() {
    mRecord.mRows = mRecord.mNnz = mRecord.mBegin = 0;
    return STATUS_OK;
  }

  PavexStatus Borrow() {
    BlockPattern<I> const& block = mOwn.mBlock[0];
    if (mRecord.mGiven == 0) return BorrowNothing();
    mPiece.mOffsets.Borrow(const_cast<I*>(block.mOffsets), mOwn.mRows + 1);
    mPiece.mCols.Borrow(const_cast<I*>(block.mColIdx), mRecord.mGiven);
    DescribeOwnRows(mRecord.mGiven);
    return STATUS_OK;
  }

  // Whether the columns of every row ascend. Columns that do not are counted everywhere first,
  // which takes no branch; those between two rows do not count.
  bool RowsAscend(BlockPattern<I> const& block) const {
    I const* const cols = block.mColIdx;
    I descents = 0;
    for (std::int64_t k = 1; k < mRecord.mGiven; ++k)
      descents = static_cast<I>(descents + (cols[k] <= cols[k - 1] ? 1 : 0));
    for (std::int64_t row = 1; row < mOwn.mRows; ++row) {
      std::int64_t const at = block.mOffsets[row] - block.mOffsets[0];
      bool const filled = block.mOffsets[row + 1] > block.mOffsets[row];
      if (at > 0 && filled && cols[at] <= cols[at - 1]) --descents;
    }
    return descents == 0;
  }

  PavexStatus FindOutWhetherAsItIs(bool& asItIs) {
    BlockPattern<I> const& block = mOwn.mBlock[0];
    asItIs = mOwn.mBlocks == 1 && block.mCompressed && !block.mMapped;
    if (!asItIs || mRecord.mGiven == 0 || RowsAscend(block)) return STATUS_OK;
    asItIs = !mSort;
    return mSort ? STATUS_OK : FindRepeats(block, asItIs);
  }

  // Clears `none` if a row has a column twice.
  PavexStatus FindRepeats(BlockPattern<I> const& block, bool& none) {
    Range const range = RangeOf(block.mColIdx, mRecord.mGiven);
    Buffer<I> lastRow;
    PavexStatus const status = Log::Report(mPool.Get(lastRow, range.mCount));
    if (status != STATUS_OK) return status;
    std::fill_n(lastRow.mData, range.mCount, I{-1});
    I const* col = block.mColIdx;
    for (std::int64_t row = 0; row < mOwn.mRows && none; ++row) {
      I const* const end = block.mColIdx + (block.mOffsets[row + 1] - block.mOffsets[0]);
      for (; col < end; ++col) {
        I& last = lastRow.mData[*col - range.mFirst];
        none = none && last != row;
        last = static_cast<I>(row);
      }
    }
    return STATUS_OK;
  }

  // The global columns of all blocks, one block behind the other.
  PavexStatus FlattenColumns() {
    BlockPattern<I> const& first = mOwn.mBlock[0];
    if (mOwn.mBlocks == 1 && !first.mMapped) {
      mCols.Borrow(const_cast<I*>(first.mColIdx), mRecord.mGiven);
      return STATUS_OK;
    }
    PavexStatus const status = Log::Report(mPool.Get(mCols, mRecord.mGiven));
    if (status != STATUS_OK) return status;
    I* out = mCols.mData;
    for (int b = 0; b < mOwn.mBlocks; ++b) {
      BlockPattern<I> const& block = mOwn.mBlock[b];
      std::int64_t const nnz = EntriesOf(mOwn, b);
      if (block.mMapped)
        out = std::transform(block.mColIdx, block.mColIdx + nnz, out,
                             [&block](I col) { return block.mColMap[col]; });
      else
        out = std::copy_n(block.mColIdx, nnz, out);
    }
    return STATUS_OK;
  }

  // Room for `rows` rows, and a merger of the columns.
  PavexStatus PrepareMerge(RowMerger<I>& merger) {
    Range const range = RangeOf(mCols.mData, mRecord.mGiven);
    PavexStatus status = Log::Report(mPool.Get(mPiece.mSlots, mRecord.mGiven));
    if (status == STATUS_OK) status = Log::Report(mPool.Get(mPiece.mCols, mRecord.mGiven));
    if (status != STATUS_OK) return status;
    return Log::Report(
        merger.Prepare(mPool, range.mFirst, range.mCount, mSort, mPiece.mCols.mData));
  }

  // Merges the rows that the blocks have in common.
  PavexStatus MergeRows() {
    RowMerger<I> merger;
    PavexStatus status = Log::Report(mPool.Get(mPiece.mOffsets, mOwn.mRows + 1));
    if (status == STATUS_OK) status = PrepareMerge(merger);
    if (status != STATUS_OK) return status;
    std::int64_t start[2] = {0, mOwn.mBlocks > 1 ? EntriesOf(mOwn, 0) : 0};
    mPiece.mOffsets.mData[0] = 0;
    for (std::int64_t row = 0; row < mOwn.mRows; ++row) {
      std::int64_t end[2] = {start[0], start[1]};
      for (int b = 0; b < mOwn.mBlocks; ++b) {
        I const* const offset = mOwn.mBlock[b].mOffsets + row;
        end[b] += offset[1] - offset[0];
        for (std::int64_t k = start[b]; k < end[b]; ++k)
          merger.Add(mCols.mData[k]);
      }
      merger.Close();
      mPiece.mOffsets.mData[row + 1] = merger.End();
      for (int b = 0; b < mOwn.mBlocks; ++b) {
        for (; start[b] < end[b]; ++start[b])
          mPiece.mSlots.mData[start[b]] = merger.PlaceOf(mCols.mData[start[b]]);
      }
    }
    mPiece.mCols.mSize = merger.End();
    DescribeOwnRows(merger.End());
    return STATUS_OK;
  }

  // The global rows of all entries, one block behind the other.
  PavexStatus FlattenRows() {
    BlockPattern<I> const& first = mOwn.mBlock[0];
    if (mOwn.mBlocks == 1 && !first.mLocalRows) {
      mRows.Borrow(const_cast<I*>(first.mRowIdx), mRecord.mGiven);
      return STATUS_OK;
    }
    PavexStatus const status = Log::Report(mPool.Get(mRows, mRecord.mGiven));
    if (status != STATUS_OK) return status;
    I* out = mRows.mData;
    for (int b = 0; b < mOwn.mBlocks; ++b) {
      BlockPattern<I> const& block = mOwn.mBlock[b];
      if (block.mCompressed)
        out = RowsOfOffsets(block.mOffsets, out);
      else if (block.mLocalRows)
        out = std::transform(block.mRowIdx, block.mRowIdx + block.mNnz, out,
                             [this](I row) { return static_cast<I>(GlobalRow(mOwn, row)); });
      else
        out = std::copy_n(block.mRowIdx, block.mNnz, out);
    }
    return STATUS_OK;
  }

  I* RowsOfOffsets(I const* offsets, I* out) const {
    for (std::int64_t row = 0; row < mOwn.mRows; ++row)
      out = std::fill_n(out, offsets[row + 1] - offsets[row],
                        static_cast<I>(GlobalRow(mOwn, row)));
    return out;
  }

  // Sorts the entries by rows: counts them, adds up, and places each. Afterwards mOrder lists
  // the entries, and row `first` + i has those from mPiece.mOffsets[i] on.
  PavexStatus SortByRows(Range const& range, Buffer<I>& order) {
    PavexStatus status = Log::Report(mPool.Get(mPiece.mOffsets, range.mCount + 2));
    if (status == STATUS_OK) status = Log::Report(mPool.Get(order, mRecord.mGiven));
    if (status != STATUS_OK) return status;
    // Counted one further: placing then moves each offset to where the row ends, which is where
    // the next one begins.
    I* const next = mPiece.mOffsets.mData + 1;
    I const* const rows = mRows.mData;
    std::fill_n(mPiece.mOffsets.mData, range.mCount + 2, I{0});
    for (std::int64_t k = 0; k < mRecord.mGiven; ++k)
      ++next[rows[k] - range.mFirst + 1];
    SumCounts(next, range.mCount);
    for (std::int64_t k = 0; k < mRecord.mGiven; ++k)
      order.mData[next[rows[k] - range.mFirst]++] = static_cast<I>(k);
    mPiece.mOffsets.mSize = range.mCount + 1;
    return STATUS_OK;
  }

  // Entries in any order become compressed rows.
  PavexStatus MergeEntries() {
    PavexStatus status = FlattenRows();
    if (status != STATUS_OK) return status;
    Range const range = RangeOf(mRows.mData, mRecord.mGiven);
    Buffer<I> order;
    status = SortByRows(range, order);
    mRows = Buffer<I>();
    RowMerger<I> merger;
    if (status == STATUS_OK) status = PrepareMerge(merger);
    if (status != STATUS_OK) return status;
    std::int64_t const filled = MergeSorted(range.mCount, order.mData, merger);
    mPiece.mCols.mSize = merger.End();
    mRecord.mNnz = merger.End();
    mRecord.mBegin = range.mFirst;
    mRecord.mRows = range.mCount;
    return filled < range.mCount / 2 ? LeaveEmptyRowsOut(range, filled) : STATUS_OK;
  }

  // Merges each row of entries that are sorted by rows, and returns how many rows have some.
  std::int64_t MergeSorted(std::int64_t rows, I const* order, RowMerger<I>& merger) {
    std::int64_t filled = 0;
    I* const offsets = mPiece.mOffsets.mData;
    I begin = 0;
    for (std::int64_t row = 0; row < rows; ++row) {
      I const end = offsets[row + 1];
      for (I k = begin; k < end; ++k)
        merger.Add(mCols.mData[order[k]]);
      merger.Close();
      for (I k = begin; k < end; ++k)
        mPiece.mSlots.mData[order[k]] = merger.PlaceOf(mCols.mData[order[k]]);
      filled += end > begin ? 1 : 0;
      begin = end;
      offsets[row + 1] = merger.End();
    }
    return filled;
  }

  PavexStatus LeaveEmptyRowsOut(Range const& range, std::int64_t filled) {
    Buffer<I> offsets;
    PavexStatus status = Log::Report(mPool.Get(offsets, filled + 1));
    if (status == STATUS_OK) status = Log::Report(mPool.Get(mPiece.mTouched, filled));
    if (status != STATUS_OK) return status;
    std::int64_t at = 0;
    I const* const all = mPiece.mOffsets.mData;
    for (std::int64_t row = 0; row < range.mCount; ++row) {
      if (all[row] == all[row + 1]) continue;
      offsets.mData[at] = all[row];
      mPiece.mTouched.mData[at++] = static_cast<I>(range.mFirst + row);
    }
    offsets.mData[filled] = all[range.mCount];
    mPiece.mOffsets.Swap(offsets);
    mRecord.mBegin = AssemblyRecord::kTouched;
    mRecord.mRows = filled;
    return STATUS_OK;
  }

  MemoryPool& mPool;
  ContributionPattern<I> const& mOwn;
  bool const mSort;
  AssemblyRecord& mRecord;
  AssemblyPiece<I>& mPiece;
  Buffer<I> mCols;  // global columns of the given entries
  Buffer<I> mRows;  // and their global rows
};

}  // namespace

template <typename I>
PavexStatus BuildPiece(MemoryPool& pool, ContributionPattern<I> const& own, bool sortColumns,
                       AssemblyRecord& record, AssemblyPiece<I>& piece) {
  return PieceBuilder<I>(pool, own, sortColumns, record, piece).Build();
}

template PavexStatus BuildPiece<int>(MemoryPool&, ContributionPattern<int> const&, bool,
                                     AssemblyRecord&, AssemblyPiece<int>&);
template PavexStatus BuildPiece<long>(MemoryPool&, ContributionPattern<long> const&, bool,
                                      AssemblyRecord&, AssemblyPiece<long>&);

}  // namespace Pavex
