#pragma once

#include <tolvane/Cache.hpp>

#include <cstdint>

/// @file
/// What a cache tells of itself.

namespace fields {

/// The figures of a cache that a play reports. All come from the cache.
struct CacheFigures {
  std::uint64_t entries = 0;
  Tolvane::memsize_t bytes = 0;
  std::uint64_t hits = 0;     ///< Objects that were there when they were wanted.
  std::uint64_t asked = 0;    ///< Creators that were asked to release.
  std::uint64_t evicted = 0;  ///< Objects that went.
  std::uint64_t refusals = 0; ///< Insertions without room.
};

/// The figures as they are now.
CacheFigures cacheFigures(const Tolvane::Cache& cache);

} // namespace fields
