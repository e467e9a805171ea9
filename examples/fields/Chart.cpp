#include "Chart.hpp"

#include "data/Axis.hpp"

#include <algorithm>
#include <cmath>

namespace fields {

Pixels Chart::draw() const {
  constexpr Rectangle Plot{80, 60, 660, 320};
  Canvas canvas(800, 440);
  const auto scaled = [this](double x) { return logarithmic ? std::log2(std::max(x, 1e-9)) : x; };
  Range across{1e300, -1e300}, up{0, limit * 1.1};
  for (const Point& point : points) {
    across = {std::min(across.low, scaled(point.x)), std::max(across.high, scaled(point.x))};
    up.high = std::max(up.high, point.y * 1.1);
  }
  if (!(across.high > across.low)) {
    across = {across.low - 0.5, across.low + 0.5};
  }
  if (marks) { // room for the numbers at the first and the last
    const double margin = (across.high - across.low) * 0.05;
    across = {across.low - margin, across.high + margin};
  }
  up.high = up.high > 0 ? up.high : 1;
  const auto pixelX = [&](double x) {
    return Plot.x + (scaled(x) - across.low) / (across.high - across.low) * (Plot.width - 1);
  };
  const auto pixelY = [&](double y) { return Plot.y + (1 - y / up.high) * (Plot.height - 1); };

  for (const double y : ticks(up, 6)) {
    const int at = static_cast<int>(std::lround(pixelY(y)));
    canvas.fill({Plot.x, at, Plot.width, 1}, LightGrey);
    canvas.text(Plot.x - 8, at - 3, numberText(y), Black, Align::Right);
  }
  for (const double tick : ticks(across, 8)) {
    const double x = logarithmic ? std::exp2(tick) : tick;
    const int at = static_cast<int>(std::lround(pixelX(x)));
    canvas.fill({at, Plot.y, 1, Plot.height + 5}, LightGrey);
    canvas.text(at, Plot.y + Plot.height + 10, numberText(x), Black, Align::Centre);
  }
  canvas.frame(Plot, Black);
  for (std::size_t i = 1; i < points.size(); ++i) {
    for (const double thick : {0.0, 1.0}) {
      canvas.line(pixelX(points[i - 1].x), pixelY(points[i - 1].y) + thick, pixelX(points[i].x),
                  pixelY(points[i].y) + thick, Blue);
    }
  }
  for (std::size_t i = 0; marks && i < points.size(); ++i) {
    const int x = static_cast<int>(pixelX(points[i].x)), y = static_cast<int>(pixelY(points[i].y));
    canvas.fill({x - 3, y - 3, 7, 7}, Blue);
    canvas.text(x, y - 14, numberText(std::round(points[i].y * 1000) / 1000), Black, Align::Centre);
  }
  if (limit > 0) {
    const int at = static_cast<int>(std::lround(pixelY(limit)));
    for (int x = Plot.x; x < Plot.x + Plot.width; x += 10) {
      canvas.fill({x, at, 6, 2}, Red);
    }
    canvas.text(Plot.x + Plot.width - 6, at + 6, limitName, Red, Align::Right);
  }
  canvas.text(Plot.x, 12, title, Black, Align::Left, 2);
  canvas.text(Plot.x, 38, subtitle);
  canvas.text(Plot.x + Plot.width / 2, Plot.y + Plot.height + 30, xTitle, Black, Align::Centre);
  canvas.textUpwards(12, Plot.y + Plot.height / 2, yTitle);
  return canvas.take();
}

} // namespace fields
