// The sparse LU of Eigen.

#pragma once

#include "tools/solve/lu_faults.h"
#include "tools/solve/solver_input.h"
#include "tools/solve/sparse_lu.h"

#include <Eigen/SparseCore>
#include <memory>
#include <new>
#include <string>

// If memory runs out, SparseLU would catch the exception and use arrays that it has just freed.
// Without this macro it lets the exception pass.
#pragma push_macro("EIGEN_EXCEPTIONS")
#undef EIGEN_EXCEPTIONS
#include <Eigen/SparseLU>
#pragma pop_macro("EIGEN_EXCEPTIONS")

namespace Pavex::Tool {

// The solver for every type. It works on its own copy of what SolverInput shows.
template <typename T, typename I>
class EigenLu final : public SparseLu<T, I> {
 public:
  static void Reserve() {}
  std::string Name() const override;
  void Analyse(MatrixBase const& gathered) override;
  void Factor(MatrixBase const& gathered) override;
  void Solve(DenseView<T const> const& b, DenseView<T> const& x) override;
  std::string Reading() const override { return mInput.Description(); }

 private:
  using Columns = typename SolverInput<T, I>::Columns;
  using Vector = Eigen::Matrix<T, Eigen::Dynamic, 1>;

  using Factors = Eigen::SparseLU<Columns, Eigen::COLAMDOrdering<I>>;

  Vector SolveOnce(Vector const& b);
  Vector Residual(Vector const& b, Vector const& x) const;

  SolverInput<T, I> mInput;
  std::unique_ptr<Factors> mFactors;
};

template <typename T, typename I>
std::string EigenLu<T, I>::Name() const {
  return "SparseLU of Eigen " + std::to_string(EIGEN_WORLD_VERSION) + "." +
         std::to_string(EIGEN_MAJOR_VERSION) + "." + std::to_string(EIGEN_MINOR_VERSION);
}

template <typename T, typename I>
void EigenLu<T, I>::Analyse(MatrixBase const& gathered) {
  mInput.Read(gathered);
  mFactors = std::make_unique<Factors>();
  mFactors->analyzePattern(mInput.View());
}

template <typename T, typename I>
void EigenLu<T, I>::Factor(MatrixBase const& gathered) {
  mInput.Read(gathered);
  try {
    mFactors->factorize(mInput.View());
  } catch (std::bad_alloc const&) {
    (void)mFactors.release();  // its destructor would free an array twice
    throw JobError(kNoMemory);
  }
  if (mFactors->info() != Eigen::Success)
    throw JobError(std::string(kSingular) + "SparseLU met a zero pivot");
}

template <typename T, typename I>
typename EigenLu<T, I>::Vector EigenLu<T, I>::SolveOnce(Vector const& b) {
  if (mInput.IsTransposed()) return mFactors->transpose().solve(b);
  return mFactors->solve(b);
}

template <typename T, typename I>
typename EigenLu<T, I>::Vector EigenLu<T, I>::Residual(Vector const& b, Vector const& x) const {
  Columns const columns = mInput.View();
  if (mInput.IsTransposed()) return b - columns.transpose() * x;
  return b - columns * x;
}

template <typename T, typename I>
void EigenLu<T, I>::Solve(DenseView<T const> const& b, DenseView<T> const& x) {
  constexpr int kRefinements = 2;
  for (long j = 0; j < b.mCount; ++j) {
    Vector const right = Eigen::Map<Vector const>(b.Column(j), b.mRows);
    Vector solution = SolveOnce(right);
    for (int step = 0; step < kRefinements; ++step)
      solution += SolveOnce(Residual(right, solution));
    Eigen::Map<Vector>(x.Column(j), x.mRows) = solution;
  }
}

}  // namespace Pavex::Tool
