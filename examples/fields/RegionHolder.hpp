#pragma once

#include "Region.hpp"
#include "Workshop.hpp"

#include <tolvane/DataCreature.hpp>

#include <string>

/// @file
/// Keeps what was drawn by hand.

namespace fields {

/// Holds a region. Nobody can draw it again, so the cache keeps it whatever it needs room for.
class RegionHolder : public Tolvane::DataCreature<Region> {
public:
  RegionHolder(const Workshop& workshop, const std::string& drawn)
      : DataCreature(workshop.cache()), drawn_(drawn) {
    setProvenance("drawn by hand");
  }

  bool isReproducible() const override { return false; }

protected:
  Pointer create() override { return new Region(drawn_); }

private:
  const std::string drawn_;
};

using RegionHolderPtr = Tolvane::StrongPtr<RegionHolder, Tolvane::Creature>;

} // namespace fields
