// The grid points of the unknowns of a generated problem.

#pragma once

#include <string>

namespace Pavex::Tool {

// mSide points along each of mAxes axes; unknown i is the point whose coordinate along axis a
// is i / mSide^a % mSide. Unknowns of any other problem stand in one line.
struct Grid {
  long mSide = 0;
  int mAxes = 1;

  long Coordinate(long unknown, int axis) const {
    for (int a = 0; a < axis; ++a)
      unknown /= mSide;
    return unknown % mSide;
  }
};

// Of KIND:SIZE where the generator makes a grid, else (empty for a file) a line of `unknowns`.
Grid GridOf(std::string const& generate, long unknowns);

}  // namespace Pavex::Tool
