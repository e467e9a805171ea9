#pragma once

#include <tolvane/MemorySize.hpp>

#include <atomic>
#include <cstddef>
#include <cstdint>

/// @file
/// The sums of a whole cache, kept up to date by its queues. Internal to the library, not
/// installed.

namespace Tolvane::detail {

/// What all queues of one cache hold together, so that asking for it needs no walk over the
/// domains. Each figure is exact whenever no thread is about to change it.
struct CacheTotals {
  std::atomic<memsize_t> releasable{0}; ///< Bytes in the primary and temporaries queues.
  std::atomic<memsize_t> kept{0};       ///< Bytes in the keepers queues.
  std::atomic<std::uint32_t> entries{0};
  std::atomic<std::size_t> zombies{0};
};

} // namespace Tolvane::detail
