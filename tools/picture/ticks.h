// The marks of an axis.

#pragma once

#include <string>
#include <vector>

namespace Pavex::Tool {

struct Tick {
  double mValue;
  std::string mLabel;
};

// At most `most` (3 or more) multiples of 1, 2 or 5 times a power of ten in [low, high], with
// as many digits as make them differ. One mark if low == high. The bounds are any finite
// numbers. Example: from 0.9 to 2.1, at most 8: 1, 1.2, 1.4, 1.6, 1.8, 2.
std::vector<Tick> TicksBetween(double low, double high, int most);

// The numbers with at least `digits` significant digits, and more if neighbours look the same.
std::vector<std::string> Labels(std::vector<double> const& values, int digits);

// Where `value` is between `low` (0) and `high` (1); 0.5 if those are equal. The bounds are any
// finite numbers.
double PartOf(double value, double low, double high);

}  // namespace Pavex::Tool
