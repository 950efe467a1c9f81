// A dense matrix, row-major or column-major, with a leading dimension.

#pragma once

#include "pavex/matrix/const_matrix.h"
#include "pavex/matrix/instances.h"
#include "pavex/matrix/matrix_base.h"
#include "pavex/runtime/buffer.h"

#include <cstdint>
#include <type_traits>

namespace Pavex {

// Element (i, j) is at index i * mLd + j of mValues if mRowMajor, else at i + j * mLd. Example:
// a 3 x 2 row-major matrix with mLd 4 has its rows at indices 0, 4 and 8. Indices 2, 3, 6 and 7
// lie between the rows and are not part of the matrix.
template <typename T, typename I>
class PAVEX_API MatrixDense : public MatrixBase {
  PAVEX_REQUIRE_INSTANCE(T, I);

 public:
  bool mRowMajor = false;  // values stored row by row
  Buffer<T> mValues;       // (runs - 1) * mLd + run length elements
  std::int64_t mLd = 0;    // elements between the starts of consecutive rows (columns)

  // An empty 0 x 0 matrix.
  MatrixDense();
  MatrixDense(MatrixDense&&) noexcept;
  MatrixDense& operator=(MatrixDense&&) noexcept;
  ~MatrixDense() override;

  // A `rows` x `cols` matrix over the caller's array, which must outlive its use by the matrix.
  // `ld` is at least the run length (columns if `rowMajor`, else rows). A null `values` gives a
  // matrix without values.
  static MatrixDense Borrow(std::int64_t rows, std::int64_t cols, bool rowMajor,
                            std::int64_t ld, T* values);

  // The same over an array that is only read. U is T, a template parameter so that a null
  // pointer means the function above.
  template <typename U, typename = std::enable_if_t<std::is_same_v<U, T>>>
  static ConstMatrix<MatrixDense> Borrow(std::int64_t rows, std::int64_t cols, bool rowMajor,
                                         std::int64_t ld, U const* values) {
    return ConstMatrix<MatrixDense>(Borrow(rows, cols, rowMajor, ld, const_cast<T*>(values)));
  }

  // Makes `matrix` a `rows` x `cols` matrix with ld = run length and uninitialised values from
  // `allocator`, which must outlive it. On a failed status `matrix` is as it was.
  [[nodiscard]] static PavexStatus Create(Allocator& allocator, std::int64_t rows,
                                          std::int64_t cols, bool rowMajor,
                                          MatrixDense& matrix);

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

  // The elements of one contiguous run: a row if row-major, else a column.
  std::int64_t RunLength() const { return mRowMajor ? mCols : mRows; }
  // The number of runs.
  std::int64_t Runs() const { return mRowMajor ? mRows : mCols; }
};

#define PAVEX_EXTERN(T, I) extern template class MatrixDense<T, I>;
PAVEX_FOR_EACH_INSTANCE(PAVEX_EXTERN)
#undef PAVEX_EXTERN

static_assert(sizeof(MatrixDense<double, int>) == 128, "part of the binary interface");

}  // namespace Pavex
