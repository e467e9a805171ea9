#include "ColourMap.hpp"

#include "Canvas.hpp"
#include "Refusal.hpp"
#include "data/Joined.hpp"

#include <algorithm>
#include <cmath>

namespace fields {

struct ColourMap::Stop {
  double at;
  Colour colour;
};

struct ColourMap::Scale {
  std::string name;
  std::vector<Stop> stops; // those of labels are made from the number
  bool seaLevel = false;   // whether the middle stands for zero
};

const std::vector<ColourMap::Scale>& ColourMap::scales() {
  static const std::vector<Scale> list = {
      {"grey", {{0, {0, 0, 0}}, {1, {255, 255, 255}}}},
      {"ramp",
       {{0, {68, 20, 100}},
        {.3, {50, 90, 145}},
        {.6, {40, 165, 130}},
        {.85, {165, 215, 60}},
        {1, {250, 235, 60}}}},
      {"speed",
       {{0, {245, 250, 255}},
        {.25, {170, 210, 235}},
        {.5, {90, 180, 130}},
        {.7, {245, 220, 90}},
        {.85, {235, 130, 50}},
        {1, {160, 25, 60}}}},
      {"thermal",
       {{0, {50, 25, 110}},
        {.2, {40, 100, 200}},
        {.45, {110, 205, 215}},
        {.65, {250, 240, 160}},
        {.85, {240, 130, 50}},
        {1, {150, 15, 30}}}},
      {"balance", {{0, {25, 60, 150}}, {.5, {245, 245, 245}}, {1, {165, 25, 40}}}},
      {"terrain",
       {{0, {10, 25, 80}},
        {.3, {35, 95, 175}},
        {.4999, {170, 215, 240}},
        {.5, {50, 125, 65}},
        {.6, {175, 190, 105}},
        {.75, {165, 115, 60}},
        {.9, {220, 205, 190}},
        {1, {255, 255, 255}}},
       true},
      {"labels", {}},
  };
  return list;
}

ColourMap::ColourMap(const std::string& name, const Range& range) : scale_(nullptr), range_(range) {
  for (const Scale& scale : scales()) {
    scale_ = scale.name == name ? &scale : scale_;
  }
  if (scale_ == nullptr) {
    throw Refusal("there is no colour map \"" + name + "\"; take one of " + joined(names()));
  }
}

std::vector<std::string> ColourMap::names() {
  std::vector<std::string> names;
  for (const Scale& scale : scales()) {
    names.push_back(scale.name);
  }
  return names;
}

bool ColourMap::isOfLabels() const {
  return scale_->stops.empty();
}

Colour ColourMap::at(double value) const {
  if (std::isnan(value)) {
    return Grey;
  }
  if (isOfLabels()) {
    const auto number = static_cast<unsigned>(std::clamp(std::round(value), 0.0, 1e9));
    const unsigned mixed = number * 2654435761U;
    const auto part = [mixed](unsigned shift) {
      return static_cast<std::uint8_t>(60 + (mixed >> shift & 0xff) * 3 / 4);
    };
    return number == 0 ? Colour{0, 0, 0} : Colour{part(8), part(16), part(24)};
  }
  double part = (value - range_.low) / (range_.high - range_.low);
  if (scale_->seaLevel && range_.low < 0 && range_.high > 0) {
    part = value < 0 ? 0.5 - 0.5 * value / range_.low : 0.5 + 0.5 * value / range_.high;
  }
  part = std::clamp(part, 0.0, 1.0);
  const auto& stops = scale_->stops;
  const auto above = std::find_if(stops.begin() + 1, stops.end() - 1,
                                  [part](const Stop& stop) { return stop.at >= part; });
  const Stop& from = *(above - 1);
  const Stop& to = *above;
  const double share = std::clamp((part - from.at) / (to.at - from.at), 0.0, 1.0);
  const auto mix = [share](std::uint8_t a, std::uint8_t b) {
    return static_cast<std::uint8_t>(std::lround(a + (b - a) * share));
  };
  return {mix(from.colour.red, to.colour.red), mix(from.colour.green, to.colour.green),
          mix(from.colour.blue, to.colour.blue)};
}

} // namespace fields
