#pragma once

#include <tolvane/MemorySize.hpp>
#include <tolvane/StrongPtr.hpp>

#include <string>

/// @file
/// What the queues and creators need to know of a cache manager.
///
/// @code
/// void show(const Tolvane::CacheBase& cache) {
///   std::cout << cache.name() << ": " << cache.totalCost(true) << " of " << cache.limit();
/// }
/// @endcode

namespace Tolvane {

class Cacheable;
class Creature;

/// The abstract cache manager: a name, a limit, and what counts against it.
///
/// Thread safety: the name never changes; for the rest see Cache.
class TOLVANE_API CacheBase : public ReferenceBase<CacheBase> {
public:
  /// A cache of that name.
  explicit CacheBase(std::string name);
  ~CacheBase() override;

  /// The bytes in the cache: with `all` everything, without it only what can be released. 0 here.
  virtual memsize_t totalCost(bool all) const;

  /// The most bytes that the releasable data may take.
  virtual memsize_t limit() const = 0;

  /// Called by a creator whose `object` found no room. Returns whether to try again, which the
  /// creator then does for as long as the answer is true. False here.
  virtual bool handleOutOfMemory(const StrongPtr<Cacheable>& object,
                                 const WeakPtr<Creature>& creator);

  /// The name, for reports.
  const std::string& name() const noexcept { return name_; }

private:
  const std::string name_;
};

} // namespace Tolvane
