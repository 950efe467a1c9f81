// The only list of the value and index types for which the library compiles its templates.

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

namespace Pavex {

// Whether the library contains its templates for T and I.
template <typename T, typename I>
inline constexpr bool kIsInstance = false;

#define PAVEX_IS_INSTANCE(T, I) \
  template <>                   \
  inline constexpr bool kIsInstance<T, I> = true;
PAVEX_FOR_EACH_INSTANCE(PAVEX_IS_INSTANCE)
#undef PAVEX_IS_INSTANCE

}  // namespace Pavex

// A member of every class template of the library: other types do not compile. Without it the
// linker would report each missing function.
#define PAVEX_REQUIRE_INSTANCE(T, I)                                                    \
  static_assert(Pavex::kIsInstance<T, I>,                                               \
                "Pavex contains the value types float, double, std::complex<float> "    \
                "and std::complex<double> with the index types int and long; use long " \
                "for 64-bit indices, also in place of long long")
