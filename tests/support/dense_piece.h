// Small dense matrices over arrays of their own, for tests. The arrays come from the ordinary
// heap, so that the ledger of a pool shows only what the library takes.

#pragma once

#include "pavex/matrix/dense.h"
#include "tests/support/pieces.h"

#include <cstdint>
#include <vector>

namespace Pavex {

// The value in the gaps between the runs of a DensePiece.
constexpr int kGap = -1;

// A dense matrix and its value array. Movable: the array stays where it is.
template <typename T = double, typename I = int>
struct DensePiece {
  // Uses the given array, which may be longer than the runs. An empty one gives no values.
  DensePiece(std::int64_t rows, std::int64_t cols, bool rowMajor, std::int64_t ld,
             std::vector<int> const& numbers)
      : values(Numbers<T>(numbers)) {
    matrix.mRows = matrix.mGlobalRows = rows;
    matrix.mCols = matrix.mGlobalCols = cols;
    matrix.mRowMajor = rowMajor;
    matrix.mLd = ld;
    if (!values.empty())
      matrix.mValues.Borrow(values.data(), static_cast<std::int64_t>(values.size()));
  }

  // A piece of a `globalRows` x `globalCols` matrix.
  DensePiece In(std::int64_t globalRows, std::int64_t globalCols,
                MatrixPartition partition) && {
    matrix.PlaceIn(globalRows, globalCols, partition);
    return std::move(*this);
  }

  std::vector<T> values;
  MatrixDense<T, I> matrix;
};

// Rows `firstRow` on and columns `firstCol` on of a matrix that has the number ij at row i,
// column j, both counted from 1; the runs are `padding` elements apart.
template <typename T = double, typename I = int>
DensePiece<T, I> DenseBlock(int firstRow, int rows, int firstCol, int cols, bool rowMajor,
                            int padding = 0) {
  std::vector<int> numbers;
  int const runs = rowMajor ? rows : cols;
  int const length = rowMajor ? cols : rows;
  for (int run = 0; run < runs; ++run) {
    if (run > 0) numbers.insert(numbers.end(), static_cast<std::size_t>(padding), kGap);
    for (int t = 0; t < length; ++t)
      numbers.push_back(rowMajor ? 10 * (firstRow + run) + firstCol + t
                                 : 10 * (firstRow + t) + firstCol + run);
  }
  return {rows, cols, rowMajor, length + padding, numbers};
}

// The share of rank 0 or 1 of a 3 x 5 matrix cut into columns 1 to 2 and 3 to 5.
template <typename T = double, typename I = int>
DensePiece<T, I> ColumnShare(int rank, bool rowMajor, int padding = 0) {
  return DenseBlock<T, I>(1, 3, rank == 0 ? 1 : 3, rank == 0 ? 2 : 3, rowMajor, padding)
      .In(3, 5, MatrixPartition::ColumnWise(rank == 0 ? 0 : 2));
}

// The share of rank 0 or 1 of a 3 x 5 matrix cut into row 1 and rows 2 to 3.
template <typename T = double, typename I = int>
DensePiece<T, I> RowShare(int rank, bool rowMajor, int padding = 0) {
  return DenseBlock<T, I>(rank == 0 ? 1 : 2, rank == 0 ? 1 : 2, 1, 5, rowMajor, padding)
      .In(3, 5, MatrixPartition::RowWise(rank == 0 ? 0 : 1));
}

// The whole 3 x 5 matrix, without a partition.
template <typename T = double, typename I = int>
DensePiece<T, I> WholeShare(bool rowMajor, int padding = 0) {
  return DenseBlock<T, I>(1, 3, 1, 5, rowMajor, padding);
}

// The local matrix of a rank that holds no part of it.
template <typename T = double, typename I = int>
DensePiece<T, I> EmptyShare(bool rowMajor) {
  return {0, 0, rowMajor, 0, {}};
}

}  // namespace Pavex
