#pragma once

#include "Canvas.hpp"
#include "Ticks.hpp"

#include <string>
#include <vector>

/// @file
/// Charts of one line.

namespace fields {

/// A line over two scales, with a limit across.
struct Chart {
  struct Point {
    double x = 0, y = 0;
  };

  std::string title, subtitle, xTitle, yTitle;
  std::vector<Point> points;
  bool marks = false;       ///< Whether each point has a mark and a number.
  bool logarithmic = false; ///< Whether equal steps to the right are equal factors.
  double limit = 0;         ///< A line across at this height, when it is above 0.
  std::string limitName;

  Pixels draw() const;
};

} // namespace fields
