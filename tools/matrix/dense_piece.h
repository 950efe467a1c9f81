// One rank's rows of the right-hand sides or of the solutions.

#pragma once

#include "pavex/matrix/dense.h"
#include "tools/cut/pieces.h"
#include "tools/matrix/elements.h"
#include "tools/matrix/piece_values.h"

#include <vector>

namespace Pavex::Tool {

// A column-major matrix with `pad` unused elements after each column. Not movable: the matrix
// points into the array. It must outlive a gathered matrix that borrows the array.
template <typename T, typename I>
class DensePiece {
 public:
  // The rows of `place` of `count` columns; `rows` is the height of the whole.
  DensePiece(Piece const& place, long rows, long count, long pad)
      : mBegin(place.mRowBegin), mLayout{false, place.Rows() + pad} {
    long const cols = place.Rows() == 0 ? 0 : count;
    mValues.assign(static_cast<std::size_t>(mLayout.mLd * cols), GapValue<T>());
    mMatrix = MatrixDense<T, I>::Borrow(place.Rows(), cols, false, mLayout.mLd, mValues.data());
    mMatrix.PlaceIn(rows, count, place.mPartition);
  }
  DensePiece(DensePiece const&) = delete;
  DensePiece& operator=(DensePiece const&) = delete;

  MatrixDense<T, I>& Matrix() { return mMatrix; }
  MatrixDense<T, I> const& Matrix() const { return mMatrix; }
  long Begin() const { return mBegin; }
  long End() const { return mBegin + mMatrix.mRows; }

  // The element at a global row that lies here.
  T& At(long row, long column) { return mValues[mLayout.At(row - mBegin, column)]; }
  T At(long row, long column) const { return mValues[mLayout.At(row - mBegin, column)]; }

 private:
  long mBegin;
  DenseLayout mLayout;
  std::vector<T> mValues;
  MatrixDense<T, I> mMatrix;
};

}  // namespace Pavex::Tool
