#include "GradientMaker.hpp"

#include <tolvane/Chunk.hpp>

#include <cmath>
#include <utility>

namespace fields {

GradientMaker::GradientMaker(Workshop& workshop, PlaneMakerPtr source)
    : Maker(workshop, "gradient", source->origin()), source_(std::move(source)) {}

GradientMaker::Pointer GradientMaker::make() {
  const Maker<Plane>::Pointer plane = workshop().obtain(*source_);
  const std::size_t width = plane->x().size(), height = plane->y().size();
  std::vector<float> values;
  values.reserve(width * height);
  for (std::size_t y = 0; y < height; ++y) {
    for (std::size_t x = 0; x < width; ++x) {
      const std::size_t left = x > 0 ? x - 1 : x, right = x + 1 < width ? x + 1 : x;
      const std::size_t below = y > 0 ? y - 1 : y, above = y + 1 < height ? y + 1 : y;
      const auto slope = [](float a, float b, std::size_t cells) {
        return cells > 0 ? (b - a) / static_cast<float>(cells) : 0.0F;
      };
      values.push_back(std::hypot(slope(plane->at(left, y), plane->at(right, y), right - left),
                                  slope(plane->at(x, below), plane->at(x, above), above - below)));
    }
  }
  Tolvane::Attributes attributes(plane->attributes());
  attributes.setAttribute("title", Tolvane::makeChunk("gradient of " + plane->attribute("title")));
  attributes.setAttribute("unit", Tolvane::makeChunk(plane->attribute("unit") + " per cell"));
  return new Plane(plane->xAxis(), plane->yAxis(), std::move(values), attributes);
}

} // namespace fields
