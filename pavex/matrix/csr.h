// A matrix in compressed row storage.

#pragma once

#include "pavex/matrix/instances.h"
#include "pavex/matrix/matrix_base.h"
#include "pavex/runtime/buffer.h"

#include <cstdint>

namespace Pavex {

// The entries of row i are those from mRowPtr[i] - mRowPtr[0] to before mRowPtr[i + 1] -
// mRowPtr[0] in mColIdx and mValues; the offsets may start at any base. In a distributed matrix
// the column indices are global.
template <typename T, typename I>
class PAVEX_API MatrixCSR : public MatrixBase {
 public:
  std::int32_t mPart = 0;  // part code 0, 1 or 2
  Buffer<I> mRowPtr;       // row offsets, mRows + 1 of them
  Buffer<I> mColIdx;       // column of each entry
  Buffer<T> mValues;       // value of each entry; empty for a pattern

  // An empty 0 x 0 matrix.
  MatrixCSR();
  MatrixCSR(MatrixCSR&&) noexcept;
  MatrixCSR& operator=(MatrixCSR&&) noexcept;
  ~MatrixCSR() override;

  // A `rows` x `cols` matrix over the caller's arrays, which must outlive their use by the
  // matrix: `rows` + 1 offsets, whose last minus first is the number of entries, and that many
  // indices and values. A null `values` gives a pattern.
  static MatrixCSR Borrow(std::int64_t rows, std::int64_t cols, I* rowPtr, I* colIdx,
                          T* values);

  // Makes `matrix` a `rows` x `cols` matrix with room for `nnz` entries, uninitialised, from
  // `allocator`, which must outlive it. On a failed status `matrix` is as it was.
  static PavexStatus Create(Allocator& allocator, std::int64_t rows, std::int64_t cols,
                            std::int64_t nnz, bool withValues, MatrixCSR& matrix);

  // The last minus the first offset; 0 without offsets, or if mRows or mCols is 0.
  long NNZ() const override;
  PavexMatrixStoreType StoreType() const override;
  bool HasValues() const override;
  void SetValues(void* values) override;
  void Query(PavexMatrixStore& store) const override;
};

#define PAVEX_EXTERN(T, I) extern template class MatrixCSR<T, I>;
PAVEX_FOR_EACH_INSTANCE(PAVEX_EXTERN)
#undef PAVEX_EXTERN

static_assert(sizeof(MatrixCSR<double, int>) == 200, "part of the binary interface");

}  // namespace Pavex
