#include "Ticks.hpp"

#include <cmath>

namespace fields {
namespace {

/// The smallest round step of at least that size.
double roundStep(double atLeast, bool degrees) {
  if (degrees && atLeast > 5 && atLeast <= 90) {
    for (const double step : {10.0, 15.0, 30.0, 60.0, 90.0}) {
      if (step >= atLeast) {
        return step;
      }
    }
  }
  const double power = std::pow(10.0, std::floor(std::log10(atLeast)));
  for (const double factor : {1.0, 2.0, 5.0}) {
    if (factor * power >= atLeast * (1 - 1e-9)) {
      return factor * power;
    }
  }
  return 10 * power;
}

} // namespace

std::vector<double> ticks(const Range& range, int count, bool degrees) {
  const double span = range.high - range.low;
  if (!(span > 0) || !std::isfinite(span)) {
    return {range.low};
  }
  const double step = roundStep(span / count, degrees);
  std::vector<double> result;
  const double last = std::floor(range.high / step + 1e-9);
  for (double i = std::ceil(range.low / step - 1e-9); i <= last; ++i) {
    result.push_back(i * step);
  }
  return result;
}

Range roundedRange(const Range& range) {
  if (!(range.high > range.low)) {
    return {range.low - 0.5, range.low + 0.5};
  }
  const double step = roundStep((range.high - range.low) / 20, false);
  return {std::floor(range.low / step + 1e-9) * step, std::ceil(range.high / step - 1e-9) * step};
}

} // namespace fields
