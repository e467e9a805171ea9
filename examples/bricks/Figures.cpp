#include "Figures.hpp"

#include <algorithm>

namespace bricks {

Figures computeFigures(BrickedVolume& volume) {
  Figures figures;
  figures.voxels = voxels(volume.extent());
  volume.walk([&](const Brick& brick) {
    for (const std::uint8_t voxel : brick.voxels()) {
      figures.sum += voxel;
      figures.maximum = std::max(figures.maximum, voxel);
    }
  });
  volume.walk([&](const Brick& brick) {
    for (const std::uint8_t voxel : brick.voxels()) {
      figures.aboveMean += voxel * figures.voxels > figures.sum ? 1 : 0;
    }
  });
  return figures;
}

Picture projectMaximum(BrickedVolume& volume) {
  Picture picture(volume.extent()[1], volume.extent()[2]);
  volume.walk([&](const Brick& brick) {
    const Box& box = brick.box();
    for (std::size_t z = 0; z < box.size[2]; ++z) {
      for (std::size_t y = 0; y < box.size[1]; ++y) {
        std::uint8_t& pixel =
            picture.at(box.origin[1] + y, picture.height() - 1 - (box.origin[2] + z));
        pixel = std::max(pixel, std::ranges::max(brick.row(y, z)));
      }
    }
  });
  picture.spreadShades();
  return picture;
}

} // namespace bricks
