// What stands in the value arrays of the pieces: the input at first, then a little more with
// each update.

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

// What one step adds at a position: it differs between neighbours, so that a value at the wrong
// place shows, and is a small whole number.
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

// What the elements between the runs of a dense piece hold; nothing may ever change them.
template <typename T>
T GapValue() {
  return static_cast<T>(-12345.0F);
}

}  // namespace Pavex::Tool
