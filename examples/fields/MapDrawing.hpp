#pragma once

#include "Canvas.hpp"
#include "ColourMap.hpp"
#include "Plane.hpp"
#include "Region.hpp"

#include <string>

/// @file
/// Draws a plane as a map with axes and legend.

namespace fields {

/// Where the parts of a picture lie. It depends on the axes alone, so it is known beforehand.
struct Layout {
  /// `longest` is the longer side of the part with the data, in pixels.
  Layout(const Axis& x, const Axis& y, int longest);

  int width = 0, height = 0;
  Rectangle plot;
};

/// Draws the scale of a colour map along the left edge of `area`, with its unit.
void drawLegend(Canvas& canvas, const Rectangle& area, const ColourMap& map,
                const std::string& unit);

/// What is drawn beside the values.
struct MapExtras {
  const Plane* right = nullptr; ///< With `up`: arrows.
  const Plane* up = nullptr;
  const Region* region = nullptr;
  std::string origin; ///< The line at the foot.
};

/// The picture: title, time and place, values, axes with labels, legend.
Pixels drawMap(const Plane& plane, const ColourMap& map, const Layout& layout,
               const MapExtras& extras);

} // namespace fields
