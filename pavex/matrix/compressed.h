// The common base of compressed row and compressed column storage.

#pragma once

#include "pavex/matrix/const_matrix.h"
#include "pavex/matrix/instances.h"
#include "pavex/matrix/matrix_base.h"
#include "pavex/runtime/buffer.h"

#include <cstdint>
#include <type_traits>

namespace Pavex {

// The base of MatrixCSR and MatrixCSC; M is one of them. "Lines" are the rows of a CSR and the
// columns of a CSC. M names three arrays: the offsets (one more than there are lines), the
// index of each entry within its line, and the values (empty for a pattern).
//
// Line i has the entries from offset[i] - offset[0] up to, but not including, offset[i + 1] -
// offset[0]. The offsets may start at any base. In a distributed matrix the indices are global.
template <typename M, typename T, typename I>
class PAVEX_API MatrixCompressed : public MatrixBase {
  PAVEX_REQUIRE_INSTANCE(T, I);

 public:
  std::int32_t mPart = 0;  // part code 0, 1 or 2

  // A `rows` x `cols` matrix over the caller's arrays, which must outlive their use by the
  // matrix: an offset more than there are lines, whose last minus first is the number of
  // entries, and that many indices and values. A null `values` gives a pattern.
  static M Borrow(std::int64_t rows, std::int64_t cols, I* offsets, I* indices, T* values);

  // The same over arrays that are only read. J is I. It is a template parameter so that a call
  // with null pointers only means the function above.
  template <typename J, typename = std::enable_if_t<std::is_same_v<J, I>>>
  static ConstMatrix<M> Borrow(std::int64_t rows, std::int64_t cols, J const* offsets,
                               I const* indices, T const* values) {
    return ConstMatrix<M>(Borrow(rows, cols, const_cast<I*>(offsets), const_cast<I*>(indices),
                                 const_cast<T*>(values)));
  }

  // Makes `matrix` a `rows` x `cols` matrix with room for `nnz` entries, uninitialised, from
  // `allocator`, which must outlive it. On a failed status `matrix` is as it was.
  [[nodiscard]] static PavexStatus Create(Allocator& allocator, std::int64_t rows,
                                          std::int64_t cols, std::int64_t nnz, bool withValues,
                                          M& matrix);

  // The last minus the first offset; 0 without offsets, or if mRows or mCols is 0.
  long NNZ() const override;

  // See MatrixBase.
  PavexMatrixStoreType StoreType() const override;
  // See MatrixBase.
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
  // See MatrixBase.
  void Query(PavexMatrixStore& store) const override;

 protected:
  // An empty 0 x 0 matrix.
  MatrixCompressed() : MatrixBase(ValueTypeOf<T>::kCode, IndexTypeOf<I>::kCode) {}
  MatrixCompressed(MatrixCompressed&&) noexcept = default;
  MatrixCompressed& operator=(MatrixCompressed&&) noexcept = default;
};

}  // namespace Pavex
