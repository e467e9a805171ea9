#pragma once

#include <tolvane/CacheStatistics.hpp>

#include <atomic>
#include <cstddef>

/// @file
/// The sums of a whole cache, kept up to date by its queues. Internal to the library, not
/// installed.

namespace Tolvane::detail {

/// What all queues of one cache hold together, so that asking for it needs no walk over the
/// domains. Each figure is exact whenever no thread is about to change it.
struct CacheTotals {
  /// Bytes in the primary and temporaries queues. Every insertion changes it, on any thread; what
  /// follows is looked at as often and changes seldom, so that it has a cache line of its own.
  alignas(64) std::atomic<memsize_t> releasable{0};
  alignas(64) std::atomic<memsize_t> peak{0}; ///< The most that `releasable` ever was.
  std::atomic<memsize_t> kept{0};             ///< Bytes in the keepers queues.
  std::atomic<std::size_t> zombies{0};
  std::atomic<std::uint64_t> refused{0}; ///< Insertions that found no room.

  void countReleasable(memsize_t bytes) noexcept {
    const memsize_t now = releasable.fetch_add(bytes, std::memory_order_relaxed) + bytes;
    memsize_t most = peak.load(std::memory_order_relaxed);
    while (now > most && !peak.compare_exchange_weak(most, now, std::memory_order_relaxed)) {
    }
  }
};

} // namespace Tolvane::detail
