// A matrix in compressed column storage.

#pragma once

#include "pavex/matrix/instances.h"
#include "pavex/matrix/matrix_base.h"
#include "pavex/runtime/buffer.h"

#include <cstdint>

namespace Pavex {

// The entries of column j are those from mColPtr[j] - mColPtr[0] to before mColPtr[j + 1] -
// mColPtr[0] in mRowIdx and mValues; the offsets may start at any base. In a distributed matrix
// the row indices are global.
template <typename T, typename I>
class PAVEX_API MatrixCSC : public MatrixBase {
 public:
  std::int32_t mPart = 0;  // part code 0, 1 or 2
  Buffer<I> mColPtr;       // column offsets, mCols + 1 of them
  Buffer<I> mRowIdx;       // row of each entry
  Buffer<T> mValues;       // value of each entry; empty for a pattern

  // An empty 0 x 0 matrix.
  MatrixCSC();
  MatrixCSC(MatrixCSC&&) noexcept;
  MatrixCSC& operator=(MatrixCSC&&) noexcept;
  ~MatrixCSC() override;

  // A `rows` x `cols` matrix over the caller's arrays, which must outlive their use by the
  // matrix: `cols` + 1 offsets, whose last minus first is the number of entries, and that many
  // indices and values. A null `values` gives a pattern.
  static MatrixCSC Borrow(std::int64_t rows, std::int64_t cols, I* colPtr, I* rowIdx,
                          T* values);

  // Makes `matrix` a `rows` x `cols` matrix with room for `nnz` entries, uninitialised, from
  // `allocator`, which must outlive it. On a failed status `matrix` is as it was.
  static PavexStatus Create(Allocator& allocator, std::int64_t rows, std::int64_t cols,
                            std::int64_t nnz, bool withValues, MatrixCSC& matrix);

  // The last minus the first offset; 0 without offsets, or if mRows or mCols is 0.
  long NNZ() const override;
  PavexMatrixStoreType StoreType() const override;
  bool HasValues() const override;
  void SetValues(void* values) override;
  void Query(PavexMatrixStore& store) const override;
};

#define PAVEX_EXTERN(T, I) extern template class MatrixCSC<T, I>;
PAVEX_FOR_EACH_INSTANCE(PAVEX_EXTERN)
#undef PAVEX_EXTERN

static_assert(sizeof(MatrixCSC<double, int>) == 200, "part of the binary interface");

}  // namespace Pavex
