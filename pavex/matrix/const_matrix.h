// A matrix over arrays that must not be written.

#pragma once

#include "pavex/matrix/matrix_base.h"

#include <cstdint>
#include <type_traits>
#include <utility>

namespace Pavex {

// Borrow returns it for const arrays. `Matrix` is the class of the matrix. It converts to
// `MatrixBase const&` only. So Gather, Allgather and Update, which read the arrays, take it,
// and Scatter does not compile. Movable, not copyable. Every operation is local.
//
// A gathered matrix may borrow the same arrays (see Aggregator): do not write to it then.
template <typename Matrix>
class ConstMatrix {
  using Value = std::remove_pointer_t<decltype(std::declval<Matrix&>().mValues.mData)>;

 public:
  // Wraps a matrix whose arrays must not be written.
  explicit ConstMatrix(Matrix&& matrix) : mMatrix(std::move(matrix)) {}

  // The matrix for an operation that reads it; valid as long as this object.
  operator MatrixBase const&() const { return mMatrix; }

  // See MatrixBase.
  void PlaceIn(std::int64_t globalRows, std::int64_t globalCols, MatrixPartition partition) {
    mMatrix.PlaceIn(globalRows, globalCols, partition);
  }

  // Sets mPattern.
  void SetPattern(std::int32_t code) { mMatrix.mPattern = code; }
  // Sets mAttribute.
  void SetAttribute(std::int32_t code) { mMatrix.mAttribute = code; }
  // Sets mPart; for sparse matrices only.
  void SetPart(std::int32_t code) { mMatrix.mPart = code; }

  // Replaces the value array for the next Update; see MatrixBase. Takes a pointer to T, or to
  // the real type of a complex T.
  template <typename P>
  std::enable_if_t<kHoldsValues<Value, P>> SetValues(P const* values) {
    mMatrix.SetValues(const_cast<P*>(values));
  }

 private:
  Matrix mMatrix;
};

}  // namespace Pavex
