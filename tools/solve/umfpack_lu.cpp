#include "tools/solve/umfpack_lu.h"

#include "tools/solve/blas.h"
#include "tools/solve/lu_faults.h"
#include "tools/solve/umfpack_variant.h"

#include <complex>
#include <string>

namespace Pavex::Tool {

namespace {

[[noreturn]] void Fail(long status, std::string const& function) {
  if (status == UMFPACK_ERROR_out_of_memory) throw JobError(kNoMemory);
  if (status == UMFPACK_WARNING_singular_matrix)
    throw JobError(std::string(kSingular) + "UMFPACK met a zero pivot");
  throw JobError(function + " failed with status " + std::to_string(status));
}

}  // namespace

template <typename T, typename I>
struct UmfpackLu<T, I>::State {
  using Variant = Umfpack<T, I>;

  State() { Variant::Defaults(mControl); }
  State(State const&) = delete;
  State& operator=(State const&) = delete;
  ~State() {
    Variant::FreeNumeric(&mNumeric);
    Variant::FreeSymbolic(&mSymbolic);
  }

  // Throws JobError for a failure, and also for a warning.
  static void Require(long status, char const* function) {
    if (status != UMFPACK_OK) Fail(status, std::string(Variant::kName) + function);
  }

  double mControl[UMFPACK_CONTROL] = {};
  double mInfo[UMFPACK_INFO] = {};
  void* mSymbolic = nullptr;
  void* mNumeric = nullptr;
};

template <typename T, typename I>
UmfpackLu<T, I>::UmfpackLu() : mState(std::make_unique<State>()) {}

template <typename T, typename I>
UmfpackLu<T, I>::~UmfpackLu() = default;

template <typename T, typename I>
void UmfpackLu<T, I>::Reserve() {
  ReserveBlas();
}

template <typename T, typename I>
std::string UmfpackLu<T, I>::Name() const {
  return "UMFPACK " + std::to_string(UMFPACK_MAIN_VERSION) + "." +
         std::to_string(UMFPACK_SUB_VERSION) + "." + std::to_string(UMFPACK_SUBSUB_VERSION) +
         ", " + State::Variant::kName;
}

template <typename T, typename I>
void UmfpackLu<T, I>::Analyse(MatrixBase const& gathered) {
  mInput.Read(gathered);
  auto const columns = mInput.View();
  State::Variant::FreeSymbolic(&mState->mSymbolic);
  State::Require(
      State::Variant::Symbolic(static_cast<I>(columns.cols()), columns.outerIndexPtr(),
                               columns.innerIndexPtr(), columns.valuePtr(), &mState->mSymbolic,
                               mState->mControl, mState->mInfo),
      "_symbolic");
}

template <typename T, typename I>
void UmfpackLu<T, I>::Factor(MatrixBase const& gathered) {
  mInput.Read(gathered);
  auto const columns = mInput.View();
  State::Variant::FreeNumeric(&mState->mNumeric);
  BlasTurn const turn;
  State::Require(State::Variant::Numeric(columns.outerIndexPtr(), columns.innerIndexPtr(),
                                         columns.valuePtr(), mState->mSymbolic,
                                         &mState->mNumeric, mState->mControl, mState->mInfo),
                 "_numeric");
}

template <typename T, typename I>
void UmfpackLu<T, I>::Solve(DenseView<T const> const& b, DenseView<T> const& x) {
  auto const columns = mInput.View();
  // The array transpose: the conjugate one would be UMFPACK_At for complex values.
  int const system = mInput.IsTransposed() ? UMFPACK_Aat : UMFPACK_A;
  for (long j = 0; j < b.mCount; ++j)
    State::Require(
        State::Variant::Solve(system, columns.outerIndexPtr(), columns.innerIndexPtr(),
                              columns.valuePtr(), x.Column(j), b.Column(j), mState->mNumeric,
                              mState->mControl, mState->mInfo),
        "_solve");
}

template class UmfpackLu<double, int>;
template class UmfpackLu<double, long>;
template class UmfpackLu<std::complex<double>, int>;
template class UmfpackLu<std::complex<double>, long>;

}  // namespace Pavex::Tool
