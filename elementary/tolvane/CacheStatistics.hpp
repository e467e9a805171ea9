#pragma once

#include <tolvane/Api.hpp>
#include <tolvane/MemorySize.hpp>
#include <tolvane/TypeInfo.hpp>

#include <cstdint>
#include <string>
#include <vector>

/// @file
/// What a cache holds and what happened in it so far, in figures.
///
/// @code
/// #include <tolvane/Cache.hpp>
///
/// const Tolvane::CacheStatistics now = cache->statistics();
/// std::cout << now.peak << " of " << now.limit << " bytes, " << now.total.touched << " uses, "
///           << now.total.evicted << " evictions\n";
/// @endcode

namespace Tolvane {

/// The figures of a queue, a domain or a whole cache. The first two are those of this moment, the
/// others count from its making on. All are kept up to date at all times, which costs next to
/// nothing.
///
/// A domain that has far more `asked` than `evicted` is searched in vain: its objects are in use or
/// cannot be made again. A domain that has `inserted` and `evicted` but few `touched` holds what
/// nobody uses twice, or gets no room beside another domain.
struct CacheCounts {
  std::uint64_t entries = 0;   ///< Objects that stand there now.
  memsize_t bytes = 0;         ///< Their sizes.
  std::uint64_t inserted = 0;  ///< Objects that came from outside of the domain.
  std::uint64_t touched = 0;   ///< Uses of objects that stood in the domain already: the hits.
  std::uint64_t asked = 0;     ///< Calls of Creature::release() that came back, to make room.
  std::uint64_t released = 0;  ///< Answers 2: the data went.
  std::uint64_t temporary = 0; ///< Answers 1: not just now.
  std::uint64_t kept = 0;      ///< Answers 0: never.
  std::uint64_t unusual = 0;   ///< Any other answer.
  std::uint64_t evicted = 0;   ///< Objects that were gone when their creator had answered.
  memsize_t evictedBytes = 0;  ///< The sizes of those.
  std::uint64_t refused = 0;   ///< Insertions into the domain that found no room.

  /// The figures of what happened as a line of text.
  TOLVANE_API std::string str() const;

  /// Adds the figures of another queue or domain.
  TOLVANE_API CacheCounts& operator+=(const CacheCounts& other) noexcept;
};

/// The figures of the objects of one type made by creators of one type.
struct CacheDomainStatistics {
  TypeInfo creator;        ///< The type of the creators. Refers to their module.
  TypeInfo data;           ///< The type of the objects. Refers to their module.
  CacheCounts primary;     ///< Those that can be released, and what happened in the domain.
  CacheCounts temporaries; ///< Those that could not go just now.
  CacheCounts keepers;     ///< Those that are kept.

  /// The sum of the three queues.
  TOLVANE_API CacheCounts total() const noexcept;
};

/// The figures of a cache. Those of different domains may be of slightly different moments while
/// other threads work.
struct CacheStatistics {
  memsize_t limit = 0;    ///< The most bytes that releasable data may take.
  memsize_t freeable = 0; ///< What counts against the limit now.
  memsize_t peak = 0;     ///< The most that ever counted against it.
  CacheCounts total;      ///< The sum of all domains; refusals also of domains that are not there.
  std::vector<CacheDomainStatistics> domains; ///< In the order of their first use.
};

} // namespace Tolvane
