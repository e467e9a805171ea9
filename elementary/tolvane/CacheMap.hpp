#pragma once

#include <tolvane/CacheMultiQueue.hpp>
#include <tolvane/TypeInfo.hpp>

#include <atomic>
#include <memory>
#include <typeinfo>
#include <vector>

/// @file
/// The cached objects of one creator domain, filed by their own type.
///
/// @code
/// Tolvane::StrongPtr<Tolvane::CacheMap> map = new Tolvane::CacheMap;
/// map->insert(brick, false);
/// map->touch(brick);
/// @endcode

namespace Tolvane {

/// One CacheMultiQueue per data domain, in the order in which the domains were first used.
///
/// Thread safety: any thread may call any operation. No lock is held while a creator is asked,
/// except that of the queue that asks.
class TOLVANE_API CacheMap : public ReferenceBase<CacheMap> {
public:
  CacheMap();

  /// The same as part of a whole cache, whose sums its queues keep.
  explicit CacheMap(std::shared_ptr<detail::CacheTotals> totals);

  CacheMap(const CacheMap&) = delete;
  CacheMap& operator=(const CacheMap&) = delete;
  ~CacheMap() override;

  /// Files an object under its DomainType(), as the oldest or the newest; nothing when it is gone.
  /// Returns whether it is filed; see CacheQueue::push_front().
  bool insert(const WeakPtr<Cacheable>& object, bool asOldest);

  /// Keeps an object alive until the next purge_Hades(); nothing when it is gone.
  void insert_zombie(const WeakPtr<Cacheable>& object);

  /// Whether an object stands in a queue of its domain.
  bool isAlreadyIncluded(const WeakPtr<Cacheable>& object) const;

  /// Makes an object the newest of its domain. Returns false when it is gone, and, after a line on
  /// standard output, when its domain is unknown.
  bool touch(const WeakPtr<Cacheable>& object);

  /// The bytes that can be released, and with `all` those that are kept as well.
  memsize_t memsize(bool all) const;

  /// The number of entries of all domains.
  std::uint32_t nEntries() const;

  /// Purges every domain; see CacheQueue::purge(). Returns the bytes that went.
  memsize_t purge();

  /// Lets go of the zombies of every domain.
  void purge_Hades();

  /// Makes room for `newCost` bytes: in the domain of `domainType` first, then in all domains in
  /// turn. See CacheQueue::adjust().
  bool adjust(const std::type_info& domainType, const CacheBase& cache, memsize_t newCost);

  /// Prints every domain to standard output.
  void list_info() const;
  /// Prints one domain to standard output.
  void list_info(const std::type_info& domainType) const;

  /// The data domains in the order of their first use.
  std::vector<TypeInfo> domains() const;

  /// The queues of a domain; null when there are none. Valid as long as the map; empty from
  /// forget() of that domain on.
  const CacheMultiQueue* domain(const std::type_info& domainType) const;

  /// Notes that an insertion into a domain found no room; nothing when there is no such domain.
  void countRefusal(const std::type_info& domainType) noexcept;

  /// Purges a domain and removes it; objects that stay alive stand in no queue afterwards. A
  /// release that is just now asked there finishes its work. Returns the bytes that went. The
  /// emptied domain, some hundred bytes, stays in memory as long as the map, for a thread that may
  /// still be looking at it.
  memsize_t forget(const std::type_info& domainType);

  /// forget() of all domains, and no domain comes in any more.
  memsize_t close();

  /// Whether close() was called.
  bool closed() const noexcept { return closed_.load(std::memory_order_relaxed); }

private:
  friend class CreatorCacheMap;
  struct Domains;

  bool insert(Cacheable& object, const std::type_info& domainType, bool asOldest);
  bool adjust(CacheMultiQueue* own, const std::type_info& domainType, const CacheBase& cache,
              memsize_t newCost);
  CacheMultiQueue* find(const std::type_info& domainType) const;
  CacheMultiQueue& obtain(const std::type_info& domainType);

  std::shared_ptr<detail::CacheTotals> totals_;
  std::atomic<bool> closed_{false};
  std::unique_ptr<Domains> domains_;
};

} // namespace Tolvane
