// One rank's piece as the application would hold it: arrays of its own and a matrix of the
// library that borrows them.

#pragma once

#include "pavex/matrix/coo.h"
#include "pavex/matrix/csc.h"
#include "pavex/matrix/csr.h"
#include "pavex/matrix/dense.h"
#include "tools/choice/options.h"
#include "tools/cut/pieces.h"
#include "tools/matrix/elements.h"
#include "tools/matrix/piece_values.h"
#include "tools/source/triplets.h"

#include <algorithm>
#include <memory>
#include <numeric>
#include <vector>

namespace Pavex::Tool {

// Not movable: the matrix points into the arrays. A gathered matrix may borrow them too, so
// this object must outlive it.
template <typename T, typename I>
class LocalMatrix {
 public:
  // `entries` are those of `piece`, with global indices. A dense piece has 0 where there is no
  // entry, and the sum where there are several.
  LocalMatrix(Triplets const& entries, Piece const& piece, Extent const& whole,
              CutOptions const& options);
  LocalMatrix(LocalMatrix const&) = delete;
  LocalMatrix& operator=(LocalMatrix const&) = delete;

  MatrixBase& Matrix() { return *mMatrix; }
  MatrixBase const& Matrix() const { return *mMatrix; }
  Piece const& Place() const { return mPiece; }
  std::vector<T> const& Values() const { return mValues; }

  // Bytes of the index and value arrays.
  long Bytes() const {
    return static_cast<long>((mFirst.size() + mSecond.size()) * sizeof(I) +
                             mValues.size() * sizeof(T));
  }

  // Changes every value by one step, in a new array. Returns the earlier array. Keep it until
  // the gathered matrix, which may borrow it, has been updated.
  std::vector<T> Advance();

 private:
  void BuildCoo(Triplets const& entries, bool withValues);
  void BuildCompressed(Triplets const& entries, bool byRows, int base, bool withValues);
  void BuildDense(Triplets const& entries, bool rowMajor, long pad);

  Piece mPiece;
  std::vector<I> mFirst;   // rows (coo) or offsets
  std::vector<I> mSecond;  // columns (coo) or the other index
  std::vector<T> mValues;
  std::unique_ptr<MatrixBase> mMatrix;
};

template <typename T, typename I>
LocalMatrix<T, I>::LocalMatrix(Triplets const& entries, Piece const& piece, Extent const& whole,
                               CutOptions const& options)
    : mPiece(piece) {
  Format const format = options.mFormat;
  switch (format) {
    case Format::COO:
      BuildCoo(entries, options.mWithValues);
      break;
    case Format::CSR:
    case Format::CSC:
      BuildCompressed(entries, format == Format::CSR, options.mBase, options.mWithValues);
      break;
    case Format::DENSE_ROW:
    case Format::DENSE_COL:
      BuildDense(entries, format == Format::DENSE_ROW, options.mPad);
      break;
  }
  mMatrix->PlaceIn(whole.mRows, whole.mCols, piece.mPartition);
}

template <typename T, typename I>
void LocalMatrix<T, I>::BuildCoo(Triplets const& entries, bool withValues) {
  mFirst.assign(entries.mRow.begin(), entries.mRow.end());
  mSecond.assign(entries.mCol.begin(), entries.mCol.end());
  if (withValues) {
    mValues.resize(entries.Entries());
    for (std::size_t k = 0; k < mValues.size(); ++k)
      mValues[k] = InputValue<T>(entries, k);
  }
  mMatrix = std::make_unique<MatrixCOO<T, I>>(MatrixCOO<T, I>::Borrow(
      mPiece.Rows(), mPiece.Cols(), static_cast<long>(mFirst.size()), mFirst.data(),
      mSecond.data(), withValues ? mValues.data() : nullptr));
}

// A counting sort by row (column) that keeps the order of the entries of one row. Rows and
// columns are counted from the piece's own first; the other index stays global.
template <typename T, typename I>
void LocalMatrix<T, I>::BuildCompressed(Triplets const& entries, bool byRows, int base,
                                        bool withValues) {
  auto const& compressed = byRows ? entries.mRow : entries.mCol;
  auto const& other = byRows ? entries.mCol : entries.mRow;
  long const begin = byRows ? mPiece.mRowBegin : mPiece.mColBegin;
  long const count = byRows ? mPiece.Rows() : mPiece.Cols();
  mFirst.assign(static_cast<std::size_t>(count) + 1, 0);
  for (std::int32_t const i : compressed)
    ++mFirst[static_cast<std::size_t>(i - begin) + 1];
  std::partial_sum(mFirst.begin(), mFirst.end(), mFirst.begin());

  std::vector<I> next(mFirst.begin(), mFirst.end() - 1);
  mSecond.resize(entries.Entries());
  if (withValues) mValues.resize(entries.Entries());
  for (std::size_t k = 0; k < entries.Entries(); ++k) {
    auto const at =
        static_cast<std::size_t>(next[static_cast<std::size_t>(compressed[k] - begin)]++);
    mSecond[at] = other[k];
    if (withValues) mValues[at] = InputValue<T>(entries, k);
  }
  for (I& offset : mFirst)
    offset += base;

  T* const values = withValues ? mValues.data() : nullptr;
  if (byRows)
    mMatrix = std::make_unique<MatrixCSR<T, I>>(MatrixCSR<T, I>::Borrow(
        mPiece.Rows(), mPiece.Cols(), mFirst.data(), mSecond.data(), values));
  else
    mMatrix = std::make_unique<MatrixCSC<T, I>>(MatrixCSC<T, I>::Borrow(
        mPiece.Rows(), mPiece.Cols(), mFirst.data(), mSecond.data(), values));
}

template <typename T, typename I>
void LocalMatrix<T, I>::BuildDense(Triplets const& entries, bool rowMajor, long pad) {
  long const length = rowMajor ? mPiece.Cols() : mPiece.Rows();
  long const runs = rowMajor ? mPiece.Rows() : mPiece.Cols();
  DenseLayout const layout{rowMajor, length + pad};
  bool const filled = runs > 0 && length > 0;
  mValues.assign(static_cast<std::size_t>(filled ? (runs - 1) * layout.mLd + length : 0),
                 GapValue<T>());
  for (long run = 0; filled && run < runs; ++run)
    std::fill_n(mValues.begin() + run * layout.mLd, length, T{});
  for (std::size_t k = 0; k < entries.Entries(); ++k) {
    long const row = entries.mRow[k] - mPiece.mRowBegin;
    long const col = entries.mCol[k] - mPiece.mColBegin;
    mValues[layout.At(row, col)] += InputValue<T>(entries, k);
  }
  mMatrix = std::make_unique<MatrixDense<T, I>>(MatrixDense<T, I>::Borrow(
      mPiece.Rows(), mPiece.Cols(), rowMajor, layout.mLd, mValues.data()));
}

template <typename T, typename I>
std::vector<T> LocalMatrix<T, I>::Advance() {
  std::vector<T> next = mValues;
  ForEachElement(Elements<T, I>(*mMatrix), [&next](long row, long col, std::size_t k) {
    next[k] += StepIncrement<T>(row, col);
  });
  next.swap(mValues);
  mMatrix->SetValues(mValues.data());
  return next;
}

}  // namespace Pavex::Tool
