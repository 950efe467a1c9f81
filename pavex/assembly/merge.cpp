#include "pavex/assembly/merge.h"

#include "pavex/assembly/row_merger.h"
#include "pavex/runtime/log.h"

#include <algorithm>
#include <numeric>

namespace Pavex {

namespace {

// Rows that a process sends; without entries it sends an empty one.
std::int64_t SentRows(AssemblyRecord const& record) {
  return std::max(record.mRows, std::int64_t{1});
}

// The row of the whole that each row of the stack is; 0 for those of no process.
template <typename I>
void FillRowsOfStack(Buffer<AssemblyRecord> const& records, RowLists<I> const& lists, I* rows) {
  I const* listed = lists.mListed.mData;
  I const* touched = lists.mTouched.mData;
  for (std::int64_t p = 0; p < records.mSize; ++p) {
    AssemblyRecord const& record = records.mData[p];
    if (record.mRows == 0)
      *rows = 0;
    else if (record.mBegin == AssemblyRecord::kList)
      std::copy_n(listed, record.mRows, rows);
    else if (record.mBegin == AssemblyRecord::kTouched)
      std::copy_n(touched, record.mRows, rows);
    else
      std::iota(rows, rows + record.mRows, static_cast<I>(record.mBegin));
    rows += SentRows(record);
    if (record.Listed() != 0) listed += record.Listed();
    if (record.Touched() != 0) touched += record.Touched();
  }
}

// Lists the rows of the stack that have entries, sorted by the row of the whole that each of
// them is. Those that are the same row keep their order.
template <typename I>
struct Sources {
  Buffer<I> mFirst;  // where those of a row begin
  Buffer<I> mRows;   // rows of the stack

  PavexStatus Fill(MemoryPool& pool, Buffer<I> const& rowOf, Buffer<I> const& offsets,
                   std::int64_t rows) {
    PavexStatus status = pool.Get(mFirst, rows + 2);
    if (status == STATUS_OK) status = pool.Get(mRows, rowOf.mSize);
    if (status != STATUS_OK) return status;
    // Each count is one element further on than its row. Placing the rows then moves each begin
    // to where the next row begins.
    I* const next = mFirst.mData + 1;
    std::fill_n(mFirst.mData, rows + 2, I{0});
    auto const filled = [&offsets](std::int64_t s) {
      return offsets.mData[s + 1] != offsets.mData[s];
    };
    for (std::int64_t s = 0; s < rowOf.mSize; ++s)
      if (filled(s)) ++next[rowOf.mData[s] + 1];
    SumCounts(next, rows);
    for (std::int64_t s = 0; s < rowOf.mSize; ++s)
      if (filled(s)) mRows.mData[next[rowOf.mData[s]]++] = static_cast<I>(s);
    return STATUS_OK;
  }

  // The number of rows of the stack that are row `row` of the whole.
  I Count(std::int64_t row) const { return mFirst.mData[row + 1] - mFirst.mData[row]; }
};

// Gives a slot to each entry of those rows of the stack that are added to others. The slots
// have the order of the stack.
template <typename I>
PavexStatus GiveSlots(MemoryPool& pool, AssemblyStack<I> const& stack,
                      Sources<I> const& sources, std::int64_t rows, MergeMap<I>& map) {
  PavexStatus status = pool.Get(map.mPlaces, stack.mRows);
  if (status != STATUS_OK) return status;
  std::fill_n(map.mPlaces.mData, stack.mRows, I{0});
  std::int64_t sums = 0;
  for (std::int64_t row = 0; row < rows; ++row) {
    I const count = sources.Count(row);
    if (count < 2) continue;
    ++sums;
    I const* const first = sources.mRows.mData + sources.mFirst.mData[row];
    for (I k = 0; k < count; ++k)
      map.mPlaces.mData[first[k]] = -1;
  }
  std::int64_t slots = 0;
  for (std::int64_t s = 0; s < stack.mRows; ++s) {
    if (map.mPlaces.mData[s] == 0) continue;
    map.mPlaces.mData[s] = static_cast<I>(-1 - slots);
    slots += stack.mOffsets.mData[s + 1] - stack.mOffsets.mData[s];
  }
  status = pool.Get(map.mSlots, slots);
  return status == STATUS_OK ? pool.Get(map.mSums, 2 * sums) : status;
}

// Merges the rows of the stack that are one row of the whole.
template <typename I>
void MergeRow(AssemblyStack<I> const& stack, I const* source, I const* end,
              RowMerger<I>& merger, MergeMap<I> const& map) {
  I const* const offsets = stack.mOffsets.mData;
  I const* const cols = stack.mCols.mData;
  auto const lengthOf = [offsets](I row) { return offsets[row + 1] - offsets[row]; };
  for (I const* s = source; s != end; ++s)
    merger.Add(cols + offsets[*s], lengthOf(*s));
  merger.Close();
  for (I const* s = source; s != end; ++s)
    merger.PlacesOf(cols + offsets[*s], lengthOf(*s),
                    map.mSlots.mData + (-1 - map.mPlaces.mData[*s]));
}

// Copies rows of the whole, from `row` on, that are one row of the stack each, as far as those
// rows of the stack follow each other. Returns the row after them. `ends`: where each row of
// the whole ends.
template <typename I>
std::int64_t CopyRows(AssemblyStack<I> const& stack, Sources<I> const& sources,
                      std::int64_t row, std::int64_t rows, RowMerger<I>& merger,
                      MergeMap<I> const& map, I* ends) {
  I const* const source = sources.mRows.mData + sources.mFirst.mData[row];
  I const first = *source;
  I const* const offsets = stack.mOffsets.mData + first;
  std::int64_t count = 1;
  while (row + count < rows && sources.Count(row + count) == 1 &&
         source[count] == first + count)
    ++count;
  I const begin = merger.End();
  merger.AddWholeRows(stack.mCols.mData + offsets[0], offsets[count] - offsets[0]);
  for (std::int64_t k = 0; k < count; ++k) {
    map.mPlaces.mData[first + k] = static_cast<I>(begin + (offsets[k] - offsets[0]));
    ends[row + k] = static_cast<I>(begin + (offsets[k + 1] - offsets[0]));
  }
  return row + count;
}

template <typename I>
PavexStatus Merge(MemoryPool& pool, AssemblyStack<I> const& stack, Sources<I> const& sources,
                  AssemblyRequest const& request, Buffer<I>& offsets, Buffer<I>& cols,
                  MergeMap<I>& map) {
  std::int64_t const nnz = stack.mOffsets.mData[stack.mRows];
  RowMerger<I> merger;
  PavexStatus status = GiveSlots(pool, stack, sources, request.mRows, map);
  if (status == STATUS_OK) status = pool.Get(offsets, request.mRows + 1);
  if (status == STATUS_OK) status = pool.Get(cols, nnz);
  if (status == STATUS_OK)
    status = merger.Prepare(pool, 0, request.mCols, request.mSortColumns, cols.mData);
  if (status != STATUS_OK) return status;
  I* sum = map.mSums.mData;
  offsets.mData[0] = 0;
  I* const ends = offsets.mData + 1;
  for (std::int64_t row = 0; row < request.mRows;) {
    I const count = sources.Count(row);
    if (count == 1) {
      row = CopyRows(stack, sources, row, request.mRows, merger, map, ends);
      continue;
    }
    I const* const first = sources.mRows.mData + sources.mFirst.mData[row];
    I const begin = merger.End();
    if (count > 1) {
      MergeRow(stack, first, first + count, merger, map);
      *sum++ = begin;
      *sum++ = static_cast<I>(merger.End() - begin);
    }
    ends[row++] = merger.End();
  }
  return Shrink(pool, merger.End(), cols);
}

}  // namespace

template <typename I>
PavexStatus PlaceBands(MemoryPool& pool, Buffer<AssemblyRecord> const& records,
                       Buffer<int> const& order, std::int64_t rows, AssemblyStack<I>& stack) {
  std::int64_t filled = 0;
  for (std::int64_t p = 0; p < records.mSize; ++p)
    filled += records.mData[p].mRows;
  if (filled == rows) {  // only the rows of processes without any lie behind the last row
    stack.mOffsets.mSize = rows + 1;
    return STATUS_OK;
  }
  Buffer<I> offsets;
  PavexStatus const status = Log::Report(pool.Get(offsets, rows + 1));
  if (status != STATUS_OK) return status;
  I const* next = stack.mOffsets.mData;
  I* out = offsets.mData;
  for (std::int64_t k = 0; k < order.mSize; ++k) {
    AssemblyRecord const& band = records.mData[order.mData[k]];
    if (band.mRows == 0) break;
    out = std::fill_n(out, offsets.mData + band.mBegin - out, *next);
    out = std::copy_n(next, band.mRows, out);
    next += band.mRows;
  }
  std::fill(out, offsets.mData + rows + 1, *next);
  stack.mOffsets.Swap(offsets);
  return STATUS_OK;
}

template <typename I>
PavexStatus MergeStack(MemoryPool& pool, Buffer<AssemblyRecord> const& records,
                       RowLists<I> const& lists, AssemblyRequest const& request,
                       AssemblyStack<I>& stack, Buffer<I>& offsets, Buffer<I>& cols,
                       MergeMap<I>& map) {
  Sources<I> sources;
  {
    Buffer<I> rowOf;
    PavexStatus status = pool.Get(rowOf, stack.mRows);
    if (status != STATUS_OK) return Log::Report(status);
    FillRowsOfStack(records, lists, rowOf.mData);
    status = Log::Report(sources.Fill(pool, rowOf, stack.mOffsets, request.mRows));
    if (status != STATUS_OK) return status;
  }
  PavexStatus const status =
      Log::Report(Merge(pool, stack, sources, request, offsets, cols, map));
  map.mOffsets.Swap(stack.mOffsets);
  stack = AssemblyStack<I>();
  return status;
}

#define PAVEX_INSTANTIATE(I)                                                               \
  template PavexStatus PlaceBands<I>(MemoryPool&, Buffer<AssemblyRecord> const&,           \
                                     Buffer<int> const&, std::int64_t, AssemblyStack<I>&); \
  template PavexStatus MergeStack<I>(MemoryPool&, Buffer<AssemblyRecord> const&,           \
                                     RowLists<I> const&, AssemblyRequest const&,           \
                                     AssemblyStack<I>&, Buffer<I>&, Buffer<I>&, MergeMap<I>&);
PAVEX_INSTANTIATE(int)
PAVEX_INSTANTIATE(long)
#undef PAVEX_INSTANTIATE

}  // namespace Pavex
