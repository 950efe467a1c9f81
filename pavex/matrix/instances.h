// The one list of the value and index types for which every template of the library is
// compiled.

#pragma once

#include <complex>

#define PAVEX_FOR_EACH_INSTANCE(DO) \
  DO(float, int)                    \
  DO(float, long)                   \
  DO(double, int)                   \
  DO(double, long)                  \
  DO(std::complex<float>, int)      \
  DO(std::complex<float>, long)     \
  DO(std::complex<double>, int)     \
  DO(std::complex<double>, long)
