#pragma once

#include <vector>

/// @file
/// Round numbers for scales.

namespace fields {

/// A range of values.
struct Range {
  double low = 0, high = 1;
};

/// Round numbers within a range, in equal steps, about `count` of them. `degrees` prefers parts of
/// the circle.
std::vector<double> ticks(const Range& range, int count, bool degrees = false);

/// The range widened to round ends; never empty.
Range roundedRange(const Range& range);

} // namespace fields
