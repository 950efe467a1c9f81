// The sparse LU of UMFPACK: four variants of one interface in C.

#pragma once

#include "tools/solve/solver_input.h"
#include "tools/solve/sparse_lu.h"

#include <memory>
#include <string>

namespace Pavex::Tool {

// T is double or std::complex<double>; complex values are read packed, real part first.
template <typename T, typename I>
class UmfpackLu final : public SparseLu<T, I> {
 public:
  UmfpackLu();
  ~UmfpackLu() override;

  static void Reserve();

  std::string Name() const override;
  void Analyse(MatrixBase const& gathered) override;
  void Factor(MatrixBase const& gathered) override;
  void Solve(DenseView<T const> const& b, DenseView<T> const& x) override;
  std::string Reading() const override { return mInput.Description(); }

 private:
  struct State;

  SolverInput<T, I> mInput;
  std::unique_ptr<State> mState;
};

}  // namespace Pavex::Tool
