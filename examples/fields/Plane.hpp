#pragma once

#include "Ticks.hpp"
#include "data/Axis.hpp"

#include <tolvane/Attributes.hpp>
#include <tolvane/Cacheable.hpp>

#include <string>
#include <vector>

/// @file
/// Values in a plane.

namespace fields {

/// A slice of a field, or what was computed from slices. A value that is missing is NaN.
class Plane : public Tolvane::Cacheable {
public:
  /// `x` runs to the right and `y` upwards. The range of the values is added to the attributes.
  Plane(AxisPtr x, AxisPtr y, std::vector<float> values, const Tolvane::Attributes& attributes);
  ~Plane() override;

  const Axis& x() const { return *x_; }
  const Axis& y() const { return *y_; }
  const AxisPtr& xAxis() const { return x_; }
  const AxisPtr& yAxis() const { return y_; }
  float at(std::size_t x, std::size_t y) const { return values_[y * x_->size() + x]; }
  const std::vector<float>& values() const { return values_; }

  /// Title, unit, time, place and range.
  const Tolvane::Attributes& attributes() const { return attributes_; }
  std::string attribute(const char* name) const;
  /// The smallest and the largest value; the wrong way round when all are missing.
  Range range() const;

  Tolvane::memsize_t memsize() const override;
  /// The same before there is one.
  static Tolvane::memsize_t bytesFor(std::size_t width, std::size_t height);

private:
  const AxisPtr x_, y_;
  const std::vector<float> values_;
  Tolvane::Attributes attributes_;
};

} // namespace fields
