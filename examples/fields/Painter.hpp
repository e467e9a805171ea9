#pragma once

#include "MapDrawing.hpp"
#include "RegionHolder.hpp"
#include "SliceCutter.hpp"

/// @file
/// Paints pictures.

namespace fields {

/// Paints a plane, in the colours of the ColourMap among its interfaces.
class Painter : public Maker<Picture> {
public:
  /// What is painted; all but the first may be empty.
  struct Sources {
    PlaneMakerPtr values;
    PlaneMakerPtr right, up; ///< Arrows.
    RegionHolderPtr region;
  };

  Painter(Workshop& workshop, Sources sources, const Layout& layout, const ColourMapPtr& map);

  const Sources& sources() const { return sources_; }

protected:
  Pointer make() override;

private:
  const Sources sources_;
  const Layout layout_;
};

using PainterPtr = Tolvane::StrongPtr<Painter, Tolvane::Creature>;

} // namespace fields
