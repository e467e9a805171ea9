#include "NiftiDataset.hpp"

#include "../../data/FileError.hpp"
#include "Inflated.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

namespace fields {
namespace {

template <class Voxel>
Voxel voxelAt(std::uint8_t* bytes, bool reversed) {
  if (reversed) {
    std::reverse(bytes, bytes + sizeof(Voxel));
  }
  Voxel voxel;
  std::memcpy(&voxel, bytes, sizeof voxel);
  return voxel;
}

template <class Value, class Voxel>
Value convert(Voxel voxel) {
  if constexpr (std::is_same_v<Voxel, double>) {
    if (std::abs(voxel) > std::numeric_limits<float>::max()) {
      return std::numeric_limits<float>::quiet_NaN();
    }
  }
  return static_cast<Value>(voxel);
}

} // namespace

NiftiHeader NiftiDataset::readHeader(const std::string& path) {
  Inflated file(path);
  std::array<std::uint8_t, NiftiHeader::Size> bytes{};
  std::size_t count = 0;
  while (count < bytes.size()) {
    const std::size_t more = file.readSome(std::span(bytes).subspan(count));
    if (more == 0) {
      throw FileError("is no NIfTI-1 volume: it is shorter than a header");
    }
    count += more;
  }
  return NiftiHeader(bytes);
}

NiftiDataset::NiftiDataset(const std::string& path) : Dataset(path), header_(readHeader(path)) {
  static constexpr std::array<const char*, 3> Names = {"left to right", "back to front",
                                                       "bottom to top"};
  static constexpr std::array<const char*, 3> Ends = {"LR", "PA", "IS"};
  std::array<AxisPtr, 3> world;
  const auto directions = header_.directions();
  for (std::size_t i = 0; i < 3; ++i) {
    const NiftiHeader::Direction& direction = directions[i];
    const auto axis = std::make_shared<Axis>();
    axis->name = Names[direction.world];
    axis->unit = "mm";
    axis->ends = Ends[direction.world];
    for (std::size_t k = 0; k < header_.extent()[i]; ++k) {
      axis->values.push_back(direction.first + direction.step * static_cast<double>(k));
    }
    std::sort(axis->values.begin(), axis->values.end());
    world[direction.world] = axis;
  }
  Variable variable;
  variable.name = header_.hasLabels() ? "labels" : "brightness";
  variable.title = variable.name;
  variable.x = world[0];
  variable.y = world[1];
  variable.z = world[2];
  if (header_.volumes() > 1) {
    const auto axis = std::make_shared<Axis>();
    axis->name = "volume";
    for (std::size_t k = 0; k < header_.volumes(); ++k) {
      axis->values.push_back(static_cast<double>(k));
    }
    variable.t = axis;
  }
  variable.elementBytes = header_.type() == 2 ? 1 : header_.type() == 4 ? 2 : 4;
  add(variable);
}

template <class Voxel, class Value>
std::vector<Value> NiftiDataset::readVoxels(const Piece& piece, const ProgressPtr& progress) const {
  const auto extent = header_.extent();
  const auto directions = header_.directions();
  // How far the target moves with each step along a voxel axis, and where it begins.
  std::array<std::size_t, 3> size{};
  for (std::size_t i = 0; i < 3; ++i) {
    size[directions[i].world] = extent[i];
  }
  const std::array<std::size_t, 3> strides = {1, size[0], size[0] * size[1]};
  const auto target = [&](std::size_t axis, std::size_t k) {
    return (directions[axis].step < 0 ? extent[axis] - 1 - k : k) * strides[directions[axis].world];
  };

  std::vector<Value> values(size[0] * size[1] * size[2]);
  Inflated file(path());
  file.skip(header_.dataOffset());
  file.skip(std::uint64_t{piece.time} * values.size() * sizeof(Voxel));
  const bool reversed = header_.bigEndian() != (std::endian::native == std::endian::big);
  std::vector<std::uint8_t> plane(extent[0] * extent[1] * sizeof(Voxel));
  for (std::size_t k = 0; k < extent[2]; ++k) {
    if (progress) {
      progress->progress("inflating the volume", static_cast<int>(k), static_cast<int>(extent[2]));
    }
    file.read(plane);
    std::uint8_t* bytes = plane.data();
    for (std::size_t j = 0; j < extent[1]; ++j) {
      const std::size_t row = target(2, k) + target(1, j);
      for (std::size_t i = 0; i < extent[0]; ++i, bytes += sizeof(Voxel)) {
        values[row + target(0, i)] = convert<Value>(voxelAt<Voxel>(bytes, reversed));
      }
    }
  }
  if (piece.time + 1 == header_.volumes()) {
    file.expectEnd();
  }
  if (progress) {
    const int all = static_cast<int>(extent[2]);
    progress->progress("inflating the volume", all, all);
  }
  return values;
}

Samples NiftiDataset::read(const Variable&, const Piece& piece, const ProgressPtr& progress) {
  Samples samples;
  switch (header_.type()) {
  case 2:
    samples.raw = readVoxels<std::uint8_t, std::uint8_t>(piece, progress);
    break;
  case 4:
    samples.raw = readVoxels<std::int16_t, std::int16_t>(piece, progress);
    break;
  case 8:
    samples.raw = readVoxels<std::int32_t, float>(piece, progress);
    break;
  case 16:
    samples.raw = readVoxels<float, float>(piece, progress);
    break;
  case 64:
    samples.raw = readVoxels<double, float>(piece, progress);
    break;
  case 256:
    samples.raw = readVoxels<std::int8_t, float>(piece, progress);
    break;
  case 512:
    samples.raw = readVoxels<std::uint16_t, float>(piece, progress);
    break;
  default:
    samples.raw = readVoxels<std::uint32_t, float>(piece, progress);
  }
  if (header_.slope() != 0) {
    samples.factor = header_.slope();
    samples.offset = header_.intercept();
  }
  return samples;
}

} // namespace fields
