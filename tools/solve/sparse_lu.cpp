#include "tools/solve/sparse_lu.h"

#include "pavex/matrix/instances.h"
#include "tools/solve/eigen_lu.h"
#ifdef PAVEX_UMFPACK
#include "tools/solve/umfpack_lu.h"
#endif

#include <complex>
#include <type_traits>

namespace Pavex::Tool {

namespace {

#ifdef PAVEX_UMFPACK
template <typename T, typename I>
using BestLu =
    std::conditional_t<std::is_same_v<T, double> || std::is_same_v<T, std::complex<double>>,
                       UmfpackLu<T, I>, EigenLu<T, I>>;
#else
template <typename T, typename I>
using BestLu = EigenLu<T, I>;
#endif

}  // namespace

template <typename T, typename I>
std::unique_ptr<SparseLu<T, I>> MakeSparseLu() {
  return std::make_unique<BestLu<T, I>>();
}

template <typename T, typename I>
void ReserveSparseLu() {
  BestLu<T, I>::Reserve();
}

std::string SolversAndLicence() {
#ifdef PAVEX_UMFPACK
  return "solves with UMFPACK and Eigen; with UMFPACK in it, this program is under the GPL 3";
#else
  return "solves with Eigen";
#endif
}

// NOLINTBEGIN(bugprone-macro-parentheses): T and I are types
#define PAVEX_MAKE(T, I)                                         \
  template std::unique_ptr<SparseLu<T, I>> MakeSparseLu<T, I>(); \
  template void ReserveSparseLu<T, I>();
PAVEX_FOR_EACH_INSTANCE(PAVEX_MAKE)
// NOLINTEND(bugprone-macro-parentheses)
#undef PAVEX_MAKE

}  // namespace Pavex::Tool
