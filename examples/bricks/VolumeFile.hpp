#pragma once

#include <tolvane/StrongPtr.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

/// @file
/// A volume of bytes in a file, of which any part can be read at any time.

namespace bricks {

/// A number of voxels along x, y and z.
using Extent = std::array<std::size_t, 3>;

/// The voxels from `origin` on; `size` is within the volume.
struct Box {
  Extent origin;
  Extent size;
};

inline std::uint64_t voxels(const Extent& extent) {
  return std::uint64_t{extent[0]} * extent[1] * extent[2];
}

/// A file that is no volume, or not all of one; what() names the file.
class VolumeError : public std::runtime_error {
public:
  VolumeError(const std::string& file, const std::string& reason)
      : runtime_error(file + ": " + reason) {}
};

/// An opened volume: NIfTI-1 in one file, compressed by gzip or not, one unsigned byte a voxel.
///
/// Only a compressed file's beginning can be reached quickly. So it is inflated once, into a file
/// without a name that goes with this object, and all bricks are read from that.
///
/// Thread safety: any thread may read.
class VolumeFile : public Tolvane::ReferenceBase<VolumeFile> {
public:
  /// Reads and checks the whole file. Throws VolumeError, and std::system_error when there is no
  /// room for the inflated voxels.
  explicit VolumeFile(const std::string& path);

  const Extent& extent() const { return extent_; }

  /// The voxels of a box, row by row. Throws std::system_error when they cannot be read.
  std::vector<std::uint8_t> read(const Box& box) const;

private:
  struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  Extent extent_{};
  std::unique_ptr<std::FILE, Close> scratch_;
  mutable std::mutex mutex_; // the scratch file has one position
};

} // namespace bricks
