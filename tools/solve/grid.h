// The grid points of the unknowns of a generated problem.

#pragma once

#include <string>

namespace Pavex::Tool {

// mSide points along each of mAxes axes; unknown i is the point whose coordinate along axis a
// is i / mSide^a % mSide. Unknowns of any other problem form one line.
struct Grid {
  long mSide = 0;
  int mAxes = 1;

  long Coordinate(long unknown, int axis) const {
    for (int a = 0; a < axis; ++a)
      unknown /= mSide;
    return unknown % mSide;
  }
};

// The grid of the generator KIND:SIZE. A line of `unknowns` points if that makes no grid, or if
// `generate` is empty because the problem comes from a file.
Grid GridOf(std::string const& generate, long unknowns);

}  // namespace Pavex::Tool
