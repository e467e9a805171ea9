#include "Region.hpp"

#include "Plane.hpp"
#include "Refusal.hpp"

#include <cmath>
#include <sstream>

namespace fields {

Region::Region(const std::string& text) {
  std::istringstream in(text);
  in.imbue(std::locale::classic());
  Point point;
  char comma = 0;
  while (in >> point.x >> comma >> point.y && comma == ',') {
    points_.push_back(point);
  }
  if (!in.eof() || points_.size() < 3) {
    throw Refusal("a region is given as three points or more, as in \"150,-10 180,-10 165,10\"");
  }
}

Region::~Region() = default;

bool Region::contains(const Point& point) const {
  bool inside = false;
  for (std::size_t i = 0, before = points_.size() - 1; i < points_.size(); before = i++) {
    const Point &a = points_[i], &b = points_[before];
    if ((a.y > point.y) != (b.y > point.y) &&
        point.x < (b.x - a.x) * (point.y - a.y) / (b.y - a.y) + a.x) {
      inside = !inside;
    }
  }
  return inside;
}

std::string Region::summary(const Plane& plane) const {
  double sum = 0;
  std::size_t count = 0;
  for (std::size_t y = 0; y < plane.y().size(); ++y) {
    for (std::size_t x = 0; x < plane.x().size(); ++x) {
      const float value = plane.at(x, y);
      if (!std::isnan(value) && contains({plane.x().values[x], plane.y().values[y]})) {
        sum += value;
        ++count;
      }
    }
  }
  return std::to_string(count) + " cells" +
         (count > 0 ? ", mean " + numberText(sum / static_cast<double>(count)) + " " +
                          plane.attribute("unit")
                    : "");
}

Tolvane::memsize_t Region::memsize() const {
  return sizeof *this + points_.capacity() * sizeof(Point);
}

} // namespace fields
