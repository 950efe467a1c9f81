// The local piece of a distributed matrix, as one process holds it.

#pragma once

#include "pavex/matrix/partition.h"
#include "pavex/matrix/store.h"
#include "pavex/runtime/export.h"

#include <complex>
#include <cstdint>
#include <type_traits>

namespace Pavex {

// The codes of the value types in mValueType.
template <typename T>
struct ValueTypeOf;
template <>
struct ValueTypeOf<float> {
  static constexpr std::int32_t kCode = 0;
};
template <>
struct ValueTypeOf<double> {
  static constexpr std::int32_t kCode = 1;
};
template <>
struct ValueTypeOf<std::complex<float>> {
  static constexpr std::int32_t kCode = 2;
};
template <>
struct ValueTypeOf<std::complex<double>> {
  static constexpr std::int32_t kCode = 3;
};

// The codes of the index types.
template <typename I>
struct IndexTypeOf;
template <>
struct IndexTypeOf<int> {
  static constexpr std::int32_t kCode = 0;
};
template <>
struct IndexTypeOf<long> {
  static constexpr std::int32_t kCode = 1;
};

// Whether an array of P contains values of type T: as T, or as alternating real and imaginary
// parts of a complex T.
template <typename T, typename P>
inline constexpr bool kHoldsValues = std::is_same_v<P, T> || std::is_same_v<std::complex<P>, T>;

// The base of every storage class: the shape, the type codes and the place in the global
// matrix. Abstract; movable, not copyable; all members are public. The order of the members and
// of the virtual functions is fixed: see docs/compatibility.md. Every operation is local.
class PAVEX_API MatrixBase {
 public:
  std::int64_t mRows = 0;        // rows of the local piece
  std::int64_t mCols = 0;        // columns of the local piece
  std::int32_t mValueType = 0;   // ValueTypeOf<T>::kCode
  std::int32_t mIndexType = 0;   // IndexTypeOf<I>::kCode
  std::int32_t mPattern = 0;     // the application's code; equal on all processes
  std::int32_t mAttribute = 0;   // the application's code; equal on all processes
  std::int64_t mGlobalRows = 0;  // rows of the whole matrix
  std::int64_t mGlobalCols = 0;  // columns of the whole matrix
  MatrixPartition mPartition;    // how the piece sits in the whole matrix

  virtual ~MatrixBase();

  // Stored entries of the local piece.
  virtual long NNZ() const = 0;

  // The store type. It follows from the storage class and its part code or order of elements.
  virtual PavexMatrixStoreType StoreType() const = 0;

  // Whether there are value elements. Without them the matrix is a pattern. It looks at their
  // number only, so it is true after SetValues(nullptr) if the matrix has entries. Fixed: see
  // docs/compatibility.md.
  virtual bool HasValues() const = 0;

  // Makes the matrix use the caller's value array. The caller keeps it alive, and the matrix
  // never frees it. A value array that the matrix owned is freed at once. `values` points to
  // NNZ() elements of T, or for a dense matrix to all its runs with their leading dimension.
  // The pointer is not checked; the storage classes take no pointer to another type.
  virtual void SetValues(void* values) = 0;

  // Fills `rows`, `cols`, `type` and the view of the matrix's kind. It writes nothing else of
  // `store`. Fixed: see docs/compatibility.md.
  virtual void Query(PavexMatrixStore& store) const = 0;

  // Declares the matrix a piece of a `globalRows` x `globalCols` matrix.
  void PlaceIn(std::int64_t globalRows, std::int64_t globalCols, MatrixPartition partition) {
    mGlobalRows = globalRows;
    mGlobalCols = globalCols;
    mPartition = partition;
  }

 protected:
  // Keeps the initial values above. A class of the application sets the codes of its element
  // types itself.
  MatrixBase() = default;
  // The codes of the element types of the derived class.
  MatrixBase(std::int32_t valueType, std::int32_t indexType)
      : mValueType(valueType), mIndexType(indexType) {}
  MatrixBase(MatrixBase&&) = default;
  MatrixBase& operator=(MatrixBase&&) = default;

  // Gives a new matrix its shape. It is the whole matrix until PlaceIn makes it a piece.
  void SetShape(std::int64_t rows, std::int64_t cols) {
    mRows = mGlobalRows = rows;
    mCols = mGlobalCols = cols;
  }
};

static_assert(sizeof(MatrixBase) == 72, "part of the binary interface");

}  // namespace Pavex
