// A matrix in compressed column storage.

#pragma once

#include "pavex/matrix/compressed.h"
#include "pavex/matrix/instances.h"

namespace Pavex {

// Lines are columns. An empty 0 x 0 matrix when default-constructed.
template <typename T, typename I>
class PAVEX_API MatrixCSC : public MatrixCompressed<MatrixCSC<T, I>, T, I> {
 public:
  Buffer<I> mColPtr;  // column offsets, mCols + 1 of them
  Buffer<I> mRowIdx;  // row of each entry
  Buffer<T> mValues;  // value of each entry; empty for a pattern
};

#define PAVEX_EXTERN(T, I)                                       \
  extern template class MatrixCompressed<MatrixCSC<T, I>, T, I>; \
  extern template class MatrixCSC<T, I>;
PAVEX_FOR_EACH_INSTANCE(PAVEX_EXTERN)
#undef PAVEX_EXTERN

static_assert(sizeof(MatrixCSC<double, int>) == 200, "part of the binary interface");

}  // namespace Pavex
