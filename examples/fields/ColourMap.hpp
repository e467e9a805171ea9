#pragma once

#include "Ticks.hpp"
#include "data/Picture.hpp"

#include <tolvane/Interface.hpp>
#include <tolvane/StrongPtr.hpp>

#include <string>
#include <vector>

/// @file
/// Which colour a value has: an interface of the creators that paint.

namespace fields {

/// A scale of colours over a range of values.
class ColourMap : public Tolvane::Interface<ColourMap> {
public:
  /// Throws Refusal when there is no map of that name.
  ColourMap(const std::string& name, const Range& range);

  /// The names of all maps.
  static std::vector<std::string> names();

  /// The colour of a value, that of the nearest end where it lies outside; grey for NaN.
  Colour at(double value) const;

  const Range& range() const { return range_; }
  /// Whether values are names, so that there is nothing between two of them.
  bool isOfLabels() const;

private:
  struct Stop;
  struct Scale;
  static const std::vector<Scale>& scales();

  const Scale* scale_;
  const Range range_;
};

using ColourMapPtr = Tolvane::StrongPtr<ColourMap, Tolvane::InterfaceBase>;

} // namespace fields
