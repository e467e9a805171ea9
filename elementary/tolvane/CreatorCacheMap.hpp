#pragma once

#include <tolvane/CacheMap.hpp>

#include <memory>
#include <typeinfo>

/// @file
/// All cached objects of a cache, filed by the type of their creator and then by their own.
///
/// @code
/// Tolvane::CreatorCacheMap map;
/// map.insert(brick, false);
/// std::cout << map.nEntries() << " entries, " << map.memsize(true) << " bytes\n";
/// @endcode

namespace Tolvane {

class Cache;

/// One CacheMap per creator domain, in the order in which the domains were first used.
///
/// Thread safety: any thread may call any operation.
class TOLVANE_API CreatorCacheMap {
public:
  CreatorCacheMap();
  CreatorCacheMap(const CreatorCacheMap&) = delete;
  CreatorCacheMap& operator=(const CreatorCacheMap&) = delete;

  /// Purges all queues.
  ~CreatorCacheMap();

  /// Files an object under its CreatorType() and DomainType(), as the oldest or the newest; nothing
  /// when it is gone. Returns whether it is filed; see CacheQueue::push_front().
  bool insert(const WeakPtr<Cacheable>& object, bool asOldest);

  /// Keeps an object alive until the next purge_Hades(); nothing when it is gone.
  void insert_zombie(const WeakPtr<Cacheable>& object);

  /// Makes an object the newest of its domain. Returns false when it is gone, and, after a line on
  /// standard output, when one of its domains is unknown.
  bool touch(const WeakPtr<Cacheable>& object);

  /// touch() where it comes to moving the object within its queue and nobody is to be waited for.
  /// Returns whether it was done; nothing happened otherwise.
  bool touchAtOnce(const WeakPtr<Cacheable>& object) noexcept;

  /// The bytes that can be released, and with `all` those that are kept as well. Walks over
  /// nothing.
  memsize_t memsize(bool all) const;

  /// The number of entries of all domains.
  std::uint32_t nEntries() const;

  /// Purges every domain; see CacheQueue::purge(). Returns the bytes that went.
  memsize_t purge();

  /// Lets go of the zombies of every domain.
  void purge_Hades();

  /// Makes room for `newCost` bytes: in the creator domain `creatorType` and its data domain
  /// `domainType` first, then in all others in turn. See CacheQueue::adjust().
  bool adjust(const std::type_info& creatorType, const std::type_info& domainType,
              const CacheBase& cache, memsize_t newCost);

  /// Prints all domains to standard output.
  void list_info() const;
  /// Prints one creator domain.
  void list_info(const std::type_info& creatorType) const;
  /// Prints one data domain of a creator domain.
  void list_info(const std::type_info& creatorType, const std::type_info& domainType) const;

  /// What the domains hold and what happened in them so far; without the limit.
  CacheStatistics statistics() const;

  /// Notes that an insertion found no room.
  void countRefusal(const std::type_info& creatorType, const std::type_info& domainType) noexcept;

  /// The map of a creator domain; empty when there is none.
  StrongPtr<CacheMap> creatorDomain(const std::type_info& creatorType) const;

  /// Purges and removes what is filed under `type`, as a creator or as data, so that no key
  /// refers to it any more: for a module that is about to be unloaded. Objects that stay alive
  /// stand in no queue afterwards. A release that is just now asked there finishes its work.
  /// Returns the bytes that went. See CacheMap::forget().
  memsize_t forget(const std::type_info& type);

private:
  friend class Cache;
  struct Domains;

  /// Where objects of a creator domain and a data domain belong, as far as there is something yet.
  /// Found once for all that an insertion does.
  struct Place {
    CacheMap* map = nullptr;
    CacheMultiQueue* queues = nullptr;
  };
  Place find(const std::type_info& creatorType, const std::type_info& domainType) const;

  bool insert(Cacheable& object, const Place& place, const std::type_info& creatorType,
              const std::type_info& domainType, bool asOldest);
  bool insertAnew(Cacheable& object, const std::type_info& creatorType,
                  const std::type_info& domainType, bool asOldest);
  bool adjust(const Place& own, const std::type_info& creatorType, const std::type_info& domainType,
              const CacheBase& cache, memsize_t newCost, detail::Entrant* entrant);
  bool adjustAny(const Place& own, const std::type_info& domainType, const CacheBase& cache,
                 memsize_t newCost);
  bool hasZombies() const noexcept;
  const std::atomic<memsize_t>& freeable() const noexcept;
  CacheMap& obtain(const std::type_info& creatorType);
  CacheMap* find(const std::type_info& creatorType) const;

  std::shared_ptr<detail::CacheTotals> totals_;
  std::unique_ptr<Domains> domains_;
};

} // namespace Tolvane
