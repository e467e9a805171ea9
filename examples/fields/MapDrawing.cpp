#include "MapDrawing.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace fields {
namespace {

constexpr int Left = 66, Right = 104, Top = 46, Bottom = 58;

/// How much of the world an axis covers, its outer half cells included.
double extentOf(const Axis& axis) {
  const double between = std::abs(axis.values.back() - axis.values.front());
  const auto cells = static_cast<double>(axis.size());
  return cells > 1 ? between * cells / (cells - 1) : 1;
}

bool haveOneScale(const Axis& x, const Axis& y) {
  return x.unit == y.unit || (x.isLongitude() && y.isLatitude());
}

/// Between the pixels of a plot and the cells of a plane: one direction.
class Projection {
public:
  /// `reversed` when the first cell comes at the far end.
  Projection(const Axis& axis, int pixels, bool reversed)
      : axis_(axis), pixels_(pixels), reversed_(reversed) {}

  /// The cell at the middle of a pixel, in parts.
  double cellAt(double pixel) const {
    const double part = (pixel + 0.5) / pixels_;
    return (reversed_ ? 1 - part : part) * static_cast<double>(axis_.size()) - 0.5;
  }

  /// The pixel of a coordinate, which may lie outside.
  double pixelOf(double value) const {
    const auto& values = axis_.values;
    const bool rising = values.back() >= values.front();
    std::size_t i = 0;
    while (i + 2 < values.size() && (rising ? values[i + 1] < value : values[i + 1] > value)) {
      ++i;
    }
    const double cell = values.size() < 2 ? 0
                                          : static_cast<double>(i) +
                                                (value - values[i]) / (values[i + 1] - values[i]);
    const double part = (cell + 0.5) / static_cast<double>(values.size());
    return (reversed_ ? 1 - part : part) * pixels_ - 0.5;
  }

  /// How many cells share a pixel.
  double cellsPerPixel() const { return static_cast<double>(axis_.size()) / pixels_; }
  std::size_t clamped(double cell) const {
    return static_cast<std::size_t>(
        std::clamp(std::floor(cell), 0.0, static_cast<double>(axis_.size() - 1)));
  }

private:
  const Axis& axis_;
  const double pixels_;
  const bool reversed_;
};

/// A plane as it lies on its plot.
class View {
public:
  View(const Plane& plane, const Rectangle& plot)
      : plane_(plane), plot_(plot), x_(plane.x(), plot.width, isFalling(plane.x())),
        y_(plane.y(), plot.height, isFalling(plane.y()) == plane.y().down) {}

  double pixelX(double value) const { return plot_.x + x_.pixelOf(value); }
  double pixelY(double value) const { return plot_.y + y_.pixelOf(value); }

  /// The value at a pixel of the plot: the mean of the cells that share it, or what lies between
  /// the cells around it. Labels are never mixed.
  float at(int pixelX, int pixelY, bool labels) const {
    const double x = x_.cellAt(pixelX), y = y_.cellAt(pixelY);
    const float nearest = plane_.at(x_.clamped(x + 0.5), y_.clamped(y + 0.5));
    if (labels) {
      return nearest;
    }
    if (x_.cellsPerPixel() > 1 || y_.cellsPerPixel() > 1) {
      return mean(x, y);
    }
    const std::size_t x0 = x_.clamped(x), x1 = x_.clamped(x + 1);
    const std::size_t y0 = y_.clamped(y), y1 = y_.clamped(y + 1);
    const auto dx = static_cast<float>(x - std::floor(x)),
               dy = static_cast<float>(y - std::floor(y));
    const float between = (plane_.at(x0, y0) * (1 - dx) + plane_.at(x1, y0) * dx) * (1 - dy) +
                          (plane_.at(x0, y1) * (1 - dx) + plane_.at(x1, y1) * dx) * dy;
    return std::isnan(between) ? nearest : between;
  }

private:
  static bool isFalling(const Axis& axis) { return axis.values.back() < axis.values.front(); }

  float mean(double x, double y) const {
    const double rx = std::max(x_.cellsPerPixel(), 1.0) / 2,
                 ry = std::max(y_.cellsPerPixel(), 1.0) / 2;
    double sum = 0;
    std::size_t count = 0, missing = 0;
    const std::size_t x1 = x_.clamped(x + 0.5 + rx - 1e-6), y1 = y_.clamped(y + 0.5 + ry - 1e-6);
    for (std::size_t j = y_.clamped(y + 0.5 - ry); j <= y1; ++j) {
      for (std::size_t i = x_.clamped(x + 0.5 - rx); i <= x1; ++i) {
        const float value = plane_.at(i, j);
        (std::isnan(value) ? missing : count) += 1;
        sum += std::isnan(value) ? 0 : value;
      }
    }
    return count < missing || count == 0 ? std::numeric_limits<float>::quiet_NaN()
                                         : static_cast<float>(sum / static_cast<double>(count));
  }

  const Plane& plane_;
  const Rectangle plot_;
  const Projection x_, y_;
};

/// The coordinates from edge to edge.
Range coordinates(const Axis& axis) {
  const auto& values = axis.values;
  const std::size_t last = values.size() - 1;
  const double before = last > 0 ? (values[1] - values[0]) / 2 : 0;
  const double behind = last > 0 ? (values[last] - values[last - 1]) / 2 : 0;
  const double begin = values[0] - before, end = values[last] + behind;
  return {std::min(begin, end), std::max(begin, end)};
}

void drawAxes(Canvas& canvas, const Plane& plane, const View& view, const Rectangle& plot) {
  canvas.frame(plot, Black);
  const int bottom = plot.y + plot.height, right = plot.x + plot.width;
  const Axis &x = plane.x(), &y = plane.y();
  for (const double value : ticks(coordinates(x), std::max(plot.width / 85, 2), x.isLongitude())) {
    const int at = static_cast<int>(std::lround(view.pixelX(value)));
    canvas.fill({at, bottom, 1, 5}, Black);
    canvas.text(at, bottom + 8, x.label(value), Black, Align::Centre);
  }
  for (const double value : ticks(coordinates(y), std::max(plot.height / 50, 2), y.isLatitude())) {
    const int at = static_cast<int>(std::lround(view.pixelY(value)));
    canvas.fill({plot.x - 5, at, 5, 1}, Black);
    canvas.text(plot.x - 8, at - 3, y.label(value), Black, Align::Right);
  }
  canvas.text(plot.x + plot.width / 2, bottom + 22, x.title(), Black, Align::Centre);
  canvas.textUpwards(8, plot.y + plot.height / 2, y.title());
  const auto end = [&](int px, int py, char letter) {
    canvas.fill({px - 3, py - 3, 15, 20}, Black);
    canvas.text(px, py, std::string(1, letter), White, Align::Left, 2);
  };
  if (x.ends.size() == 2 && plot.width > 100) {
    end(plot.x + 8, plot.y + plot.height / 2 - 7, x.ends[0]);
    end(right - 18, plot.y + plot.height / 2 - 7, x.ends[1]);
  }
  if (y.ends.size() == 2 && plot.height > 100) {
    end(plot.x + plot.width / 2 - 5, bottom - 22, y.ends[0]);
    end(plot.x + plot.width / 2 - 5, plot.y + 8, y.ends[1]);
  }
}

/// Arrows over the plot, as long as the values say.
void drawArrows(Canvas& canvas, const MapExtras& extras, const ColourMap& map,
                const Rectangle& plot) {
  const View right(*extras.right, plot), up(*extras.up, plot);
  constexpr int Step = 18;
  const double scale = 1.6 * Step / map.range().high;
  for (int y = Step / 2; y < plot.height; y += Step) {
    for (int x = Step / 2; x < plot.width; x += Step) {
      const double u = right.at(x, y, false) * scale, v = up.at(x, y, false) * scale;
      const double length = std::hypot(u, v);
      if (!(length > 2)) {
        continue;
      }
      const double fromX = plot.x + x - u / 2, fromY = plot.y + y + v / 2;
      const double toX = fromX + u, toY = fromY - v;
      canvas.line(fromX, fromY, toX, toY, Black);
      const double head = std::min(5.0, length / 2) / length;
      for (const double side : {-0.5, 0.5}) {
        canvas.line(toX, toY, toX - (u + side * v) * head, toY + (v - side * u) * head, Black);
      }
    }
  }
}

} // namespace

Layout::Layout(const Axis& x, const Axis& y, int longest) {
  double aspect = 0.5;
  if (haveOneScale(x, y)) {
    aspect = std::clamp(extentOf(y) / extentOf(x), 0.1, 10.0);
  }
  plot = {Left, Top, longest, longest};
  if (aspect < 1) {
    plot.height = std::max(1, static_cast<int>(std::lround(longest * aspect)));
  } else {
    plot.width = std::max(1, static_cast<int>(std::lround(longest / aspect)));
  }
  width = Left + plot.width + Right;
  height = Top + plot.height + Bottom;
}

void drawLegend(Canvas& canvas, const Rectangle& area, const ColourMap& map,
                const std::string& unit) {
  constexpr int Width = 16, Grain = 14;
  const Rectangle bar{area.x, area.y + 4, Width, std::max(area.height - 8 - 2 * Grain, 20)};
  const Range& range = map.range();
  for (int i = 0; i < bar.height; ++i) {
    const double part = (i + 0.5) / bar.height;
    canvas.fill({bar.x, bar.y + bar.height - 1 - i, bar.width, 1},
                map.at(range.low + part * (range.high - range.low)));
  }
  canvas.frame(bar, Black);
  for (const double value : ticks(range, std::clamp(bar.height / 25, 2, 10))) {
    const double part = (value - range.low) / (range.high - range.low);
    const int at = bar.y + bar.height - 1 - static_cast<int>(std::lround(part * (bar.height - 1)));
    canvas.fill({bar.x + bar.width, at, 4, 1}, Black);
    canvas.text(bar.x + bar.width + 7, at - 3, numberText(value));
  }
  canvas.fill({bar.x, bar.y + bar.height + Grain - 4, 9, 9}, Grey);
  canvas.frame({bar.x, bar.y + bar.height + Grain - 4, 9, 9}, Black);
  canvas.text(bar.x + 14, bar.y + bar.height + Grain - 3, "no data");
  canvas.text(bar.x, area.y - 11, unit);
}

Pixels drawMap(const Plane& plane, const ColourMap& map, const Layout& layout,
               const MapExtras& extras) {
  Canvas canvas(layout.width, layout.height);
  const Rectangle& plot = layout.plot;
  const View view(plane, plot);
  for (int y = 0; y < plot.height; ++y) {
    for (int x = 0; x < plot.width; ++x) {
      canvas.set(plot.x + x, plot.y + y, map.at(view.at(x, y, map.isOfLabels())));
    }
  }
  if (extras.right != nullptr && extras.up != nullptr) {
    drawArrows(canvas, extras, map, plot);
  }
  if (extras.region != nullptr) {
    const auto& points = extras.region->points();
    for (std::size_t i = 0, before = points.size() - 1; i < points.size(); before = i++) {
      for (const int shift : {0, 1}) {
        canvas.line(view.pixelX(points[before].x) + shift, view.pixelY(points[before].y),
                    view.pixelX(points[i].x) + shift, view.pixelY(points[i].y), Red);
      }
    }
  }
  drawAxes(canvas, plane, view, plot);
  drawLegend(canvas, {plot.x + plot.width + 18, plot.y, Right - 18, plot.height}, map,
             plane.attribute("unit"));

  const std::string title = plane.attribute("title");
  const int room = layout.width - plot.x - 4;
  canvas.text(plot.x, 8, title, Black, Align::Left, Canvas::textWidth(title, 2) < room ? 2 : 1);
  std::string where = plane.attribute("time");
  const std::string place = plane.attribute("place");
  where += where.empty() || place.empty() ? place : ", " + place;
  canvas.text(plot.x, 29, where);
  const auto letters = static_cast<std::size_t>((layout.width - 12) / Canvas::LetterWidth);
  canvas.text(6, layout.height - 12, extras.origin.substr(0, letters), Grey);
  return canvas.take();
}

} // namespace fields
