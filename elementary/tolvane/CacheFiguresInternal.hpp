#pragma once

/// @file
/// The one place where verbose output reaches for the cache. Internal to the library, not
/// installed.

#include <tolvane/MemorySize.hpp>
#include <tolvane/WeakPtr.hpp>

namespace Tolvane {

class Cache;
class CacheBase;

namespace detail {

/// What a cache holds, in bytes; both 0 when there is no cache.
struct CacheFigures {
  bool present;
  memsize_t total;    ///< the cost of everything in it
  memsize_t freeable; ///< the part of it that could be released
};

/// The figures of the default cache. Asking never creates it: until it is there, there is none.
CacheFigures defaultCacheFigures() noexcept;

/// The figures of @p cache.
CacheFigures cacheFigures(const Cache& cache);

/// The figures of the cache that @p cache points to; none when it is empty or its cache is gone.
CacheFigures cacheFigures(const WeakPtr<Cache, CacheBase>& cache);

} // namespace detail
} // namespace Tolvane
