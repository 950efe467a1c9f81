#include "pavex/matrix/dense.h"

#include "pavex/runtime/wrapping.h"

namespace Pavex {

namespace {

// The number of elements from the first to the last one of a strided array.
std::int64_t Extent(std::int64_t runs, std::int64_t runLength, std::int64_t ld) {
  return runs < 1 || runLength < 1 ? 0 : (runs - 1) * ld + runLength;
}

}  // namespace

template <typename T, typename I>
MatrixDense<T, I>::MatrixDense() : MatrixBase(ValueTypeOf<T>::kCode, IndexTypeOf<I>::kCode) {}

template <typename T, typename I>
MatrixDense<T, I>::MatrixDense(MatrixDense&&) noexcept = default;

template <typename T, typename I>
MatrixDense<T, I>& MatrixDense<T, I>::operator=(MatrixDense&&) noexcept = default;

template <typename T, typename I>
MatrixDense<T, I>::~MatrixDense() = default;

template <typename T, typename I>
MatrixDense<T, I> MatrixDense<T, I>::Borrow(std::int64_t rows, std::int64_t cols, bool rowMajor,
                                            std::int64_t ld, T* values) {
  MatrixDense matrix;
  matrix.SetShape(rows, cols);
  matrix.mRowMajor = rowMajor;
  matrix.mLd = ld;
  if (values != nullptr) {
    matrix.mValues.Borrow(values, Extent(matrix.Runs(), matrix.RunLength(), ld));
  }
  return matrix;
}

template <typename T, typename I>
PavexStatus MatrixDense<T, I>::Create(Allocator& allocator, std::int64_t rows,
                                      std::int64_t cols, bool rowMajor, MatrixDense& matrix) {
  std::int64_t const ld = rowMajor ? cols : rows;
  MatrixDense created = Borrow(rows, cols, rowMajor, ld, nullptr);
  PavexStatus const status = allocator.Get(created.mValues, created.NNZ());
  if (status == STATUS_OK) matrix = std::move(created);
  return status;
}

template <typename T, typename I>
long MatrixDense<T, I>::NNZ() const {
  return WrappingMul(mRows, mCols);
}

template <typename T, typename I>
PavexMatrixStoreType MatrixDense<T, I>::StoreType() const {
  return static_cast<PavexMatrixStoreType>(STORE_DENSE_COL_MAJOR -
                                           static_cast<std::int32_t>(mRowMajor));
}

template <typename T, typename I>
bool MatrixDense<T, I>::HasValues() const {
  return mValues.mSize != 0;
}

template <typename T, typename I>
void MatrixDense<T, I>::SetValues(void* values) {
  mValues.Borrow(static_cast<T*>(values), WrappingMul(Runs(), mLd));
}

template <typename T, typename I>
void MatrixDense<T, I>::Query(PavexMatrixStore& store) const {
  store.rows = mRows;
  store.cols = mCols;
  store.type = StoreType();
  store.dense.values = mValues.mData;
  store.dense.ld = mLd;
}

#define PAVEX_INSTANTIATE(T, I) template class MatrixDense<T, I>;
PAVEX_FOR_EACH_INSTANCE(PAVEX_INSTANTIATE)
#undef PAVEX_INSTANTIATE

}  // namespace Pavex
