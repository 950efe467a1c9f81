// A matrix of coordinate triplets.

#pragma once

#include "pavex/matrix/const_matrix.h"
#include "pavex/matrix/instances.h"
#include "pavex/matrix/matrix_base.h"
#include "pavex/runtime/buffer.h"

#include <cstdint>
#include <type_traits>

namespace Pavex {

// Entry k has row mRowIdx[k], column mColIdx[k] and value mValues[k]. The entries need no order
// and may repeat a position. In a distributed matrix the indices are global.
template <typename T, typename I>
class PAVEX_API MatrixCOO : public MatrixBase {
  PAVEX_REQUIRE_INSTANCE(T, I);

 public:
  std::int32_t mPart = 0;  // part code 0, 1 or 2
  Buffer<I> mRowIdx;       // row of each entry
  Buffer<I> mColIdx;       // column of each entry
  Buffer<T> mValues;       // value of each entry; empty for a pattern

  // An empty 0 x 0 matrix.
  MatrixCOO();
  MatrixCOO(MatrixCOO&&) noexcept;
  MatrixCOO& operator=(MatrixCOO&&) noexcept;
  ~MatrixCOO() override;

  // A `rows` x `cols` matrix of `nnz` entries over the caller's arrays of `nnz` elements each,
  // which must outlive their use by the matrix. A null `values` gives a pattern.
  static MatrixCOO Borrow(std::int64_t rows, std::int64_t cols, std::int64_t nnz, I* rowIdx,
                          I* colIdx, T* values);

  // The same over arrays that are only read. J is I. It is a template parameter so that a call
  // with null pointers only means the function above.
  template <typename J, typename = std::enable_if_t<std::is_same_v<J, I>>>
  static ConstMatrix<MatrixCOO> Borrow(std::int64_t rows, std::int64_t cols, std::int64_t nnz,
                                       J const* rowIdx, I const* colIdx, T const* values) {
    return ConstMatrix<MatrixCOO>(Borrow(rows, cols, nnz, const_cast<I*>(rowIdx),
                                         const_cast<I*>(colIdx), const_cast<T*>(values)));
  }

  // Makes `matrix` a `rows` x `cols` matrix with room for `nnz` entries, uninitialised, from
  // `allocator`, which must outlive it. On a failed status `matrix` is as it was.
  [[nodiscard]] static PavexStatus Create(Allocator& allocator, std::int64_t rows,
                                          std::int64_t cols, std::int64_t nnz, bool withValues,
                                          MatrixCOO& matrix);

  // The length of the index arrays, also without values; 0 if mRows or mCols is 0.
  long NNZ() const override;
  PavexMatrixStoreType StoreType() const override;
  bool HasValues() const override;
  // See MatrixBase. Pass a pointer to another type than below as void*.
  void SetValues(void* values) override;
  // Takes a pointer to T, or to the real type of a complex T.
  template <typename P>
  std::enable_if_t<kHoldsValues<T, P>> SetValues(P* values) {
    SetValues(static_cast<void*>(values));
  }
  // Deleted: a pointer to another type is mostly a mistake.
  template <typename P>
  std::enable_if_t<!kHoldsValues<T, P>> SetValues(P* values) = delete;
  void Query(PavexMatrixStore& store) const override;
};

#define PAVEX_EXTERN(T, I) extern template class MatrixCOO<T, I>;
PAVEX_FOR_EACH_INSTANCE(PAVEX_EXTERN)
#undef PAVEX_EXTERN

static_assert(sizeof(MatrixCOO<double, int>) == 200, "part of the binary interface");

}  // namespace Pavex
