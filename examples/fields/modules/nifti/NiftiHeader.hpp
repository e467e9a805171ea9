#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

/// @file
/// The header of a NIfTI-1 volume.

namespace fields {

/// What the first 348 bytes of a volume say, in the byte order that they are written in.
class NiftiHeader {
public:
  static constexpr std::size_t Size = 348;

  /// Which way a voxel axis runs: along x (to the right), y (to the front) or z (to the top).
  struct Direction {
    std::size_t world = 0; ///< 0 for x, 1 for y, 2 for z.
    double first = 0;      ///< Where the first voxel lies, in millimetres.
    double step = 1;       ///< From one voxel to the next; may be negative.
  };

  /// Throws FileError when that is no header.
  explicit NiftiHeader(std::span<const std::uint8_t, Size> bytes);

  std::array<std::size_t, 3> extent() const { return extent_; }
  std::size_t volumes() const { return volumes_; }
  int type() const { return static_cast<std::int16_t>(integer(70, 2)); }
  /// The bytes of a voxel; 0 for a type that is not known.
  std::size_t bytesPerVoxel() const;
  std::size_t dataOffset() const { return dataOffset_; }
  float slope() const { return real(112); }
  float intercept() const { return real(116); }
  bool hasLabels() const { return integer(68, 2) == 1002; }
  bool bigEndian() const { return bigEndian_; }
  std::array<Direction, 3> directions() const;

private:
  std::uint32_t integer(std::size_t offset, std::size_t size) const;
  float real(std::size_t offset) const;
  std::array<std::array<double, 4>, 3> matrix() const;

  std::array<std::uint8_t, Size> bytes_{};
  bool bigEndian_ = false;
  std::array<std::size_t, 3> extent_{};
  std::size_t volumes_ = 1;
  std::size_t dataOffset_ = 0;
};

} // namespace fields
