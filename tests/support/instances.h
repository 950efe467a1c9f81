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

// The instances on which typed tests run. Trees in which every test takes much longer use two
// of them. Example: TYPED_TEST_SUITE(MyTest, AllInstances), then typename TypeParam::Value.
#ifdef PAVEX_TWO_INSTANCES
using AllInstances =
    ::testing::Types<Instance<double, int>, Instance<std::complex<float>, long>>;
#else
using AllInstances =
    ::testing::Types<Instance<float, int>, Instance<float, long>, Instance<double, int>,
                     Instance<double, long>, Instance<std::complex<float>, int>,
                     Instance<std::complex<float>, long>, Instance<std::complex<double>, int>,
                     Instance<std::complex<double>, long>>;
#endif

template <typename... Lists>
struct Joined;
template <typename... A, typename... B, typename... Rest>
struct Joined<::testing::Types<A...>, ::testing::Types<B...>, Rest...>
    : Joined<::testing::Types<A..., B...>, Rest...> {};
template <typename... A>
struct Joined<::testing::Types<A...>> {
  using Types = ::testing::Types<A...>;
};

template <template <typename, typename> class Class, typename List>
struct Applied;
template <template <typename, typename> class Class, typename... Instances>
struct Applied<Class, ::testing::Types<Instances...>> {
  using Types =
      ::testing::Types<Class<typename Instances::Value, typename Instances::Index>...>;
};

// Every instance of each of the class templates.
template <template <typename, typename> class... Classes>
using EveryInstanceOf =
    typename Joined<typename Applied<Classes, AllInstances>::Types...>::Types;

}  // namespace Pavex
