#include "NiftiHeader.hpp"

#include "../../data/FileError.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

namespace fields {

NiftiHeader::NiftiHeader(std::span<const std::uint8_t, Size> bytes) {
  std::copy(bytes.begin(), bytes.end(), bytes_.begin());
  bigEndian_ = bytes_[0] == 0;
  if (integer(0, 4) != Size || std::memcmp(&bytes_[344], "n+1", 4) != 0) {
    throw FileError("is no NIfTI-1 volume in one file");
  }
  const auto size = [this](std::size_t index) {
    return static_cast<std::int16_t>(integer(40 + 2 * index, 2));
  };
  bool volume = size(0) >= 3 && size(0) <= 7;
  for (std::size_t i = 1; volume && i <= static_cast<std::size_t>(size(0)); ++i) {
    volume = i <= 4 ? size(i) > 0 : size(i) <= 1;
  }
  if (!volume) {
    throw FileError("does not have the three dimensions of a volume, or the fourth of several");
  }
  for (std::size_t i = 0; i < 3; ++i) {
    extent_[i] = static_cast<std::size_t>(size(i + 1));
  }
  volumes_ = size(0) >= 4 ? static_cast<std::size_t>(size(4)) : 1;
  if (bytesPerVoxel() == 0) {
    throw FileError("has voxels of type " + std::to_string(type()) +
                    "; wanted are whole numbers of 8 to 32 bits and floating point");
  }
  const float offset = real(108);
  if (!(offset >= float{Size} && offset < 1e9F)) {
    throw FileError("is damaged: it does not say where its voxels begin");
  }
  dataOffset_ = static_cast<std::size_t>(offset);
}

std::uint32_t NiftiHeader::integer(std::size_t offset, std::size_t size) const {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < size; ++i) {
    value = value << 8 | bytes_[offset + (bigEndian_ ? i : size - 1 - i)];
  }
  return value;
}

float NiftiHeader::real(std::size_t offset) const {
  return std::bit_cast<float>(integer(offset, 4));
}

std::size_t NiftiHeader::bytesPerVoxel() const {
  switch (type()) {
  case 2:
  case 256:
    return 1;
  case 4:
  case 512:
    return 2;
  case 8:
  case 16:
  case 768:
    return 4;
  case 64:
    return 8;
  default:
    return 0;
  }
}

/// The matrix from voxels to millimetres: rows are x, y, z; the last column is the offset.
std::array<std::array<double, 4>, 3> NiftiHeader::matrix() const {
  std::array<std::array<double, 4>, 3> rows{};
  if (static_cast<std::int16_t>(integer(254, 2)) > 0) {
    for (std::size_t i = 0; i < 12; ++i) {
      rows[i / 4][i % 4] = real(280 + 4 * i);
    }
    return rows;
  }
  const bool turned = static_cast<std::int16_t>(integer(252, 2)) > 0;
  const double b = turned ? real(256) : 0, c = turned ? real(260) : 0, d = turned ? real(264) : 0;
  const double a = std::sqrt(std::max(0.0, 1 - b * b - c * c - d * d));
  const std::array<std::array<double, 3>, 3> rotation = {
      {{a * a + b * b - c * c - d * d, 2 * (b * c - a * d), 2 * (b * d + a * c)},
       {2 * (b * c + a * d), a * a + c * c - b * b - d * d, 2 * (c * d - a * b)},
       {2 * (b * d - a * c), 2 * (c * d + a * b), a * a + d * d - b * b - c * c}}};
  for (std::size_t row = 0; row < 3; ++row) {
    for (std::size_t column = 0; column < 3; ++column) {
      const double mirrored = turned && column == 2 && real(76) < 0 ? -1 : 1;
      rows[row][column] = rotation[row][column] * mirrored * std::abs(real(80 + 4 * column));
    }
    rows[row][3] = turned ? real(268 + 4 * row) : 0;
  }
  return rows;
}

/// Oblique volumes are shown along the directions that come nearest.
std::array<NiftiHeader::Direction, 3> NiftiHeader::directions() const {
  const auto rows = matrix();
  std::array<Direction, 3> directions{};
  std::array<bool, 3> taken{};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    std::size_t best = 3;
    for (std::size_t world = 0; world < 3; ++world) {
      if (!taken[world] &&
          (best == 3 || std::abs(rows[world][axis]) > std::abs(rows[best][axis]))) {
        best = world;
      }
    }
    taken[best] = true;
    double step = rows[best][axis], first = rows[best][3];
    if (!std::isfinite(step) || !std::isfinite(first) || step == 0) {
      step = 1;
      first = 0;
    }
    directions[axis] = {best, first, step};
  }
  return directions;
}

} // namespace fields
