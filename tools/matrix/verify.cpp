#include "tools/matrix/verify.h"

#include "pavex/matrix/instances.h"
#include "tools/matrix/piece_values.h"
#include "tools/matrix/verify_rows.h"
#include "tools/source/row_order.h"

#include <algorithm>
#include <complex>
#include <cstdint>
#include <vector>

namespace Pavex::Tool {

namespace {

// Calls use(row, entries of the row in `chunk`: first, last) for the rows [begin, end) of the
// source until it returns a difference. Takes the source in chunks of about a million entries.
template <typename Use>
std::string ForEachRow(Source const& source, long begin, long end, Use const& use) {
  constexpr long kChunkEntries = 1 << 20;
  Extent const& whole = source.Whole();
  long const rowsAtOnce =
      std::max(1L, kChunkEntries * whole.mRows / std::max(1L, whole.mEntries));
  for (long from = begin; from < end; from += rowsAtOnce) {
    long const to = std::min(end, from + rowsAtOnce);
    Triplets const chunk = source.Rows(from, to);
    std::size_t first = 0;
    for (long row = from; row < to; ++row) {
      std::size_t last = first;
      while (last < chunk.Entries() && chunk.mRow[last] == row)
        ++last;
      std::string difference = use(row, chunk, first, last);
      if (!difference.empty()) return difference;
      first = last;
    }
  }
  return "";
}

// The gathered sparse matrix, row by row, in any storage.
template <typename T, typename I>
class SparseRows {
 public:
  SparseRows(Elements<T, I> const& elements, bool withValues)
      : mElements(elements), mWithValues(withValues) {}

  // Whether every entry lies inside the matrix. Call it first: it also prepares the rows.
  std::string FindFault() {
    std::string fault = mElements.mCompressed ? FindFaultInOffsets() : "";
    for (std::size_t k = 0; fault.empty() && k < mElements.mCount; ++k)
      if (!IsInside(mElements.mRow, k, mElements.mRows) ||
          !IsInside(mElements.mCol, k, mElements.mCols))
        fault = "entry " + std::to_string(k) + " lies outside the matrix";
    if (fault.empty() && mElements.mRow != nullptr) Order();
    return fault;
  }

  // Appends the entries of `row`, which grows from call to call.
  void Append(long row, std::vector<Item<T>>& items) {
    if (mElements.mByRows) {
      for (std::size_t k = mElements.LineBegin(row); k < mElements.LineEnd(row); ++k)
        items.push_back({static_cast<long>(mElements.mCol[k]), Value(k)});
      return;
    }
    for (; mNext < mOrder.Size() && mElements.mRow[mOrder[mNext]] == row; ++mNext) {
      std::size_t const k = mOrder[mNext];
      bool const given = mElements.mCol != nullptr;
      items.push_back({given ? static_cast<long>(mElements.mCol[k]) : mColumn[k], Value(k)});
    }
  }

 private:
  static bool IsInside(I const* indices, std::size_t k, long extent) {
    return indices == nullptr || (indices[k] >= 0 && indices[k] < extent);
  }

  std::string FindFaultInOffsets() const {
    if (mElements.mOffsets == nullptr) return "no offsets arrived";
    for (long i = 0; i < mElements.Lines(); ++i)
      if (mElements.mOffsets[i + 1] < mElements.mOffsets[i])
        return "offset " + std::to_string(i + 1) + " is below the one before";
    std::size_t const end = mElements.LineBegin(mElements.Lines());
    if (end != mElements.mCount)
      return "the offsets span " + std::to_string(end) + " entries instead of " +
             std::to_string(mElements.mCount);
    return "";
  }

  void Order() {
    mOrder = OrderByRow(mElements.mCount, mElements.mRows,
                        [this](std::size_t k) { return mElements.mRow[k]; });
    if (mElements.mCol != nullptr) return;
    mColumn.resize(mElements.mCount);
    for (long col = 0; col < mElements.mCols; ++col)
      std::fill(mColumn.begin() + static_cast<long>(mElements.LineBegin(col)),
                mColumn.begin() + static_cast<long>(mElements.LineEnd(col)),
                static_cast<std::int32_t>(col));
  }

  T Value(std::size_t k) const { return mWithValues ? mElements.mValues[k] : T{}; }

  Elements<T, I> mElements;
  bool mWithValues;
  EntryNumbers mOrder;                // the entries by row, if the arrays are not in that order
  std::size_t mNext = 0;              // the first entry of the next row in mOrder
  std::vector<std::int32_t> mColumn;  // column of each entry, if the lines are columns
};

template <typename T, typename I>
std::string FindSparseDifference(Elements<T, I> const& elements, Source const& source,
                                 Expectation const& expected) {
  bool const counts = !expected.mAddsRepeated;  // else the rows are counted one by one
  if (counts && static_cast<long>(elements.mCount) != source.Whole().mEntries)
    return std::to_string(elements.mCount) + " entries instead of " +
           std::to_string(source.Whole().mEntries);
  SparseRows<T, I> rows(elements, expected.mWithValues);
  std::string fault = rows.FindFault();
  if (!fault.empty()) return fault;

  std::vector<Item<T>> wanted;
  std::vector<Item<T>> found;
  auto const compare = [&](long row, Triplets const& chunk, std::size_t first,
                           std::size_t last) {
    wanted.clear();
    found.clear();
    for (std::size_t k = first; k < last; ++k) {
      long const col = chunk.mCol[k];
      T const value = expected.mWithValues ? InputValue<T>(chunk, k) : T{};
      wanted.push_back({col, AfterSteps(value, row, col, expected.mSteps)});
    }
    if (expected.mAddsRepeated) AddRepeated(wanted);
    rows.Append(row, found);
    return FindDifferenceInRow(row, wanted, found);
  };
  return ForEachRow(source, 0, source.Whole().mRows, compare);
}

template <typename T>
std::string FindFaultInGaps(T const* values, long ld, long runs, long length) {
  T const gap = GapValue<T>();
  for (long run = 0; run + 1 < runs; ++run)
    for (long k = length; k < ld; ++k)
      if (CompareBits(values[run * ld + k], gap) != 0)
        return "the gap behind run " + std::to_string(run) + " was written to";
  return "";
}

}  // namespace

template <typename T>
std::string FindDifferenceInBlock(T const* values, DenseLayout const& layout,
                                  Piece const& piece, Source const& source, int steps) {
  std::vector<T> wanted(static_cast<std::size_t>(piece.Cols()));
  auto const compare = [&](long row, Triplets const& chunk, std::size_t first,
                           std::size_t last) -> std::string {
    std::fill(wanted.begin(), wanted.end(), T{});
    for (std::size_t k = first; k < last; ++k) {
      long const col = chunk.mCol[k];
      if (col >= piece.mColBegin && col < piece.mColEnd)
        wanted[static_cast<std::size_t>(col - piece.mColBegin)] += InputValue<T>(chunk, k);
    }
    long const r = row - piece.mRowBegin;
    for (long c = 0; c < piece.Cols(); ++c) {
      long const col = piece.mColBegin + c;
      T const value = AfterSteps(wanted[static_cast<std::size_t>(c)], row, col, steps);
      T const& found = values[layout.At(r, c)];
      if (CompareBits(value, found) != 0)
        return "the element at " + At(row, col) + " is " + InWords(found) + " instead of " +
               InWords(value);
    }
    return "";
  };
  if (piece.Rows() == 0 || piece.Cols() == 0) return "";
  std::string difference = ForEachRow(source, piece.mRowBegin, piece.mRowEnd, compare);
  if (!difference.empty()) return difference;
  return layout.mByRows ? FindFaultInGaps(values, layout.mLd, piece.Rows(), piece.Cols())
                        : FindFaultInGaps(values, layout.mLd, piece.Cols(), piece.Rows());
}

template <typename T, typename I>
std::string FindDifference(MatrixBase const& gathered, Source const& source,
                           Expectation const& expected) {
  Extent const& whole = source.Whole();
  PavexMatrixStore store;
  gathered.Query(store);
  if (store.rows != whole.mRows || store.cols != whole.mCols)
    return std::to_string(store.rows) + " x " + std::to_string(store.cols) + " instead of " +
           std::to_string(whole.mRows) + " x " + std::to_string(whole.mCols);
  if (store.type != StoreTypeOf(expected.mFormat))
    return "store type " + std::to_string(store.type) + " instead of " +
           std::to_string(StoreTypeOf(expected.mFormat));
  Elements<T, I> const elements(gathered);
  if (elements.mCount > 0 && gathered.HasValues() != expected.mWithValues)
    return expected.mWithValues ? "no values arrived" : "values arrived although none were due";
  if (!IsDense(expected.mFormat)) return FindSparseDifference(elements, source, expected);

  Piece all;
  all.mRowEnd = whole.mRows;
  all.mColEnd = whole.mCols;
  return FindDifferenceInBlock<T>(elements.mValues, elements.mLayout, all, source,
                                  expected.mSteps);
}

#define PAVEX_VERIFY(T, I)                                                    \
  template std::string FindDifference<T, I>(MatrixBase const&, Source const&, \
                                            Expectation const&);
PAVEX_FOR_EACH_INSTANCE(PAVEX_VERIFY)
#undef PAVEX_VERIFY

#define PAVEX_VERIFY(T)                                                                     \
  template std::string FindDifferenceInBlock<T>(T const*, DenseLayout const&, Piece const&, \
                                                Source const&, int);
PAVEX_VERIFY(float)
PAVEX_VERIFY(double)
PAVEX_VERIFY(std::complex<float>)
PAVEX_VERIFY(std::complex<double>)
#undef PAVEX_VERIFY

}  // namespace Pavex::Tool
