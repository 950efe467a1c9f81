#include "pavex/matrix/csc.h"

#include "pavex/matrix/sparse.h"

namespace Pavex {

template <typename T, typename I>
MatrixCSC<T, I>::MatrixCSC() : MatrixBase(ValueTypeOf<T>::kCode, IndexTypeOf<I>::kCode) {}

template <typename T, typename I>
MatrixCSC<T, I>::MatrixCSC(MatrixCSC&&) noexcept = default;

template <typename T, typename I>
MatrixCSC<T, I>& MatrixCSC<T, I>::operator=(MatrixCSC&&) noexcept = default;

template <typename T, typename I>
MatrixCSC<T, I>::~MatrixCSC() = default;

template <typename T, typename I>
MatrixCSC<T, I> MatrixCSC<T, I>::Borrow(std::int64_t rows, std::int64_t cols, I* colPtr,
                                        I* rowIdx, T* values) {
  MatrixCSC matrix;
  matrix.SetShape(rows, cols);
  matrix.mColPtr.Borrow(colPtr, cols + 1);
  matrix.mRowIdx.Borrow(rowIdx, matrix.NNZ());
  if (values != nullptr) matrix.mValues.Borrow(values, matrix.NNZ());
  return matrix;
}

template <typename T, typename I>
PavexStatus MatrixCSC<T, I>::Create(Allocator& allocator, std::int64_t rows, std::int64_t cols,
                                    std::int64_t nnz, bool withValues, MatrixCSC& matrix) {
  MatrixCSC created;
  created.SetShape(rows, cols);
  PavexStatus const status = GetSparseArrays(allocator, cols + 1, created.mColPtr, nnz,
                                             created.mRowIdx, withValues, created.mValues);
  if (status == STATUS_OK) matrix = std::move(created);
  return status;
}

template <typename T, typename I>
long MatrixCSC<T, I>::NNZ() const {
  return CompressedNNZ(mColPtr, mCols, mRows, mCols);
}

template <typename T, typename I>
PavexMatrixStoreType MatrixCSC<T, I>::StoreType() const {
  return SparseStoreType(STORE_CSC_0, mPart);
}

template <typename T, typename I>
bool MatrixCSC<T, I>::HasValues() const {
  return mValues.mSize != 0;
}

template <typename T, typename I>
void MatrixCSC<T, I>::SetValues(void* values) {
  mValues.Borrow(static_cast<T*>(values), NNZ());
}

template <typename T, typename I>
void MatrixCSC<T, I>::Query(PavexMatrixStore& store) const {
  store.rows = mRows;
  store.cols = mCols;
  store.type = StoreType();
  store.csc.ptr = mColPtr.mData;
  store.csc.idx = mRowIdx.mData;
  store.csc.values = mValues.mData;
}

#define PAVEX_INSTANTIATE(T, I) template class MatrixCSC<T, I>;
PAVEX_FOR_EACH_INSTANCE(PAVEX_INSTANTIATE)
#undef PAVEX_INSTANTIATE

}  // namespace Pavex
