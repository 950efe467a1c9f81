#include "pavex/matrix/coo.h"

#include "pavex/matrix/sparse.h"

namespace Pavex {

template <typename T, typename I>
MatrixCOO<T, I>::MatrixCOO() : MatrixBase(ValueTypeOf<T>::kCode, IndexTypeOf<I>::kCode) {}

template <typename T, typename I>
MatrixCOO<T, I>::MatrixCOO(MatrixCOO&&) noexcept = default;

template <typename T, typename I>
MatrixCOO<T, I>& MatrixCOO<T, I>::operator=(MatrixCOO&&) noexcept = default;

template <typename T, typename I>
MatrixCOO<T, I>::~MatrixCOO() = default;

template <typename T, typename I>
MatrixCOO<T, I> MatrixCOO<T, I>::Borrow(std::int64_t rows, std::int64_t cols, std::int64_t nnz,
                                        I* rowIdx, I* colIdx, T* values) {
  MatrixCOO matrix;
  matrix.SetShape(rows, cols);
  matrix.mRowIdx.Borrow(rowIdx, nnz);
  matrix.mColIdx.Borrow(colIdx, nnz);
  if (values != nullptr) {
    matrix.mValues.Borrow(values, nnz);
  }
  return matrix;
}

template <typename T, typename I>
PavexStatus MatrixCOO<T, I>::Create(Allocator& allocator, std::int64_t rows, std::int64_t cols,
                                    std::int64_t nnz, bool withValues, MatrixCOO& matrix) {
  MatrixCOO created;
  created.SetShape(rows, cols);
  PavexStatus const status = GetSparseArrays(allocator, nnz, created.mRowIdx, nnz,
                                             created.mColIdx, withValues, created.mValues);
  if (status == STATUS_OK) matrix = std::move(created);
  return status;
}

template <typename T, typename I>
long MatrixCOO<T, I>::NNZ() const {
  return mRows == 0 || mCols == 0 ? 0 : mRowIdx.mSize;
}

template <typename T, typename I>
PavexMatrixStoreType MatrixCOO<T, I>::StoreType() const {
  return SparseStoreType(STORE_COO_0, mPart);
}

template <typename T, typename I>
bool MatrixCOO<T, I>::HasValues() const {
  return mValues.mSize != 0;
}

template <typename T, typename I>
void MatrixCOO<T, I>::SetValues(void* values) {
  mValues.Borrow(static_cast<T*>(values), NNZ());
}

template <typename T, typename I>
void MatrixCOO<T, I>::Query(PavexMatrixStore& store) const {
  store.rows = mRows;
  store.cols = mCols;
  store.type = StoreType();
  store.coo.nnz = mValues.mSize;  // not NNZ(). Fixed: see docs/compatibility.md
  store.coo.row = mRowIdx.mData;
  store.coo.col = mColIdx.mData;
  store.coo.values = mValues.mData;
}

#define PAVEX_INSTANTIATE(T, I) template class MatrixCOO<T, I>;
PAVEX_FOR_EACH_INSTANCE(PAVEX_INSTANTIATE)
#undef PAVEX_INSTANTIATE

}  // namespace Pavex
