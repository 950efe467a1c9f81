// What random contributions add up to, as a dense matrix, and how a result differs from it.

#pragma once

#include "pavex/matrix/csr.h"
#include "pavex/matrix/dense.h"
#include "tests/assembly/assembly_case.h"

#include <cstddef>
#include <string>
#include <vector>

namespace Pavex {

// A dense matrix whose elements may be missing.
template <typename T>
class DenseReference {
 public:
  DenseReference(long rows, long cols)
      : mCols(cols),
        mSums(static_cast<std::size_t>(rows * cols)),
        mHas(static_cast<std::size_t>(rows * cols)) {}

  void Add(long row, long col, T value) {
    mEntries += Has(row, col) ? 0 : 1;
    mHas[At(row, col)] = 1;
    mSums[At(row, col)] += value;
  }

  bool Has(long row, long col) const { return mHas[At(row, col)] != 0; }
  // 0 where there is nothing.
  T Sum(long row, long col) const { return mSums[At(row, col)]; }
  long Entries() const { return mEntries; }

 private:
  std::size_t At(long row, long col) const {
    return static_cast<std::size_t>(row * mCols + col);
  }

  long mCols;
  std::vector<T> mSums;
  std::vector<char> mHas;
  long mEntries = 0;
};

// The whole of `expected`.
template <typename T, typename I>
DenseReference<T> ReferenceOf(AssemblyCase<T, I> const& expected) {
  DenseReference<T> whole(expected.request.mRows, expected.request.mCols);
  for (auto const& piece : expected.pieces)
    for (auto const& block : piece.blocks)
      for (std::size_t k = 0; k < block.places.size(); ++k)
        whole.Add(block.places[k].first, block.places[k].second, block.values[k]);
  return whole;
}

// What is wrong with the entries of row `row` of `whole`; empty if nothing is. `lastRow`: the
// last row in which each column was found.
template <typename T, typename I>
std::string CheckRow(AssemblyRequest const& request, DenseReference<T> const& reference,
                     bool withValues, MatrixCSR<T, I> const& whole, long row,
                     std::vector<long>& lastRow) {
  long const base = request.mBase;
  long earlier = -1;
  for (long k = whole.mRowPtr.mData[row] - base; k < whole.mRowPtr.mData[row + 1] - base; ++k) {
    long const col = whole.mColIdx.mData[k] - base;
    auto const place = [row, col] { return std::to_string(row) + ", " + std::to_string(col); };
    if (col < 0 || col >= request.mCols || !reference.Has(row, col))
      return "no entry belongs to " + place();
    if (request.mSortColumns && col < earlier) return "order at " + place();
    earlier = col;
    long& last = lastRow[static_cast<std::size_t>(col)];
    if (last == row) return "repeated " + place();
    last = row;
    if (withValues && whole.mValues.mData[k] != reference.Sum(row, col))
      return "value of " + place();
  }
  return {};
}

// What is wrong with `whole`; empty if nothing is.
template <typename T, typename I>
std::string CheckWhole(AssemblyCase<T, I> const& expected, bool withValues,
                       MatrixCSR<T, I> const& whole) {
  AssemblyRequest const& request = expected.request;
  DenseReference<T> const reference = ReferenceOf(expected);
  if (whole.mRows != request.mRows || whole.mCols != request.mCols) return "shape";
  if (whole.mRowPtr.mSize != request.mRows + 1 || whole.mRowPtr.mData[0] != request.mBase)
    return "offsets";
  if (whole.NNZ() != reference.Entries())
    return std::to_string(whole.NNZ()) + " entries, expected " +
           std::to_string(reference.Entries());
  if (whole.mColIdx.mSize != whole.NNZ()) return "length of the columns";
  if (whole.mValues.mSize != (withValues ? whole.NNZ() : 0)) return "length of the values";
  std::vector<long> lastRow(static_cast<std::size_t>(request.mCols), -1);
  for (long row = 0; row < request.mRows; ++row) {
    std::string difference = CheckRow(request, reference, withValues, whole, row, lastRow);
    if (!difference.empty()) return difference;
  }
  return {};
}

// A dense matrix with room between its runs.
template <typename T, typename I>
struct CaseDense {
  std::vector<T> values;
  MatrixDense<T, I> matrix;

  CaseDense(long rows, long cols, bool rowMajor, long gap) {
    long const ld = (rowMajor ? cols : rows) + gap;
    values.assign(static_cast<std::size_t>(ld * (rowMajor ? rows : cols) + 1), T(-99.0F));
    matrix = MatrixDense<T, I>::Borrow(rows, cols, rowMajor, ld, values.data());
  }

  T& At(long i, long j) {
    long const at = matrix.mRowMajor ? i * matrix.mLd + j : i + j * matrix.mLd;
    return values[static_cast<std::size_t>(at)];
  }
};

// A number for an element of a dense matrix that one process has.
template <typename T>
T DenseValue(long process, long i, long j) {
  return T(static_cast<float>(process * 100 + i * 10 + j + 1));
}

// What is wrong with `whole` after a collect of the DenseValues of all processes; empty if
// nothing is.
template <typename T, typename I>
std::string CheckCollected(AssemblyCase<T, I> const& expected, Overlap overlap,
                           CaseDense<T, I>& whole) {
  long const rows = expected.request.mRows;
  long const columns = whole.matrix.mCols;
  DenseReference<T> sums(rows, columns);
  for (std::size_t p = 0; p < expected.pieces.size(); ++p) {
    auto const& list = expected.pieces[p].ownRows;
    for (std::size_t i = 0; i < list.size(); ++i)
      for (long j = 0; j < columns; ++j)
        if (overlap == Overlap::ADD || !sums.Has(list[i], j))
          sums.Add(list[i], j, DenseValue<T>(static_cast<long>(p), static_cast<long>(i), j));
  }
  for (long i = 0; i < rows; ++i)
    for (long j = 0; j < columns; ++j)
      if (whole.At(i, j) != sums.Sum(i, j)) return "collected row " + std::to_string(i);
  return {};
}

}  // namespace Pavex
