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
// as many digits as it takes to tell them apart. One mark if low == high. Any finite bounds.
// Example: from 0.9 to 2.1, at most 8: 1, 1.2, 1.4, 1.6, 1.8, 2.
std::vector<Tick> TicksBetween(double low, double high, int most);

// The numbers with at least `digits` significant digits, more if neighbours read alike.
std::vector<std::string> Labels(std::vector<double> const& values, int digits);

// Where `value` lies between low (0) and high (1); 0.5 if they are the same. Any finite bounds.
double PartOf(double value, double low, double high);

}  // namespace Pavex::Tool
