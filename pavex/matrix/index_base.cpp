#include "pavex/matrix/index_base.h"

#include "pavex/matrix/sparse_traits.h"
#include "pavex/runtime/buffer.h"
#include "pavex/runtime/wrapping.h"

#include <algorithm>
#include <cstdint>
#include <type_traits>

namespace Pavex {

namespace {

// Adds `term` to the first `count` elements. The indices and offsets that a gathered matrix
// owns may come from a peer, so the sums wrap, and offsets that promise more entries than there
// are do no harm. A borrowed array has the size that the caller said.
template <typename I>
void AddToAll(I term, Buffer<I>& array, std::int64_t count) {
  if (array.mAllocator != nullptr) count = std::min(count, array.mSize);
  for (std::int64_t k = 0; k < count; ++k)
    array.mData[k] = WrappingAdd(array.mData[k], term);
}

template <typename M>
void ShiftCompressed(M& matrix, int from, int to) {
  auto& offsets = Offsets(matrix);
  auto& indices = Indices(matrix);
  using I = std::remove_reference_t<decltype(*indices.mData)>;
  AddToAll(static_cast<I>(to - from), indices, matrix.NNZ());
  if (offsets.mData == nullptr || offsets.mSize == 0) return;
  I const term = WrappingSub(static_cast<I>(to), offsets.mData[0]);
  AddToAll(term, offsets, PickCompressed<M>(matrix.mRows, matrix.mCols) + 1);
}

}  // namespace

template <typename T, typename I>
void ShiftIndexBase(MatrixCOO<T, I>& matrix, int from, int to) {
  AddToAll(static_cast<I>(to - from), matrix.mRowIdx, matrix.NNZ());
  AddToAll(static_cast<I>(to - from), matrix.mColIdx, matrix.NNZ());
}

template <typename T, typename I>
void ShiftIndexBase(MatrixCSR<T, I>& matrix, int from, int to) {
  ShiftCompressed(matrix, from, to);
}

template <typename T, typename I>
void ShiftIndexBase(MatrixCSC<T, I>& matrix, int from, int to) {
  ShiftCompressed(matrix, from, to);
}

#define PAVEX_INSTANTIATE(T, I)                                   \
  template void ShiftIndexBase<T, I>(MatrixCOO<T, I>&, int, int); \
  template void ShiftIndexBase<T, I>(MatrixCSR<T, I>&, int, int); \
  template void ShiftIndexBase<T, I>(MatrixCSC<T, I>&, int, int);
PAVEX_FOR_EACH_INSTANCE(PAVEX_INSTANTIATE)
#undef PAVEX_INSTANTIATE

}  // namespace Pavex
