// The part of a solution that a picture shows: a plane of a grid, or the components in a row.

#pragma once

#include "tools/solve/grid.h"

#include <cstddef>
#include <vector>

namespace Pavex::Tool {

// A plane of a grid of 2 or 3 axes: the first axis goes to the right, the second one up. With 3
// axes it is the plane in the middle of the last one.
struct Plane {
  long mSide = 0;   // values along each of its axes
  long mBlock = 1;  // each is the mean of that many points along both axes; less at the ends
  long mZ = 0;      // of 3 axes: the index along the last one
  std::vector<double> mValues;

  double At(long x, long y) const { return mValues[static_cast<std::size_t>(y * mSide + x)]; }
};

// The plane of `solution` with at most `most` values along an axis.
Plane PlaneOf(Grid const& grid, std::vector<double> const& solution, long most);

struct Range {
  double mLow;
  double mHigh;
};

// The least and the largest of `values`, which are not empty.
Range RangeOf(std::vector<double> const& values);

// The ranges of runs of neighbours. There are at most `most` runs, which are as short as that
// allows. All have the same length except the last one.
struct Runs {
  long mLength = 1;
  std::vector<Range> mRanges;
};
Runs RunsOf(std::vector<double> const& values, long most);

}  // namespace Pavex::Tool
