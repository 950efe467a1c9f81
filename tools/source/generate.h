// Makes test matrices of any size. A row depends only on the kind, the size and its own index.
// So each rank makes its own piece, however the matrix is cut, and no rank ever holds the
// whole.

#pragma once

#include "tools/choice/input_error.h"
#include "tools/files/progress.h"
#include "tools/source/triplets.h"

#include <string>

namespace Pavex::Tool {

// One generated matrix, described by "KIND:SIZE":
//   poisson2d:N       5-point Laplace operator on N x N points, symmetric
//   poisson3d:N       7-point Laplace operator on N x N x N points, symmetric
//   convection2d:N,
//   convection3d:N    the same with upwind convection, unsymmetric values
//   random:N          N x N, 8 to 12 entries a row and, from N = 1000 on, 4 hub rows of N / 10;
//                     diagonally dominant, so not singular
//   dense:ROWSxCOLS   values between -1 and 1
// Values are real. Immutable, so threads may share it.
class Generator {
 public:
  // Throws InputError with one line that says what is wrong with `description`.
  explicit Generator(std::string const& description);

  long Rows() const { return mRows; }
  long Cols() const { return mCols; }
  bool IsDense() const { return mKind == Kind::DENSE; }

  // Each row belongs to a point of a grid with Side() points along each of Axes() axes; the
  // first axis is the fastest. 0 axes: no grid.
  int Axes() const { return mAxes; }
  long Side() const { return mSize; }

  // The number of entries in the rows [begin, end), counted without making them.
  long Entries(long begin, long end) const;
  long Entries() const;

  // A matrix of the right shape without entries, to append to.
  Triplets Empty() const;

  // Appends the rows [begin, end) of all columns to `piece`: row by row, columns ascending.
  void AppendRows(long begin, long end, Triplets& piece,
                  ProgressFunction const& progress = {}) const;

  // Appends the columns [begin, end) of all rows, in the same order. It makes every row and
  // keeps what lies inside, so it takes the time of the whole matrix.
  void AppendCols(long begin, long end, Triplets& piece,
                  ProgressFunction const& progress = {}) const;

 private:
  enum class Kind { POISSON, CONVECTION, RANDOM, DENSE };

  long RandomRowEntries(long row) const;
  long GridEntriesAbove(long row) const;  // in the rows [0, row)
  void AppendBlock(long rowBegin, long rowEnd, long colBegin, long colEnd, Triplets& piece,
                   ProgressFunction const& progress) const;
  // These append the entries of one row in the columns [begin, end).
  void AppendGridRow(long row, long begin, long end, Triplets& piece) const;
  void AppendRandomRow(long row, long begin, long end, Triplets& piece) const;
  void AppendDenseRow(long row, long begin, long end, Triplets& piece) const;

  Kind mKind;
  long mSize = 0;  // N of the kinds that have one
  int mAxes = 0;   // of a grid
  long mRows = 0;
  long mCols = 0;
};

}  // namespace Pavex::Tool
