#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// @file
/// A picture in shades of grey.

namespace bricks {

/// One byte a pixel, row by row from the top; black at first.
class Picture {
public:
  Picture(std::size_t width, std::size_t height)
      : width_(width), height_(height), pixels_(width * height) {}

  std::size_t width() const { return width_; }
  std::size_t height() const { return height_; }
  std::uint8_t& at(std::size_t x, std::size_t y) { return pixels_[y * width_ + x]; }

  /// Spreads the shades, so that each part of the range is used by as many pixels: what lies close
  /// together is told apart. Black stays black.
  void spreadShades();

  /// Writes a PNG file, completely or not at all: a file that was there before stays until the new
  /// one is complete. Throws std::system_error.
  void write(const std::string& path) const;

private:
  const std::size_t width_;
  const std::size_t height_;
  std::vector<std::uint8_t> pixels_;
};

} // namespace bricks
