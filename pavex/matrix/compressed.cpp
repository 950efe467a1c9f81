#include "pavex/matrix/compressed.h"

#include "pavex/matrix/sparse.h"
#include "pavex/matrix/sparse_traits.h"
#include "pavex/runtime/wrapping.h"

#include <utility>

namespace Pavex {

template <typename M, typename T, typename I>
M MatrixCompressed<M, T, I>::Borrow(std::int64_t rows, std::int64_t cols, I* offsets,
                                    I* indices, T* values) {
  M matrix;
  matrix.SetShape(rows, cols);
  Offsets(matrix).Borrow(offsets, PickCompressed<M>(rows, cols) + 1);
  Indices(matrix).Borrow(indices, matrix.NNZ());
  if (values != nullptr) {
    matrix.mValues.Borrow(values, matrix.NNZ());
  }
  return matrix;
}

template <typename M, typename T, typename I>
PavexStatus MatrixCompressed<M, T, I>::Create(Allocator& allocator, std::int64_t rows,
                                              std::int64_t cols, std::int64_t nnz,
                                              bool withValues, M& matrix) {
  M created;
  created.SetShape(rows, cols);
  PavexStatus const status =
      GetSparseArrays(allocator, PickCompressed<M>(rows, cols) + 1, Offsets(created), nnz,
                      Indices(created), withValues, created.mValues);
  if (status == STATUS_OK) matrix = std::move(created);
  return status;
}

template <typename M, typename T, typename I>
long MatrixCompressed<M, T, I>::NNZ() const {
  auto const& matrix = static_cast<M const&>(*this);
  Buffer<I> const& offsets = Offsets(matrix);
  if (offsets.mSize == 0 || mRows == 0 || mCols == 0) return 0;
  // The difference has the width of the index type. Fixed: see docs/compatibility.md.
  return WrappingSub(offsets.mData[PickCompressed<M>(mRows, mCols)], offsets.mData[0]);
}

template <typename M, typename T, typename I>
PavexMatrixStoreType MatrixCompressed<M, T, I>::StoreType() const {
  return SparseStoreType(SparseTraits<M>::kStoreType, mPart);
}

template <typename M, typename T, typename I>
bool MatrixCompressed<M, T, I>::HasValues() const {
  return static_cast<M const&>(*this).mValues.mSize != 0;
}

template <typename M, typename T, typename I>
void MatrixCompressed<M, T, I>::SetValues(void* values) {
  static_cast<M&>(*this).mValues.Borrow(static_cast<T*>(values), NNZ());
}

template <typename M, typename T, typename I>
void MatrixCompressed<M, T, I>::Query(PavexMatrixStore& store) const {
  auto const& matrix = static_cast<M const&>(*this);
  store.rows = mRows;
  store.cols = mCols;
  store.type = StoreType();
  PavexMatrixStore::CompressedView& view = SparseTraits<M>::View(store);
  view.ptr = Offsets(matrix).mData;
  view.idx = Indices(matrix).mData;
  view.values = matrix.mValues.mData;
}

#define PAVEX_INSTANTIATE(T, I)                           \
  template class MatrixCompressed<MatrixCSR<T, I>, T, I>; \
  template class MatrixCSR<T, I>;                         \
  template class MatrixCompressed<MatrixCSC<T, I>, T, I>; \
  template class MatrixCSC<T, I>;
PAVEX_FOR_EACH_INSTANCE(PAVEX_INSTANTIATE)
#undef PAVEX_INSTANTIATE

}  // namespace Pavex
