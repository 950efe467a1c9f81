#include "tools/solve/plane.h"

#include <algorithm>

namespace Pavex::Tool {

namespace {

long DividedUp(long count, long by) {
  return (count + by - 1) / by;
}

// The mean of the block whose first point is (x, y).
double Mean(double const* points, long side, long block, long x, long y) {
  long const right = std::min(x + block, side);
  long const top = std::min(y + block, side);
  auto const count = static_cast<double>((right - x) * (top - y));
  double mean = 0;  // not a sum of the values, which could overflow
  for (long row = y; row < top; ++row)
    for (long col = x; col < right; ++col)
      mean += points[row * side + col] / count;
  return mean;
}

}  // namespace

Plane PlaneOf(Grid const& grid, std::vector<double> const& solution, long most) {
  long const side = grid.mSide;
  Plane plane;
  plane.mBlock = DividedUp(side, most);
  plane.mSide = DividedUp(side, plane.mBlock);
  if (grid.mAxes == 3) plane.mZ = side / 2;
  double const* const points = solution.data() + plane.mZ * side * side;
  for (long y = 0; y < side; y += plane.mBlock)
    for (long x = 0; x < side; x += plane.mBlock)
      plane.mValues.push_back(Mean(points, side, plane.mBlock, x, y));
  return plane;
}

Range RangeOf(std::vector<double> const& values) {
  auto const [low, high] = std::minmax_element(values.begin(), values.end());
  return {*low, *high};
}

Runs RunsOf(std::vector<double> const& values, long most) {
  auto const count = static_cast<long>(values.size());
  Runs runs;
  runs.mLength = std::max(1L, DividedUp(count, most));
  for (long from = 0; from < count; from += runs.mLength) {
    auto const first = values.begin() + from;
    auto const last = values.begin() + std::min(from + runs.mLength, count);
    auto const [low, high] = std::minmax_element(first, last);
    runs.mRanges.push_back({*low, *high});
  }
  return runs;
}

}  // namespace Pavex::Tool
