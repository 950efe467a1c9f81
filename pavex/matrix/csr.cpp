#include "pavex/matrix/csr.h"

#include "pavex/matrix/sparse.h"

namespace Pavex {

template <typename T, typename I>
MatrixCSR<T, I>::MatrixCSR() : MatrixBase(ValueTypeOf<T>::kCode, IndexTypeOf<I>::kCode) {}

template <typename T, typename I>
MatrixCSR<T, I>::MatrixCSR(MatrixCSR&&) noexcept = default;

template <typename T, typename I>
MatrixCSR<T, I>& MatrixCSR<T, I>::operator=(MatrixCSR&&) noexcept = default;

template <typename T, typename I>
MatrixCSR<T, I>::~MatrixCSR() = default;

template <typename T, typename I>
MatrixCSR<T, I> MatrixCSR<T, I>::Borrow(std::int64_t rows, std::int64_t cols, I* rowPtr,
                                        I* colIdx, T* values) {
  MatrixCSR matrix;
  matrix.SetShape(rows, cols);
  matrix.mRowPtr.Borrow(rowPtr, rows + 1);
  matrix.mColIdx.Borrow(colIdx, matrix.NNZ());
  if (values != nullptr) matrix.mValues.Borrow(values, matrix.NNZ());
  return matrix;
}

template <typename T, typename I>
PavexStatus MatrixCSR<T, I>::Create(Allocator& allocator, std::int64_t rows, std::int64_t cols,
                                    std::int64_t nnz, bool withValues, MatrixCSR& matrix) {
  MatrixCSR created;
  created.SetShape(rows, cols);
  PavexStatus const status = GetSparseArrays(allocator, rows + 1, created.mRowPtr, nnz,
                                             created.mColIdx, withValues, created.mValues);
  if (status == STATUS_OK) matrix = std::move(created);
  return status;
}

template <typename T, typename I>
long MatrixCSR<T, I>::NNZ() const {
  return CompressedNNZ(mRowPtr, mRows, mRows, mCols);
}

template <typename T, typename I>
PavexMatrixStoreType MatrixCSR<T, I>::StoreType() const {
  return SparseStoreType(STORE_CSR_0, mPart);
}

template <typename T, typename I>
bool MatrixCSR<T, I>::HasValues() const {
  return mValues.mSize != 0;
}

template <typename T, typename I>
void MatrixCSR<T, I>::SetValues(void* values) {
  mValues.Borrow(static_cast<T*>(values), NNZ());
}

template <typename T, typename I>
void MatrixCSR<T, I>::Query(PavexMatrixStore& store) const {
  store.rows = mRows;
  store.cols = mCols;
  store.type = StoreType();
  store.csr.ptr = mRowPtr.mData;
  store.csr.idx = mColIdx.mData;
  store.csr.values = mValues.mData;
}

#define PAVEX_INSTANTIATE(T, I) template class MatrixCSR<T, I>;
PAVEX_FOR_EACH_INSTANCE(PAVEX_INSTANTIATE)
#undef PAVEX_INSTANTIATE

}  // namespace Pavex
