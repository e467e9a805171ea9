#include "Canvas.hpp"

#include "Font.hpp"

#include <algorithm>
#include <cmath>

namespace fields {
namespace {

/// Calls `dot` with the column and the row of each dot of a text.
template <class Dot>
void forEachDot(const std::string& text, Dot dot) {
  int left = 0;
  for (const char character : text) {
    const Glyph& glyph = glyphOf(character);
    for (std::size_t column = 0; column < glyph.size(); ++column) {
      for (int row = 0; row < Canvas::LetterHeight; ++row) {
        if ((glyph[column] >> row & 1) != 0) {
          dot(left + static_cast<int>(column), row);
        }
      }
    }
    left += Canvas::LetterWidth;
  }
}

} // namespace

void Canvas::fill(const Rectangle& area, Colour colour) {
  for (int y = area.y; y < area.y + area.height; ++y) {
    for (int x = area.x; x < area.x + area.width; ++x) {
      set(x, y, colour);
    }
  }
}

void Canvas::frame(const Rectangle& area, Colour colour) {
  fill({area.x - 1, area.y - 1, area.width + 2, 1}, colour);
  fill({area.x - 1, area.y + area.height, area.width + 2, 1}, colour);
  fill({area.x - 1, area.y - 1, 1, area.height + 2}, colour);
  fill({area.x + area.width, area.y - 1, 1, area.height + 2}, colour);
}

void Canvas::line(double x0, double y0, double x1, double y1, Colour colour) {
  const int steps =
      static_cast<int>(std::ceil(std::max({std::abs(x1 - x0), std::abs(y1 - y0), 1.0})));
  for (int i = 0; i <= steps; ++i) {
    const double part = static_cast<double>(i) / steps;
    set(static_cast<int>(std::lround(x0 + (x1 - x0) * part)),
        static_cast<int>(std::lround(y0 + (y1 - y0) * part)), colour);
  }
}

void Canvas::text(int x, int y, const std::string& text, Colour colour, Align align, int scale) {
  const int width = textWidth(text, scale) - scale;
  const int left = align == Align::Left ? x : align == Align::Centre ? x - width / 2 : x - width;
  forEachDot(text, [&](int column, int row) {
    fill({left + column * scale, y + row * scale, scale, scale}, colour);
  });
}

void Canvas::textUpwards(int x, int y, const std::string& text, Colour colour) {
  const int bottom = y + textWidth(text) / 2;
  forEachDot(text, [&](int column, int row) { set(x + row, bottom - column, colour); });
}

} // namespace fields
