#pragma once

#include "SliceCutter.hpp"

/// @file
/// Computes speeds.

namespace fields {

/// The length of the arrows whose parts to the right and upwards two slices hold.
class SpeedMaker : public Maker<Plane> {
public:
  SpeedMaker(Workshop& workshop, PlaneMakerPtr right, PlaneMakerPtr up);

protected:
  Pointer make() override;

private:
  const PlaneMakerPtr right_, up_;
};

} // namespace fields
