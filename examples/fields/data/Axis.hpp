#pragma once

#include "Api.hpp"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

/// @file
/// A direction of a field: what its cells are called and where they lie.

namespace fields {

/// The coordinates of the cells along one direction, ascending or descending.
struct Axis {
  std::string name;           ///< "longitude", "depth", ...
  std::string unit;           ///< As the file has it; empty for none.
  std::vector<double> values; ///< The centre of each cell.
  bool down = false;          ///< Whether larger values lie deeper.
  std::string ends;           ///< What lies at the low and the high end, as in "LR"; may be empty.

  std::size_t size() const { return values.size(); }
  bool isLongitude() const { return unit.starts_with("degrees_e") || unit.starts_with("degree_e"); }
  bool isLatitude() const { return unit.starts_with("degrees_n") || unit.starts_with("degree_n"); }

  /// A coordinate with its direction, as people write it: "30S", "120", "12 Jan 1982".
  FIELDS_API std::string label(double value) const;

  /// What follows a coordinate: a blank and the unit; nothing where the coordinate tells it.
  FIELDS_API std::string unitBehind() const;

  /// The name with the unit, for the edge of a picture.
  FIELDS_API std::string title() const;
};

/// Axes are shared by the variables and the data of a file.
using AxisPtr = std::shared_ptr<const Axis>;

/// A number with as few digits as tell it apart from its neighbours.
FIELDS_API std::string numberText(double value);

} // namespace fields
