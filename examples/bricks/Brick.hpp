#pragma once

#include "VolumeFile.hpp"

#include <tolvane/DataCreature.hpp>

#include <atomic>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

/// @file
/// A brick of a volume, and the creator that reads it as often as it is needed.

namespace bricks {

/// The voxels of a box.
class Brick : public Tolvane::Cacheable {
public:
  Brick(const Box& box, std::vector<std::uint8_t> voxels) : box_(box), voxels_(std::move(voxels)) {}

  const Box& box() const { return box_; }
  std::span<const std::uint8_t> voxels() const { return voxels_; }

  /// The row at (y, z) within the brick.
  std::span<const std::uint8_t> row(std::size_t y, std::size_t z) const {
    return voxels().subspan((z * box_.size[1] + y) * box_.size[0], box_.size[0]);
  }

  Tolvane::memsize_t memsize() const override { return sizeof *this + voxels_.capacity(); }

private:
  const Box box_;
  const std::vector<std::uint8_t> voxels_;
};

/// Makes one brick from the file.
class BrickCreator : public Tolvane::DataCreature<Brick> {
public:
  /// `releases` is raised with every release; it outlives the creator.
  BrickCreator(const Tolvane::WeakPtr<Tolvane::Cache, Tolvane::CacheBase>& cache,
               Tolvane::StrongPtr<VolumeFile> file, const Box& box,
               std::atomic<std::uint64_t>& releases)
      : DataCreature(cache), file_(std::move(file)), box_(box), releases_(releases) {}

  int release() override {
    const int answer = DataCreature::release();
    releases_ += answer == 2 ? 1 : 0;
    return answer;
  }

protected:
  Pointer create() override { return new Brick(box_, file_->read(box_)); }

private:
  const Tolvane::StrongPtr<VolumeFile> file_;
  const Box box_;
  std::atomic<std::uint64_t>& releases_;
};

} // namespace bricks
