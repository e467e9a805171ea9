#include "Painter.hpp"

#include <utility>

namespace fields {

Painter::Painter(Workshop& workshop, Sources sources, const Layout& layout, const ColourMapPtr& map)
    : Maker(workshop, "picture", sources.values->origin()), sources_(std::move(sources)),
      layout_(layout) {
  addInterface(map);
}

Painter::Pointer Painter::make() {
  const Maker<Plane>::Pointer values = workshop().obtain(*sources_.values);
  Maker<Plane>::Pointer right, up;
  if (sources_.right && sources_.up) {
    right = workshop().obtain(*sources_.right);
    up = workshop().obtain(*sources_.up);
  }
  RegionHolder::Pointer region;
  if (sources_.region) {
    region = workshop().obtain(*sources_.region);
  }
  std::string origin;
  for (const Origin& record : sources_.values->provenance()) {
    origin += (origin.empty() ? "" : " + ") + record->getPath('/');
  }
  const MapExtras extras{right.get(), up.get(), region.get(), origin};
  return new Picture(drawMap(*values, *findInterface<ColourMap>(), layout_, extras), layout_.plot,
                     values->attributes());
}

} // namespace fields
