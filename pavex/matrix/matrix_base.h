// The local piece of a distributed matrix, as one process holds it.

#pragma once

#include "pavex/matrix/partition.h"
#include "pavex/matrix/store.h"
#include "pavex/runtime/export.h"

#include <complex>
#include <cstdint>
#include <type_traits>

namespace Pavex {

// Codes of the element types in mValueType and mIndexType.
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

// The same for the index types.
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

// Whether an array of P holds values of type T: as T, or as the real and imaginary parts of a
// complex T in turn.
template <typename T, typename P>
inline constexpr bool kHoldsValues = std::is_same_v<P, T> || std::is_same_v<std::complex<P>, T>;

// What every storage class shares: the shape, the type codes and the place in the global
// matrix. Abstract; movable, not copyable; all members are public. The order of the members and
// of the virtual functions is part of the binary interface. Every operation is local.
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

  // The store type, formed of the storage class and what it reports of itself (part code or
  // order of the elements).
  virtual PavexMatrixStoreType StoreType() const = 0;

  // Whether there are value elements; without them the matrix carries its pattern only. Tells
  // their number alone: true after SetValues(nullptr) if the matrix has entries.
  virtual bool HasValues() const = 0;

  // Makes the matrix use the caller's value array, which the caller keeps alive and which is
  // never freed by the matrix; a value array that the matrix owned is freed at once. `values`
  // points to NNZ() elements of T, or for a dense matrix to all its runs with their leading
  // dimension. The pointer is not checked; the storage classes take no pointer to another type.
  virtual void SetValues(void* values) = 0;

  // Fills `rows`, `cols`, `type` and the view of the matrix's kind, and nothing else of
  // `store`.
  virtual void Query(PavexMatrixStore& store) const = 0;

  // Declares the matrix a piece of a `globalRows` x `globalCols` matrix.
  void PlaceIn(std::int64_t globalRows, std::int64_t globalCols, MatrixPartition partition) {
    mGlobalRows = globalRows;
    mGlobalCols = globalCols;
    mPartition = partition;
  }

 protected:
  // A class of the application may start with the members as they are here, and sets the codes
  // of its element types.
  MatrixBase() = default;
  // The codes of the element types of the derived class.
  MatrixBase(std::int32_t valueType, std::int32_t indexType)
      : mValueType(valueType), mIndexType(indexType) {}
  MatrixBase(MatrixBase&&) = default;
  MatrixBase& operator=(MatrixBase&&) = default;

  // Gives a new matrix its shape; until it is placed elsewhere it is the whole matrix.
  void SetShape(std::int64_t rows, std::int64_t cols) {
    mRows = mGlobalRows = rows;
    mCols = mGlobalCols = cols;
  }
};

static_assert(sizeof(MatrixBase) == 72, "part of the binary interface");

}  // namespace Pavex
