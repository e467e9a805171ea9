#pragma once

#include "BrickedVolume.hpp"
#include "Picture.hpp"

#include <cstdint>

/// @file
/// What the host computes, in three walks over the volume.

namespace bricks {

/// Whole numbers, so that no order of the bricks changes them.
struct Figures {
  std::uint64_t voxels = 0;
  std::uint64_t sum = 0;
  std::uint64_t aboveMean = 0;
  std::uint8_t maximum = 0;

  double mean() const { return static_cast<double>(sum) / static_cast<double>(voxels); }
};

/// Walks twice: for the mean, then for how many voxels are above it.
Figures computeFigures(BrickedVolume& volume);

/// The brightest voxel of each line along x, seen from the side: y to the right, z up, in shades
/// that are spread over the whole range. Walks once.
Picture projectMaximum(BrickedVolume& volume);

} // namespace bricks
