// Indices that count from 0 or from 1.

#pragma once

#include "pavex/matrix/coo.h"
#include "pavex/matrix/csc.h"
#include "pavex/matrix/csr.h"
#include "pavex/matrix/instances.h"

namespace Pavex {

// Changes the arrays of `matrix` in place from indices that count from `from` to indices that
// count from `to`; offsets of a compressed matrix then start at `to`. Values, shape and
// partition stay. The arrays must be writable, also those that a gathered matrix borrows.
//
// Aggregation never changes indices: a gathered matrix has those of its pieces. Its offsets
// start at 0 if it was put together from several pieces. They keep their base if one process
// held the whole. Both kinds of offsets are correct afterwards: `from` describes the indices
// only. MatrixPartition::begin counts from 0 with every base of the indices. Local.
//
//   auto* const whole = aggregator.TargetAs<MatrixCSR<double, int>>();
//   if (whole != nullptr) ShiftIndexBase(*whole, 1, 0);
template <typename T, typename I>
PAVEX_API void ShiftIndexBase(MatrixCOO<T, I>& matrix, int from, int to);
// Shifts the indices of a MatrixCSR, as the function above does.
template <typename T, typename I>
PAVEX_API void ShiftIndexBase(MatrixCSR<T, I>& matrix, int from, int to);
// Shifts the indices of a MatrixCSC, as the function for MatrixCOO does.
template <typename T, typename I>
PAVEX_API void ShiftIndexBase(MatrixCSC<T, I>& matrix, int from, int to);

#define PAVEX_EXTERN(T, I)                                               \
  extern template void ShiftIndexBase<T, I>(MatrixCOO<T, I>&, int, int); \
  extern template void ShiftIndexBase<T, I>(MatrixCSR<T, I>&, int, int); \
  extern template void ShiftIndexBase<T, I>(MatrixCSC<T, I>&, int, int);
PAVEX_FOR_EACH_INSTANCE(PAVEX_EXTERN)
#undef PAVEX_EXTERN

}  // namespace Pavex
