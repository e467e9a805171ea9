#pragma once

#include "FieldReader.hpp"
#include "Plane.hpp"

/// @file
/// Cuts slices.

namespace fields {

/// The direction that a slice lies across.
enum class Across { X, Y, Z };

/// Where a field is cut.
struct Cut {
  Across across = Across::Z;
  std::size_t index = 0;

  AxisPtr horizontal(const Variable& variable) const;
  AxisPtr vertical(const Variable& variable) const;
  /// The axis that the slice lies across; empty when the variable has no levels.
  AxisPtr through(const Variable& variable) const;
};

/// Cuts one slice out of a field.
class SliceCutter : public Maker<Plane> {
public:
  /// `firstLevel` is the level that the field begins with.
  SliceCutter(Workshop& workshop, FieldReaderPtr source, const Variable& variable, const Cut& cut,
              std::size_t firstLevel);

protected:
  Pointer make() override;

private:
  const FieldReaderPtr source_;
  const Variable variable_;
  const Cut cut_;
  const std::size_t firstLevel_;
};

/// Whatever makes a plane.
using PlaneMakerPtr = Tolvane::StrongPtr<Maker<Plane>, Tolvane::Creature>;

} // namespace fields
