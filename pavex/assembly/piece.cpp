#include "pavex/assembly/piece.h"

#include "pavex/assembly/check.h"
#include "pavex/assembly/row_merger.h"
#include "pavex/runtime/log.h"

#include <algorithm>
#include <cstdint>

namespace Pavex {

namespace {

template <typename I>
class PieceBuilder {
 public:
  PieceBuilder(MemoryPool& pool, ContributionPattern<I> const& own, CheckFindings const& found,
               bool sort, AssemblyRecord& record, AssemblyPiece<I>& piece)
      : mPool(pool), mOwn(own), mFound(found), mSort(sort), mRecord(record), mPiece(piece) {}

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
  static constexpr std::int64_t kRunsAhead = 24;

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
    if (!mOwn.mListed) return;
    I const* const list = mOwn.mRowList;
    bool band = true;
    for (std::int64_t i = 1; i < mOwn.mRows && band; ++i)
      band = list[i] == list[i - 1] + 1;
    mRecord.mBegin = band ? std::int64_t{list[0]} : AssemblyRecord::kList;
  }

  // Takes an array of `count` elements from the pool, and logs a failure.
  template <typename E>
  PavexStatus Take(Buffer<E>& buffer, std::int64_t count) {
    PavexStatus const status = mPool.Get(buffer, count);
    if (status != STATUS_OK) static_cast<void>(Log::Report(status));
    return status;
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

  PavexStatus FindOutWhetherAsItIs(bool& asItIs) {
    BlockPattern<I> const& block = mOwn.mBlock[0];
    asItIs = mOwn.mBlocks == 1 && block.mCompressed && !block.mMapped;
    if (!asItIs || mRecord.mGiven == 0 || mFound.mAscends) return STATUS_OK;
    asItIs = !mSort;
    return mSort ? STATUS_OK : FindRepeats(block, asItIs);
  }

  // Clears `none` if a row has a column twice.
  PavexStatus FindRepeats(BlockPattern<I> const& block, bool& none) {
    Range const range = RangeOf(block.mColIdx, mRecord.mGiven);
    Buffer<I> lastRow;
    PavexStatus const status = Take(lastRow, range.Count());
    if (status != STATUS_OK) return status;
    std::fill_n(lastRow.mData, range.Count(), I{-1});
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
    PavexStatus const status = Take(mCols, mRecord.mGiven);
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
    bool const asPassed = mCols.mAllocator == nullptr;
    Range const range = asPassed ? mFound.mCols : RangeOf(mCols.mData, mRecord.mGiven);
    PavexStatus status = Take(mPiece.mSlots, mRecord.mGiven);
    if (status == STATUS_OK) status = Take(mPiece.mCols, mRecord.mGiven);
    if (status != STATUS_OK) return status;
    return Log::Report(
        merger.Prepare(mPool, range.mFirst, range.Count(), mSort, mPiece.mCols.mData));
  }

  // Merges the rows that the blocks have in common.
  PavexStatus MergeRows() {
    RowMerger<I> merger;
    PavexStatus status = Take(mPiece.mOffsets, mOwn.mRows + 1);
    if (status == STATUS_OK) status = PrepareMerge(merger);
    if (status != STATUS_OK) return status;
    std::int64_t start[2] = {0, mOwn.mBlocks > 1 ? EntriesOf(mOwn, 0) : 0};
    mPiece.mOffsets.mData[0] = 0;
    for (std::int64_t row = 0; row < mOwn.mRows; ++row) {
      std::int64_t count[2] = {0, 0};
      for (int b = 0; b < mOwn.mBlocks; ++b) {
        I const* const offset = mOwn.mBlock[b].mOffsets + row;
        count[b] = offset[1] - offset[0];
        merger.Add(mCols.mData + start[b], count[b]);
      }
      merger.Close();
      mPiece.mOffsets.mData[row + 1] = merger.End();
      for (int b = 0; b < mOwn.mBlocks; ++b) {
        merger.PlacesOf(mCols.mData + start[b], count[b], mPiece.mSlots.mData + start[b]);
        start[b] += count[b];
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
    PavexStatus const status = Take(mRows, mRecord.mGiven);
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

  // Finds the runs of entries in one row: most codes pass the entries of an element row by row.
  PavexStatus FindRuns() {
    mRuns = CountChanges(1) + 1;
    PavexStatus const status = Take(mStarts, mRuns + 1);
    if (status != STATUS_OK) return status;
    std::int64_t const length = mRecord.mGiven / mRuns;
    if (length * mRuns == mRecord.mGiven && CountChanges(length) == mRuns - 1)
      FillEqualRuns(length);
    else
      FillRuns();
    return STATUS_OK;
  }

  // How often the row changes after a multiple of `length` entries.
  std::int64_t CountChanges(std::int64_t length) const {
    I const* const rows = mRows.mData;
    I changes = 0;
    for (std::int64_t k = length; k < mRecord.mGiven; k += length)
      changes = static_cast<I>(changes + (rows[k] != rows[k - 1] ? 1 : 0));
    return changes;
  }

  // Where elements of one kind follow each other, all runs have one length.
  void FillEqualRuns(std::int64_t length) {
    for (std::int64_t run = 0; run <= mRuns; ++run)
      mStarts.mData[run] = static_cast<I>(run * length);
  }

  void FillRuns() {
    I const* const rows = mRows.mData;
    I* start = mStarts.mData;
    *start = 0;
    for (std::int64_t k = 1; k < mRecord.mGiven; ++k) {
      start[1] = static_cast<I>(k);
      start += rows[k] != rows[k - 1] ? 1 : 0;
    }
    start[1] = static_cast<I>(mRecord.mGiven);
  }

  // Sorts the runs by rows: counts them, adds up, and places each. Afterwards `order` lists the
  // runs, and those of row `first` + i end at mPiece.mOffsets[i + 1].
  PavexStatus SortByRows(Range const& range, Buffer<I>& order) {
    PavexStatus status = Take(mPiece.mOffsets, range.Count() + 2);
    if (status == STATUS_OK) status = Take(order, mRuns);
    if (status != STATUS_OK) return status;
    // Counted one further: placing then moves each offset to where the row ends, which is where
    // the next one begins.
    I* const next = mPiece.mOffsets.mData + 1;
    auto const rowOf = [this, &range](std::int64_t run) {
      return mRows.mData[mStarts.mData[run]] - range.mFirst;
    };
    std::fill_n(mPiece.mOffsets.mData, range.Count() + 2, I{0});
    for (std::int64_t run = 0; run < mRuns; ++run)
      ++next[rowOf(run) + 1];
    SumCounts(next, range.Count());
    for (std::int64_t run = 0; run < mRuns; ++run)
      order.mData[next[rowOf(run)]++] = static_cast<I>(run);
    mPiece.mOffsets.mSize = range.Count() + 1;
    return STATUS_OK;
  }

  // Entries in any order become compressed rows.
  PavexStatus MergeEntries() {
    PavexStatus status = FlattenRows();
    if (status == STATUS_OK) status = FindRuns();
    if (status != STATUS_OK) return status;
    bool const asPassed = mRows.mAllocator == nullptr;
    Range const range = asPassed ? mFound.mRows : RangeOf(mRows.mData, mRecord.mGiven);
    Buffer<I> order;
    status = SortByRows(range, order);
    mRows = Buffer<I>();
    RowMerger<I> merger;
    if (status == STATUS_OK) status = PrepareMerge(merger);
    if (status != STATUS_OK) return status;
    std::int64_t const filled = MergeSorted(range.Count(), order.mData, merger);
    mPiece.mCols.mSize = merger.End();
    mRecord.mNnz = merger.End();
    mRecord.mBegin = range.mFirst;
    mRecord.mRows = range.Count();
    return filled < range.Count() / 2 ? LeaveEmptyRowsOut(range, filled) : STATUS_OK;
  }

  // The runs of a row lie anywhere in the arrays of the caller. Those of a later row are asked
  // for early, at both ends: a run of an element often lies in two lines of the cache.
  void Prefetch(I const* start) const {
    I const* const first = mCols.mData + start[0];
    I* const slot = mPiece.mSlots.mData + start[0];
    I const last = static_cast<I>(start[1] - start[0] - 1);
    __builtin_prefetch(first);
    __builtin_prefetch(first + last);
    __builtin_prefetch(slot, 1);
    __builtin_prefetch(slot + last, 1);
  }

  // Merges each row of runs that are sorted by rows, and returns how many rows have some.
  std::int64_t MergeSorted(std::int64_t rows, I const* order, RowMerger<I>& merger) {
    std::int64_t filled = 0;
    I const* const starts = mStarts.mData;
    I* const offsets = mPiece.mOffsets.mData;
    I begin = 0;
    for (std::int64_t row = 0; row < rows; ++row) {
      I const end = offsets[row + 1];
      for (I k = begin; k < end; ++k) {
        Prefetch(starts + order[std::min(std::int64_t{k} + kRunsAhead, mRuns - 1)]);
        I const start = starts[order[k]];
        merger.Add(mCols.mData + start, starts[order[k] + 1] - start);
      }
      merger.Close();
      for (I k = begin; k < end; ++k) {
        I const start = starts[order[k]];
        merger.PlacesOf(mCols.mData + start, starts[order[k] + 1] - start,
                        mPiece.mSlots.mData + start);
      }
      filled += end > begin ? 1 : 0;
      begin = end;
      offsets[row + 1] = merger.End();
    }
    return filled;
  }

  PavexStatus LeaveEmptyRowsOut(Range const& range, std::int64_t filled) {
    Buffer<I> offsets;
    PavexStatus status = Take(offsets, filled + 1);
    if (status == STATUS_OK) status = Take(mPiece.mTouched, filled);
    if (status != STATUS_OK) return status;
    std::int64_t at = 0;
    I const* const all = mPiece.mOffsets.mData;
    for (std::int64_t row = 0; row < range.Count(); ++row) {
      if (all[row] == all[row + 1]) continue;
      offsets.mData[at] = all[row];
      mPiece.mTouched.mData[at++] = static_cast<I>(range.mFirst + row);
    }
    offsets.mData[filled] = all[range.Count()];
    mPiece.mOffsets.Swap(offsets);
    mRecord.mBegin = AssemblyRecord::kTouched;
    mRecord.mRows = filled;
    return STATUS_OK;
  }

  MemoryPool& mPool;
  ContributionPattern<I> const& mOwn;
  CheckFindings const& mFound;
  bool const mSort;
  AssemblyRecord& mRecord;
  AssemblyPiece<I>& mPiece;
  Buffer<I> mCols;    // global columns of the given entries
  Buffer<I> mRows;    // and their global rows
  Buffer<I> mStarts;  // where each run of entries in one row begins
  std::int64_t mRuns = 0;
};

}  // namespace

template <typename I>
PavexStatus BuildPiece(MemoryPool& pool, ContributionPattern<I> const& own,
                       CheckFindings const& found, bool sortColumns, AssemblyRecord& record,
                       AssemblyPiece<I>& piece) {
  return PieceBuilder<I>(pool, own, found, sortColumns, record, piece).Build();
}

template PavexStatus BuildPiece<int>(MemoryPool&, ContributionPattern<int> const&,
                                     CheckFindings const&, bool, AssemblyRecord&,
                                     AssemblyPiece<int>&);
template PavexStatus BuildPiece<long>(MemoryPool&, ContributionPattern<long> const&,
                                      CheckFindings const&, bool, AssemblyRecord&,
                                      AssemblyPiece<long>&);

}  // namespace Pavex
