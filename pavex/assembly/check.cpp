#include "pavex/assembly/check.h"

#include "pavex/aggregator/local_info.h"
#include "pavex/assembly/ascending_rows.h"
#include "pavex/assembly/decisions.h"
#include "pavex/runtime/wrapping.h"

#include <algorithm>
#include <limits>
#include <type_traits>

namespace Pavex {

namespace {

template <typename I>
constexpr std::int64_t kMostOf = std::numeric_limits<I>::max();

// Rows or columns of a whole at most. Indices can count from 1, and the bytes of an array with
// two elements more can be counted.
template <typename I>
constexpr std::int64_t kMostLines = std::min(
    kMostOf<I> - 1, std::numeric_limits<std::int64_t>::max() / std::int64_t{sizeof(I)} - 2);

// The first element that is not in 0 to `limit` - 1; `count` if all are. `range` becomes that
// of the elements, unless there are none. One pass without a branch finds out whether to look.
template <typename I>
std::int64_t FindOutside(I const* elements, std::int64_t count, std::int64_t limit,
                         Range& range) {
  range = Range();
  if (count == 0) return count;
  range = RangeOf(elements, count);
  if (range.mFirst >= 0 && range.mLast < limit) return count;
  return std::find_if(elements, elements + count,
                      [limit](I element) { return element < 0 || element >= limit; }) -
         elements;
}

template <typename I>
void CheckRequest(AssemblyRequest const& request, int processes, AssemblyRecord& record) {
  std::int64_t const rows = request.mRows;
  std::int64_t const cols = request.mCols;
  if (rows < 0 || cols < 0 || rows > kMostLines<I> || cols > kMostLines<I>)
    record.Note(AssemblyFlaw::BAD_SHAPE, rows, cols, kMostLines<I>);
  int const receiver = request.mReceiver;
  if (receiver != kEverybody && (receiver < 0 || receiver >= processes))
    record.Note(AssemblyFlaw::BAD_RECEIVER, 0, receiver, processes);
  if (request.mBase != 0 && request.mBase != 1)
    record.Note(AssemblyFlaw::BAD_BASE, 0, request.mBase, 2);
}

template <typename I>
void CheckRows(ContributionPattern<I> const& own, std::int64_t wholeRows, std::int64_t most,
               AssemblyRecord& record) {
  if (own.mRows < 0) return record.Note(AssemblyFlaw::NEGATIVE_COUNT, 0, own.mRows, 0);
  if (!own.mListed) {
    bool const inside =
        own.mBegin >= 0 && own.mBegin <= wholeRows && own.mRows <= wholeRows - own.mBegin;
    if (!inside && own.mRows > 0)
      record.Note(AssemblyFlaw::BAND_OUTSIDE, own.mBegin,
                  WrappingAdd(own.mBegin, own.mRows - 1), wholeRows);
    return;
  }
  if (own.mRowList == nullptr && own.mRows > 0)
    return record.NoteMissing(AssemblyArray::ROW_LIST);
  if (own.mRows > most)  // refused before the list is read
    return record.Note(AssemblyFlaw::TOO_MANY_IN_ALL, 0, own.mRows, 0);
  Range range;
  std::int64_t const at = FindOutside(own.mRowList, own.mRows, wholeRows, range);
  if (at < own.mRows)
    record.Note(AssemblyFlaw::ROW_OUTSIDE, at, std::int64_t{own.mRowList[at]}, wholeRows);
}

template <typename I>
void CheckOffsets(ContributionPattern<I> const& own, I const* offsets, AssemblyRecord& record) {
  if (own.mRows == 0) return;
  if (offsets == nullptr) return record.NoteMissing(AssemblyArray::OFFSETS);
  bool descends = false;  // found without a branch before it is looked for
  for (std::int64_t row = 0; row < own.mRows; ++row)
    descends |= offsets[row + 1] < offsets[row];
  if (!descends) return;
  std::int64_t const behind = std::is_sorted_until(offsets, offsets + own.mRows + 1) - offsets;
  record.Note(AssemblyFlaw::OFFSETS_DESCEND, GlobalRow(own, behind - 1),
              WrappingSub(std::int64_t{offsets[behind]}, std::int64_t{offsets[behind - 1]}), 0);
}

template <typename I>
void CheckEntryRows(ContributionPattern<I> const& own, BlockPattern<I> const& block,
                    std::int64_t wholeRows, AssemblyRecord& record, Range& range) {
  if (block.mNnz == 0) return;
  if (block.mRowIdx == nullptr) return record.NoteMissing(AssemblyArray::ROWS);
  std::int64_t const limit = block.mLocalRows ? own.mRows : wholeRows;
  std::int64_t const at = FindOutside(block.mRowIdx, block.mNnz, limit, range);
  if (at < block.mNnz)
    record.Note(AssemblyFlaw::ENTRY_OUTSIDE, at, std::int64_t{block.mRowIdx[at]}, limit);
}

// The row of the whole in which entry `at` lies.
template <typename I>
std::int64_t RowOfEntry(ContributionPattern<I> const& own, BlockPattern<I> const& block,
                        std::int64_t at) {
  if (!block.mCompressed) {
    std::int64_t const row = block.mRowIdx[at];
    return block.mLocalRows ? GlobalRow(own, row) : row;
  }
  I const offset = static_cast<I>(block.mOffsets[0] + at);
  I const* const behind =
      std::upper_bound(block.mOffsets, block.mOffsets + own.mRows + 1, offset);
  return GlobalRow(own, behind - block.mOffsets - 1);
}

template <typename I>
void CheckColumns(ContributionPattern<I> const& own, BlockPattern<I> const& block,
                  std::int64_t nnz, std::int64_t wholeCols, AssemblyRecord& record,
                  Range& range) {
  if (block.mMapped) {
    if (block.mColumns < 0)
      return record.Note(AssemblyFlaw::NEGATIVE_COUNT, 0, block.mColumns, 0);
    if (block.mColMap == nullptr && block.mColumns > 0)
      return record.NoteMissing(AssemblyArray::MAP);
    Range ofMap;
    std::int64_t const at = FindOutside(block.mColMap, block.mColumns, wholeCols, ofMap);
    if (at < block.mColumns)
      return record.Note(AssemblyFlaw::MAP_OUTSIDE, at, std::int64_t{block.mColMap[at]},
                         wholeCols);
  }
  if (nnz == 0) return;
  if (block.mColIdx == nullptr) return record.NoteMissing(AssemblyArray::COLUMNS);
  std::int64_t const limit = block.mMapped ? block.mColumns : wholeCols;
  std::int64_t const at = FindOutside(block.mColIdx, nnz, limit, range);
  if (at < nnz)
    record.Note(AssemblyFlaw::COLUMN_OUTSIDE, RowOfEntry(own, block, at),
                std::int64_t{block.mColIdx[at]}, limit);
}

// Whether a block can be sent as it is. If not, it may still be right.
template <typename I>
bool Ascends(ContributionPattern<I> const& own, BlockPattern<I> const& block,
             std::int64_t wholeCols) {
  bool const candidate = own.mBlocks == 1 && own.mRows > 0 && block.mCompressed &&
                         !block.mMapped && block.mOffsets != nullptr &&
                         block.mColIdx != nullptr;
  return candidate &&
         RowsAscend(block.mOffsets, own.mRows, block.mColIdx, static_cast<I>(wholeCols));
}

template <typename I>
void CheckBlock(ContributionPattern<I> const& own, int at, bool hasValues,
                AssemblyRequest const& request, AssemblyRecord& record, CheckFindings& found) {
  BlockPattern<I> const& block = own.mBlock[at];
  found.mAscends = Ascends(own, block, request.mCols);
  if (block.mCompressed && !found.mAscends) CheckOffsets(own, block.mOffsets, record);
  if (!record.Flawless()) return;
  std::int64_t const nnz = EntriesOf(own, at);
  record.mGiven = WrappingAdd(record.mGiven, nnz);
  if (nnz < 0 || record.mGiven < 0)
    return record.Note(AssemblyFlaw::NEGATIVE_COUNT, 0, std::min(nnz, record.mGiven), 0);
  if (record.mGiven > kMostOf<I>)  // refused before the entries are read
    return record.Note(AssemblyFlaw::TOO_MANY_ENTRIES, 0, record.mGiven, 0);
  if (!block.mCompressed) CheckEntryRows(own, block, request.mRows, record, found.mRows);
  if (!record.Flawless()) return;
  if (!found.mAscends) CheckColumns(own, block, nnz, request.mCols, record, found.mCols);
  if (nnz > 0 && request.mWithValues && !hasValues) record.NoteMissing(AssemblyArray::VALUES);
}

}  // namespace

template <typename I>
std::int64_t EntriesOf(ContributionPattern<I> const& own, int block) {
  BlockPattern<I> const& pattern = own.mBlock[block];
  if (!pattern.mCompressed) return pattern.mNnz;
  if (own.mRows == 0) return 0;
  return WrappingSub(std::int64_t{pattern.mOffsets[own.mRows]},
                     std::int64_t{pattern.mOffsets[0]});
}

template std::int64_t EntriesOf<int>(ContributionPattern<int> const&, int);
template std::int64_t EntriesOf<long>(ContributionPattern<long> const&, int);

template <typename I>
CheckFindings CheckContribution(ContributionPattern<I> const& own, bool const* hasValues,
                                AssemblyRequest const& request, int processes,
                                AssemblyRecord& record) {
  record.mWholeRows = request.mRows;
  record.mWholeCols = request.mCols;
  record.mReceiver = request.mReceiver;
  record.mWithValues = request.mWithValues ? 1 : 0;
  record.mSortColumns = request.mSortColumns ? 1 : 0;
  record.mBase = request.mBase;
  CheckRequest<I>(request, processes, record);
  if (own.mBlocks > own.kMostBlocks)
    record.Note(AssemblyFlaw::TOO_MANY_BLOCKS, 0, own.mBlocks, own.kMostBlocks);
  if (own.mMapFirst) record.Note(AssemblyFlaw::MAP_FIRST, 0, 0, 0);
  std::int64_t const most = processes == 1 ? kMostOf<I> : kMostCounted;
  if (record.Flawless()) CheckRows(own, request.mRows, most, record);
  CheckFindings found;
  for (int at = 0; at < own.mBlocks && record.Flawless(); ++at) {
    CheckBlock(own, at, hasValues[at], request, record, found);
    if (own.mBlocks > 1) record.NotePart(PartOfBlock(at));
  }
  record.mOwnBegin = own.mListed ? AssemblyRecord::kList : own.mBegin;
  record.mOwnRows = own.mRows;
  return found;
}

template CheckFindings CheckContribution<int>(ContributionPattern<int> const&, bool const*,
                                              AssemblyRequest const&, int, AssemblyRecord&);
template CheckFindings CheckContribution<long>(ContributionPattern<long> const&, bool const*,
                                               AssemblyRequest const&, int, AssemblyRecord&);

}  // namespace Pavex
