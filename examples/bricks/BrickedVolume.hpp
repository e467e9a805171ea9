#pragma once

#include "Brick.hpp"

#include <tolvane/Cache.hpp>

#include <cstdint>
#include <functional>
#include <vector>

/// @file
/// A volume as bricks that come and go with the cache.

namespace bricks {

/// What the cache had to do.
struct CacheFigures {
  std::uint64_t insertions = 0;
  std::uint64_t releases = 0;
  std::uint64_t madeAgain = 0;
  Tolvane::memsize_t peak = 0; ///< The most bytes that the cache counted at a time.
};

/// All bricks of a volume.
///
/// Thread safety: none beyond that of its parts; one thread walks at a time.
class BrickedVolume {
public:
  using CachePtr = Tolvane::StrongPtr<Tolvane::Cache, Tolvane::CacheBase>;

  /// Makes a creator for each brick of up to `edge` voxels in each direction; reads nothing yet.
  BrickedVolume(const Tolvane::StrongPtr<VolumeFile>& file, std::size_t edge, CachePtr cache);

  const Extent& extent() const { return extent_; }
  std::size_t count() const { return creators_.size(); }

  /// Shows every brick once, each time in the opposite order: what one walk used last is still
  /// there when the next one begins. A brick lives for as long as it is shown. Throws what reading
  /// throws, and Cache::OutOfMemory.
  void walk(const std::function<void(const Brick&)>& show);

  CacheFigures figures() const;

private:
  const Extent extent_;
  const CachePtr cache_;
  std::atomic<std::uint64_t> releases_{0};
  Tolvane::memsize_t peak_ = 0;
  std::vector<Tolvane::StrongPtr<BrickCreator, Tolvane::Creature>> creators_;
  bool backwards_ = false;
};

} // namespace bricks
