// A matrix in compressed row storage.

#pragma once

#include "pavex/matrix/compressed.h"
#include "pavex/matrix/instances.h"

namespace Pavex {

// Lines are rows. An empty 0 x 0 matrix when default-constructed.
template <typename T, typename I>
class PAVEX_API MatrixCSR : public MatrixCompressed<MatrixCSR<T, I>, T, I> {
 public:
  Buffer<I> mRowPtr;  // row offsets, mRows + 1 of them
  Buffer<I> mColIdx;  // column of each entry
  Buffer<T> mValues;  // value of each entry; empty for a pattern
};

#define PAVEX_EXTERN(T, I)                                       \
  extern template class MatrixCompressed<MatrixCSR<T, I>, T, I>; \
  extern template class MatrixCSR<T, I>;
PAVEX_FOR_EACH_INSTANCE(PAVEX_EXTERN)
#undef PAVEX_EXTERN

static_assert(sizeof(MatrixCSR<double, int>) == 200, "part of the binary interface");

}  // namespace Pavex
