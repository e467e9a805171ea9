#include "Plane.hpp"

#include <tolvane/Chunk.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace fields {

using Tolvane::makeChunk;

Plane::Plane(AxisPtr x, AxisPtr y, std::vector<float> values, const Tolvane::Attributes& attributes)
    : x_(std::move(x)), y_(std::move(y)), values_(std::move(values)), attributes_(attributes) {
  Range range{std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()};
  for (const float value : values_) {
    if (!std::isnan(value)) {
      range.low = std::min<double>(range.low, value);
      range.high = std::max<double>(range.high, value);
    }
  }
  attributes_.setAttribute("lowest", makeChunk(range.low));
  attributes_.setAttribute("highest", makeChunk(range.high));
}

Plane::~Plane() = default;

std::string Plane::attribute(const char* name) const {
  return Tolvane::chunkValue<std::string>(attributes_.getAttribute(name)).value_or("");
}

Range Plane::range() const {
  return {Tolvane::chunkValue<double>(attributes_.getAttribute("lowest")).value_or(0),
          Tolvane::chunkValue<double>(attributes_.getAttribute("highest")).value_or(0)};
}

Tolvane::memsize_t Plane::memsize() const {
  return bytesFor(x_->size(), y_->size());
}

Tolvane::memsize_t Plane::bytesFor(std::size_t width, std::size_t height) {
  return sizeof(Plane) + Tolvane::memsize_t{width} * height * sizeof(float);
}

} // namespace fields
