#include "ContactSheet.hpp"

#include "Canvas.hpp"
#include "MapDrawing.hpp"

#include <tolvane/Chunk.hpp>

#include <algorithm>
#include <array>

namespace fields {
namespace {

constexpr std::size_t Most = 60, Columns = 6;
constexpr int ThumbSide = 190;

/// A part of a picture, made smaller: each pixel is the mean of those that it stands for.
Pixels shrunk(const Pixels& from, const Rectangle& part) {
  const int longest = std::max(part.width, part.height), side = std::min(ThumbSide, longest);
  Pixels to(std::max(part.width * side / longest, 1), std::max(part.height * side / longest, 1),
            White);
  for (int y = 0; y < to.height; ++y) {
    for (int x = 0; x < to.width; ++x) {
      std::array<int, 4> sums{}; // the colours, and how many
      for (int j = y * part.height / to.height; j < (y + 1) * part.height / to.height; ++j) {
        for (int i = x * part.width / to.width; i < (x + 1) * part.width / to.width; ++i) {
          const Colour& colour = from.colours[from.index(part.x + i, part.y + j)];
          sums[0] += colour.red;
          sums[1] += colour.green;
          sums[2] += colour.blue;
          ++sums[3];
        }
      }
      to.colours[to.index(x, y)] = {static_cast<std::uint8_t>(sums[0] / sums[3]),
                                    static_cast<std::uint8_t>(sums[1] / sums[3]),
                                    static_cast<std::uint8_t>(sums[2] / sums[3])};
    }
  }
  return to;
}

} // namespace

ContactSheet::ContactSheet(std::size_t first, std::size_t last)
    : first_(first), step_((last - first) / Most + 1) {}

void ContactSheet::add(std::size_t frame, const std::string& label, const Picture& picture) {
  if ((frame - first_) % step_ != 0 || thumbs_.contains(frame)) {
    return;
  }
  thumbs_[frame] = {label, shrunk(picture.pixels(), picture.plot())};
  const auto text = [&](const char* name) {
    return Tolvane::chunkValue<std::string>(picture.attributes().getAttribute(name)).value_or("");
  };
  title_ = text("title");
  unit_ = text("unit");
}

Pixels ContactSheet::draw(const ColourMap& map) const {
  constexpr int Gap = 8, Caption = 14, Top = 50, Legend = 110;
  int width = 0, height = 0;
  for (const auto& [frame, thumb] : thumbs_) {
    width = std::max(width, thumb.pixels.width);
    height = std::max(height, thumb.pixels.height);
  }
  const std::size_t columns = std::min(thumbs_.size(), Columns);
  const auto rows = static_cast<int>((thumbs_.size() + columns - 1) / columns);
  const int inner = static_cast<int>(columns) * (width + Gap);
  Canvas canvas(std::max(Gap + inner + Legend, 420), Top + rows * (height + Caption + Gap));
  canvas.text(Gap, 10, title_, Black, Align::Left,
              Canvas::textWidth(title_, 2) < inner + Legend ? 2 : 1);
  int index = 0;
  for (const auto& [frame, thumb] : thumbs_) {
    const int left = Gap + index % static_cast<int>(columns) * (width + Gap);
    const int top = Top + index / static_cast<int>(columns) * (height + Caption + Gap);
    for (int y = 0; y < thumb.pixels.height; ++y) {
      for (int x = 0; x < thumb.pixels.width; ++x) {
        canvas.set(left + x, top + y, thumb.pixels.colours[thumb.pixels.index(x, y)]);
      }
    }
    canvas.frame({left, top, thumb.pixels.width, thumb.pixels.height}, Black);
    canvas.text(left, top + height + 4, thumb.label);
    ++index;
  }
  drawLegend(canvas, {Gap + inner + 10, Top, Legend - 10, std::clamp(rows * height, 100, 360)}, map,
             unit_);
  return canvas.take();
}

} // namespace fields
