#pragma once

#include "Api.hpp"

#include <tolvane/Attributes.hpp>
#include <tolvane/Cacheable.hpp>

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

/// @file
/// A colour picture.

namespace fields {

/// A colour.
struct Colour {
  std::uint8_t red = 0, green = 0, blue = 0;
  bool operator==(const Colour&) const = default;
};

/// A rectangle of pixels; the origin is at the upper left.
struct Rectangle {
  int x = 0, y = 0, width = 0, height = 0;
};

/// The pixels of a picture, row by row from the top.
struct Pixels {
  int width = 0, height = 0;
  std::vector<Colour> colours;

  Pixels() = default;
  Pixels(int w, int h, Colour fill)
      : width(w), height(h),
        colours(static_cast<std::size_t>(w) * static_cast<std::size_t>(h), fill) {}

  bool contains(int x, int y) const { return x >= 0 && y >= 0 && x < width && y < height; }
  std::size_t index(int x, int y) const {
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
           static_cast<std::size_t>(x);
  }
};

/// A picture that the cache keeps, the saved type of the save registry.
class FIELDS_API Picture : public Tolvane::Cacheable {
public:
  /// `plot` is the part that shows the data, without axes and legend.
  Picture(Pixels pixels, const Rectangle& plot, const Tolvane::Attributes& attributes);
  ~Picture() override;

  const Pixels& pixels() const { return pixels_; }
  const Rectangle& plot() const { return plot_; }
  const Tolvane::Attributes& attributes() const { return attributes_; }

  Tolvane::memsize_t memsize() const override;
  /// The same before there is one.
  static Tolvane::memsize_t bytesFor(int width, int height);

private:
  const Pixels pixels_;
  const Rectangle plot_;
  const Tolvane::Attributes attributes_;
};

} // namespace fields
