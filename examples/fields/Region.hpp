#pragma once

#include <tolvane/Cacheable.hpp>

#include <string>
#include <vector>

/// @file
/// A region that somebody drew by hand.

namespace fields {

class Plane;

/// A closed line of points in the coordinates of a plane.
class Region : public Tolvane::Cacheable {
public:
  struct Point {
    double x = 0, y = 0;
  };

  /// From "X,Y X,Y X,Y". Throws Refusal.
  explicit Region(const std::string& text);
  ~Region() override;

  const std::vector<Point>& points() const { return points_; }
  bool contains(const Point& point) const;
  /// The number of cells with values inside, and their mean, in words.
  std::string summary(const Plane& plane) const;

  Tolvane::memsize_t memsize() const override;

private:
  std::vector<Point> points_;
};

} // namespace fields
