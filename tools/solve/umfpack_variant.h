// The four variants of UMFPACK under one set of names.

#pragma once

#include <complex>
#include <umfpack.h>

namespace Pavex::Tool {

// Umfpack<T, I>: `n` unknowns, compressed columns (ptr, idx, values), and the statuses and
// arrays of UMFPACK. Complex values are packed: the array of imaginary parts is null.
template <typename T, typename I>
struct Umfpack;

#define PAVEX_PARTS_REAL(values) values
#define PAVEX_PARTS_COMPLEX(values) reinterpret_cast<double const*>(values), nullptr
#define PAVEX_OUT_REAL(values) values
#define PAVEX_OUT_COMPLEX(values) reinterpret_cast<double*>(values), nullptr

// NOLINTBEGIN(bugprone-macro-parentheses): T and I are types
#define PAVEX_UMFPACK_VARIANT(T, I, PREFIX, PARTS)                                             \
  template <>                                                                                  \
  struct Umfpack<T, I> {                                                                       \
    static constexpr char const* kName = #PREFIX;                                              \
    static void Defaults(double* control) { PREFIX##_defaults(control); }                      \
    static long Symbolic(I n, I const* ptr, I const* idx, T const* values, void** symbolic,    \
                         double const* control, double* info) {                                \
      return PREFIX##_symbolic(n, n, ptr, idx, PAVEX_PARTS_##PARTS(values), symbolic, control, \
                               info);                                                          \
    }                                                                                          \
    static long Numeric(I const* ptr, I const* idx, T const* values, void* symbolic,           \
                        void** numeric, double const* control, double* info) {                 \
      return PREFIX##_numeric(ptr, idx, PAVEX_PARTS_##PARTS(values), symbolic, numeric,        \
                              control, info);                                                  \
    }                                                                                          \
    static long Solve(int system, I const* ptr, I const* idx, T const* values, T* x,           \
                      T const* b, void* numeric, double const* control, double* info) {        \
      return PREFIX##_solve(system, ptr, idx, PAVEX_PARTS_##PARTS(values),                     \
                            PAVEX_OUT_##PARTS(x), PAVEX_PARTS_##PARTS(b), numeric, control,    \
                            info);                                                             \
    }                                                                                          \
    static void FreeSymbolic(void** symbolic) { PREFIX##_free_symbolic(symbolic); }            \
    static void FreeNumeric(void** numeric) { PREFIX##_free_numeric(numeric); }                \
  };
// NOLINTEND(bugprone-macro-parentheses)

PAVEX_UMFPACK_VARIANT(double, int, umfpack_di, REAL)
PAVEX_UMFPACK_VARIANT(double, long, umfpack_dl, REAL)
PAVEX_UMFPACK_VARIANT(std::complex<double>, int, umfpack_zi, COMPLEX)
PAVEX_UMFPACK_VARIANT(std::complex<double>, long, umfpack_zl, COMPLEX)

#undef PAVEX_UMFPACK_VARIANT
#undef PAVEX_OUT_COMPLEX
#undef PAVEX_OUT_REAL
#undef PAVEX_PARTS_COMPLEX
#undef PAVEX_PARTS_REAL

}  // namespace Pavex::Tool
