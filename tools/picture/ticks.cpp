#include "tools/picture/ticks.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace Pavex::Tool {

namespace {

std::string InDigits(double value, int digits) {
  char text[40];
  std::snprintf(text, sizeof text, "%.*g", digits, value);
  return text;
}

// The type of the differences of doubles, which may be too large for a double.
using Wider = long double;

Wider NiceStep(Wider least) {
  Wider const power = std::pow(Wider(10), std::floor(std::log10(least)));
  for (Wider const factor : {1, 2, 5})
    if (factor * power >= least) return factor * power;
  return 10 * power;
}

}  // namespace

std::vector<std::string> Labels(std::vector<double> const& values, int digits) {
  constexpr int kMostDigits = 17;
  std::vector<std::string> labels;
  do {
    labels.clear();
    for (double const value : values)
      labels.push_back(InDigits(value, digits));
  } while (digits++ < kMostDigits &&
           std::adjacent_find(labels.begin(), labels.end()) != labels.end());
  return labels;
}

std::vector<Tick> TicksBetween(double low, double high, int most) {
  if (low == high) return {{low, InDigits(low, 6)}};
  Wider const span = Wider(high) - Wider(low);
  Wider const step = NiceStep(span / (most - 1));
  Wider const slack = 1e-9L;  // part of a step: rounding may move a bound that is a multiple
  Wider const first = std::ceil(low / step - slack);
  auto const steps = static_cast<long>(std::floor(high / step + slack) - first);
  std::vector<double> values;
  for (long k = 0; k <= steps; ++k) {
    Wider const at = (first + static_cast<Wider>(k)) * step;
    double const value = std::clamp(static_cast<double>(at), low, high);
    if (values.empty() || values.back() != value) values.push_back(value == 0 ? 0 : value);
  }
  std::vector<std::string> const labels = Labels(values, 3);
  std::vector<Tick> ticks;
  for (std::size_t k = 0; k < values.size(); ++k)
    ticks.push_back({values[k], labels[k]});
  return ticks;
}

double PartOf(double value, double low, double high) {
  if (low == high) return 0.5;
  return static_cast<double>((Wider(value) - Wider(low)) / (Wider(high) - Wider(low)));
}

}  // namespace Pavex::Tool
