// The values of the pieces: those of the input at first, and a little more after each update.

#pragma once

#include "tools/source/triplets.h"

#include <complex>
#include <cstddef>

namespace Pavex::Tool {

// The value of entry `k` of `triplets`, rounded to T. A complex value needs a complex T.
template <typename T>
T InputValue(Triplets const& triplets, std::size_t k) {
  return static_cast<T>(triplets.mReal[k]);
}
template <>
inline std::complex<float> InputValue(Triplets const& triplets, std::size_t k) {
  float const imag = triplets.IsComplex() ? static_cast<float>(triplets.mImag[k]) : 0.0F;
  return {static_cast<float>(triplets.mReal[k]), imag};
}
template <>
inline std::complex<double> InputValue(Triplets const& triplets, std::size_t k) {
  return {triplets.mReal[k], triplets.IsComplex() ? triplets.mImag[k] : 0.0};
}

// The amount that one step adds at a position. It differs between neighbours, so a value at the
// wrong place shows. It is a small whole number.
template <typename T>
T StepIncrement(long row, long col) {
  return static_cast<T>(static_cast<float>(1 + (31 * row + 17 * col) % 61));
}

// `value` after `steps` steps, with the same rounding as adding step by step.
template <typename T>
T AfterSteps(T value, long row, long col, int steps) {
  for (int step = 0; step < steps; ++step)
    value += StepIncrement<T>(row, col);
  return value;
}

// The value of the elements between the runs of a dense piece. No operation may change them.
template <typename T>
T GapValue() {
  return static_cast<T>(-12345.0F);
}

}  // namespace Pavex::Tool
