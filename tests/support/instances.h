// The instantiations of the library as GoogleTest types.

#pragma once

#include <complex>
#include <gtest/gtest.h>

namespace Pavex {

// One pair of value and index type.
template <typename T, typename I>
struct Instance {
  using Value = T;
  using Index = I;
};

// TYPED_TEST_SUITE(MyTest, AllInstances); in its tests: typename TypeParam::Value.
using AllInstances =
    ::testing::Types<Instance<float, int>, Instance<float, long>, Instance<double, int>,
                     Instance<double, long>, Instance<std::complex<float>, int>,
                     Instance<std::complex<float>, long>, Instance<std::complex<double>, int>,
                     Instance<std::complex<double>, long>>;

}  // namespace Pavex
