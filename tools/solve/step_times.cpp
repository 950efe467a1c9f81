#include "tools/solve/step_times.h"

#include <algorithm>
#include <numeric>

namespace Pavex::Tool {

TimeParts TimePartsOf(SolveStep const& step) {
  return {step.mOperator.mSeconds + step.mRhs.mSeconds, step.mAnalyseSeconds,
          step.mFactorSeconds, step.mSolveSeconds, step.mScatter.mSeconds};
}

double Sum(TimeParts const& parts) {
  return std::accumulate(parts.begin(), parts.end(), 0.0);
}

TimeBars BarsOf(std::vector<SolveStep> const& steps, long most) {
  auto const count = static_cast<long>(steps.size());
  TimeBars bars;
  bars.mSteps = std::max(1L, (count + most - 1) / most);
  for (long from = 0; from < count; from += bars.mSteps) {
    long const to = std::min(from + bars.mSteps, count);
    TimeParts sum = {};
    for (long k = from; k < to; ++k) {
      TimeParts const parts = TimePartsOf(steps[static_cast<std::size_t>(k)]);
      for (std::size_t part = 0; part < kTimeParts; ++part)
        sum[part] += parts[part];
    }
    for (std::size_t part = 0; part < kTimeParts; ++part) {
      bars.mTotal[part] += sum[part];
      sum[part] /= static_cast<double>(to - from);
    }
    bars.mBars.push_back(sum);
  }
  return bars;
}

TimeUnit UnitFor(double seconds) {
  if (seconds >= 1) return {"s", 1};
  if (seconds >= 1e-3) return {"ms", 1e3};
  return {"\u00b5s", 1e6};
}

}  // namespace Pavex::Tool
