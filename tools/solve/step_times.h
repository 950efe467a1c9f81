// The times of the steps of a solve, as the bars of a picture.

#pragma once

#include "tools/solve/solve_report.h"

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace Pavex::Tool {

constexpr std::size_t kTimeParts = 5;
constexpr std::array<char const*, kTimeParts> kTimePartNames = {"gather/update", "analyse",
                                                                "factor", "solve", "scatter"};
// Seconds, in the order of the names.
using TimeParts = std::array<double, kTimeParts>;

TimeParts TimePartsOf(SolveStep const& step);
double Sum(TimeParts const& parts);

struct TimeBars {
  long mSteps = 1;  // each bar is the mean of that many steps, the last one of what is left
  std::vector<TimeParts> mBars;
  TimeParts mTotal = {};  // over all steps
};

// At most `most` bars.
TimeBars BarsOf(std::vector<SolveStep> const& steps, long most);

// The unit that suits `seconds`, the largest of several times.
struct TimeUnit {
  char const* mName;
  double mPerSecond;
};
TimeUnit UnitFor(double seconds);

}  // namespace Pavex::Tool
