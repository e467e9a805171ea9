#pragma once

#include "SliceCutter.hpp"

/// @file
/// Computes gradients.

namespace fields {

/// How fast the values of a slice change from cell to cell.
class GradientMaker : public Maker<Plane> {
public:
  GradientMaker(Workshop& workshop, PlaneMakerPtr source);

protected:
  Pointer make() override;

private:
  const PlaneMakerPtr source_;
};

} // namespace fields
