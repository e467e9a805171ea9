#pragma once

#include "data/Picture.hpp"

#include <string>

/// @file
/// Draws on pixels.

namespace fields {

constexpr Colour Black = {20, 20, 20};
constexpr Colour White = {255, 255, 255};
constexpr Colour Grey = {150, 150, 150};
constexpr Colour LightGrey = {225, 225, 225};
constexpr Colour Red = {205, 30, 30};
constexpr Colour Blue = {25, 80, 170};

/// Where a text lies from the point that it is given.
enum class Align { Left, Centre, Right };

/// A white sheet of pixels to draw on. What lies outside is cut off.
class Canvas {
public:
  Canvas(int width, int height) : pixels_(width, height, White) {}

  static constexpr int LetterWidth = 6, LetterHeight = 8;
  static int textWidth(const std::string& text, int scale = 1) {
    return static_cast<int>(text.size()) * LetterWidth * scale;
  }

  void set(int x, int y, Colour colour) {
    if (pixels_.contains(x, y)) {
      pixels_.colours[pixels_.index(x, y)] = colour;
    }
  }
  void fill(const Rectangle& area, Colour colour);
  /// The lines around an area.
  void frame(const Rectangle& area, Colour colour);
  void line(double x0, double y0, double x1, double y1, Colour colour);
  /// Text with its upper edge at y.
  void text(int x, int y, const std::string& text, Colour colour = Black, Align align = Align::Left,
            int scale = 1);
  /// The same from the bottom to the top, centred at y, with its left edge at x.
  void textUpwards(int x, int y, const std::string& text, Colour colour = Black);

  Pixels take() { return std::move(pixels_); }

private:
  Pixels pixels_;
};

} // namespace fields
