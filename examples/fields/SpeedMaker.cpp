#include "SpeedMaker.hpp"

#include <tolvane/Chunk.hpp>

#include <cmath>
#include <utility>

namespace fields {

SpeedMaker::SpeedMaker(Workshop& workshop, PlaneMakerPtr right, PlaneMakerPtr up)
    : Maker(workshop, "speed", up->origin()), right_(std::move(right)), up_(std::move(up)) {
  // The last record is the one that goes on to what is made from this.
  const Origin own = origin();
  setProvenance(Origin(new Tolvane::Provenance("speed", right_->origin())));
  appendProvenance(own);
}

SpeedMaker::Pointer SpeedMaker::make() {
  const Maker<Plane>::Pointer right = workshop().obtain(*right_), up = workshop().obtain(*up_);
  std::vector<float> values;
  values.reserve(right->values().size());
  for (std::size_t i = 0; i < right->values().size(); ++i) {
    values.push_back(std::hypot(right->values()[i], up->values()[i]));
  }
  Tolvane::Attributes attributes(right->attributes());
  attributes.setAttribute("title", Tolvane::makeChunk("speed of " + right->attribute("title") +
                                                      " and " + up->attribute("title")));
  return new Plane(right->xAxis(), right->yAxis(), std::move(values), attributes);
}

} // namespace fields
