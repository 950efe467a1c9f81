// The elements of a matrix of the library in any format. No other place in the command
// distinguishes the arrays of the formats.

#pragma once

#include "pavex/matrix/matrix_base.h"
#include "pavex/matrix/store_type.h"

#include <cstddef>

namespace Pavex::Tool {

// Where the element (row, col) of a dense matrix is in its value array: the lines, rows or
// columns, are `mLd` elements apart.
struct DenseLayout {
  bool mByRows = false;
  long mLd = 0;

  std::size_t At(long row, long col) const {
    return static_cast<std::size_t>(mByRows ? row * mLd + col : col * mLd + row);
  }
};

// The arrays of a matrix, which must outlive this object. Compressed and dense matrices consist
// of lines, which are rows or columns; the line gives the index that no array contains. Only
// the constructor depends on the format; it reads no array.
template <typename T, typename I>
struct Elements {
  explicit Elements(MatrixBase const& matrix);

  long mRows = 0;  // of this matrix, the whole or a piece
  long mCols = 0;
  long mRowBegin = 0;  // the place of a piece in the whole
  long mColBegin = 0;
  std::size_t mCount = 0;
  bool mByRows = false;         // the lines are rows
  bool mCompressed = false;     // has offsets and one index array
  bool mDense = false;          // has a layout and no index array
  DenseLayout mLayout;          // of a dense matrix
  I const* mOffsets = nullptr;  // where the lines begin, and where the last one ends
  I const* mRow = nullptr;      // row of each element
  I const* mCol = nullptr;      // column of each element
  T* mValues = nullptr;         // null for a pattern

  long Lines() const { return mByRows ? mRows : mCols; }

  // The line from `LineBegin` to before `LineEnd` in the arrays of the elements.
  std::size_t LineBegin(long line) const {
    if (mDense) return static_cast<std::size_t>(line * mLayout.mLd);
    return static_cast<std::size_t>(mOffsets[line] - mOffsets[0]);
  }
  std::size_t LineEnd(long line) const {
    if (!mDense) return LineBegin(line + 1);
    return LineBegin(line) + static_cast<std::size_t>(mByRows ? mCols : mRows);
  }
};

template <typename T, typename I>
Elements<T, I>::Elements(MatrixBase const& matrix)
    : mCount(static_cast<std::size_t>(matrix.NNZ())) {
  PavexMatrixStore store;
  matrix.Query(store);
  mRows = store.rows;
  mCols = store.cols;
  if (matrix.mPartition.type == PARTITION_ROW_WISE) mRowBegin = matrix.mPartition.begin;
  if (matrix.mPartition.type == PARTITION_COLUMN_WISE) mColBegin = matrix.mPartition.begin;
  StoreKind const kind = StoreKindOf(store.type);
  if (kind == StoreKind::COO) {
    mRow = static_cast<I const*>(store.coo.row);
    mCol = static_cast<I const*>(store.coo.col);
    mValues = static_cast<T*>(store.coo.values);
  } else if (kind == StoreKind::CSR || kind == StoreKind::CSC) {
    mCompressed = true;
    mByRows = kind == StoreKind::CSR;
    mOffsets = static_cast<I const*>(store.csr.ptr);
    (mByRows ? mCol : mRow) = static_cast<I const*>(store.csr.idx);
    mValues = static_cast<T*>(store.csr.values);
  } else {
    mDense = true;
    mByRows = store.type == STORE_DENSE_ROW_MAJOR;
    mLayout = {mByRows, store.dense.ld};
    mValues = static_cast<T*>(store.dense.values);
  }
}

// Calls visit(row, col, k) for each element, with its global position and its place k in the
// value array, in the order of that array. Trusts the index arrays.
template <typename T, typename I, typename Visit>
void ForEachElement(Elements<T, I> const& elements, Visit const& visit) {
  if (elements.mCount == 0) return;
  if (!elements.mCompressed && !elements.mDense) {
    for (std::size_t k = 0; k < elements.mCount; ++k)
      visit(static_cast<long>(elements.mRow[k]), static_cast<long>(elements.mCol[k]), k);
    return;
  }
  bool const byRows = elements.mByRows;
  I const* const others = byRows ? elements.mCol : elements.mRow;
  long const lineBegin = byRows ? elements.mRowBegin : elements.mColBegin;
  long const otherBegin = byRows ? elements.mColBegin : elements.mRowBegin;
  for (long i = 0; i < elements.Lines(); ++i) {
    std::size_t const begin = elements.LineBegin(i);
    std::size_t const end = elements.LineEnd(i);
    for (std::size_t k = begin; k < end; ++k) {
      long const other = others != nullptr ? static_cast<long>(others[k])
                                           : otherBegin + static_cast<long>(k - begin);
      visit(byRows ? lineBegin + i : other, byRows ? other : lineBegin + i, k);
    }
  }
}

}  // namespace Pavex::Tool
