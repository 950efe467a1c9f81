// The element types of messages.

#pragma once

#include "pavex/runtime/export.h"

#include <complex>
#include <cstddef>
#include <cstdint>

namespace Pavex {

// Element types that every Comm understands. Counts are in elements of the type; for
// DATATYPE_BYTE that is bytes.
enum Datatype : std::int32_t {
  DATATYPE_BYTE = 0,
  DATATYPE_INT = 1,
  DATATYPE_LONG = 2,
  DATATYPE_FLOAT = 3,
  DATATYPE_DOUBLE = 4,
  DATATYPE_COMPLEX_FLOAT = 5,
  DATATYPE_COMPLEX_DOUBLE = 6
};

// Bytes of one element; 0 for a value outside the enumeration.
PAVEX_API std::size_t DatatypeSize(Datatype type) noexcept;

// The Datatype of a C++ element type.
template <typename T>
struct DatatypeOf;
template <>
struct DatatypeOf<int> {
  static constexpr Datatype kValue = DATATYPE_INT;
};
template <>
struct DatatypeOf<long> {
  static constexpr Datatype kValue = DATATYPE_LONG;
};
template <>
struct DatatypeOf<float> {
  static constexpr Datatype kValue = DATATYPE_FLOAT;
};
template <>
struct DatatypeOf<double> {
  static constexpr Datatype kValue = DATATYPE_DOUBLE;
};
template <>
struct DatatypeOf<std::complex<float>> {
  static constexpr Datatype kValue = DATATYPE_COMPLEX_FLOAT;
};
template <>
struct DatatypeOf<std::complex<double>> {
  static constexpr Datatype kValue = DATATYPE_COMPLEX_DOUBLE;
};

}  // namespace Pavex
