// The problem that `pavex solve` makes from a matrix: values that change in time, and a smooth
// solution that the solver must find.

#pragma once

#include "tools/solve/grid.h"

#include <cmath>
#include <complex>

namespace Pavex::Tool {

// Element k of the matrix at a time step is its input value times the coefficients of its row
// and of its column: D A D with a diagonal D > 0, so that a matrix that can be solved can be
// solved at any time, and a symmetric one stays symmetric. Step 0 is the input itself.
inline double CoefficientAt(long unknown, long unknowns, int step) {
  if (step == 0) return 1;
  double const place = static_cast<double>(unknown) / static_cast<double>(unknowns);
  return 1 + 0.2 * std::sin(6.283185307179586 * place + 0.5 * step);
}

// The bump of the known solution: one over the grid, higher for each further right-hand side.
inline double ExactBump(Grid const& grid, long unknown, long column) {
  double bump = 1;
  for (int axis = 0; axis < grid.mAxes; ++axis) {
    double const place = static_cast<double>(grid.Coordinate(unknown, axis) + 1) /
                         static_cast<double>(grid.mSide + 1);
    bump *= std::sin(3.141592653589793 * place);
  }
  return bump * static_cast<double>(column + 1);
}

template <typename W>
W ExactSolution(Grid const& grid, long unknown, long column) {
  return 1 + ExactBump(grid, unknown, column);
}
template <>
inline std::complex<double> ExactSolution(Grid const& grid, long unknown, long column) {
  double const bump = ExactBump(grid, unknown, column);
  return {1 + bump, bump / 2};
}

}  // namespace Pavex::Tool
