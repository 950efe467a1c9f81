// Measures how well scattered solutions fit. Every rank checks its own rows.

#pragma once

#include "tools/matrix/dense_piece.h"
#include "tools/matrix/piece_product.h"
#include "tools/solve/known_problem.h"
#include "tools/solve/solve_job.h"
#include "tools/solve/solve_report.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace Pavex::Tool {

// The maximum norms of one right-hand side over the rows of one rank, then of all.
struct Maxima {
  double mResidual = 0;
  double mOperator = 0;  // largest row sum of |A|
  double mSolution = 0;
  double mRhs = 0;
  double mComponentwise = 0;
  double mError = 0;
  double mExact = 0;
};

inline double Ratio(double part, double whole) {
  if (part == 0) return 0;
  return whole > 0 ? part / whole : std::numeric_limits<double>::infinity();
}

// The maxima over the rows of `x` and `b`, which are the same rows. `sums` are complete there.
template <typename T, typename I>
Maxima MaximaOf(SolveProblem const& problem, long column, RowSums<T> const& sums,
                DensePiece<T, I> const& x, DensePiece<T, I> const& b) {
  Maxima maxima;
  auto const keep = [](double& largest, double value) { largest = std::max(largest, value); };
  for (long row = b.Begin(); row < b.End(); ++row) {
    Wide<T> const solution(x.At(row, column));
    Wide<T> const right(b.At(row, column));
    std::size_t const at = sums.At(row, column);
    double const residual = std::abs(right - sums.mProduct[at]);
    keep(maxima.mResidual, residual);
    keep(maxima.mOperator, sums.mNorm[static_cast<std::size_t>(row)]);
    keep(maxima.mSolution, std::abs(solution));
    keep(maxima.mRhs, std::abs(right));
    keep(maxima.mComponentwise, Ratio(residual, sums.mAbsolute[at] + std::abs(right)));
    if (problem.mRhs) continue;
    auto const exact = ExactSolution<Wide<T>>(problem.mGrid, row, column);
    keep(maxima.mError, std::abs(solution - exact));
    keep(maxima.mExact, std::abs(exact));
  }
  return maxima;
}

// The accuracy of all ranks together. Collective, with the same result on every rank.
inline Accuracy Judge(Comm const& comm, std::vector<Maxima> const& mine) {
  constexpr std::size_t kNumbers = sizeof(Maxima) / sizeof(double);
  std::vector<Maxima> all(mine.size());
  Require(comm.Allreduce(mine.data(), all.data(), static_cast<int>(kNumbers * mine.size()),
                         DATATYPE_DOUBLE, REDUCE_MAX),
          "the exchange of the residuals", comm);
  Accuracy accuracy;
  for (Maxima const& maxima : all) {
    double const scale = maxima.mOperator * maxima.mSolution + maxima.mRhs;
    accuracy.mNormwise = std::max(accuracy.mNormwise, Ratio(maxima.mResidual, scale));
    accuracy.mComponentwise = std::max(accuracy.mComponentwise, maxima.mComponentwise);
    accuracy.mError = std::max(accuracy.mError, Ratio(maxima.mError, maxima.mExact));
  }
  return accuracy;
}

}  // namespace Pavex::Tool
