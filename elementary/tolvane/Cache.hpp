#pragma once

#include <tolvane/CacheBase.hpp>
#include <tolvane/Cacheable.hpp>
#include <tolvane/CreatorCacheMap.hpp>
#include <tolvane/Exception.hpp>

#include <atomic>
#include <limits>
#include <string>
#include <typeinfo>

/// @file
/// The cache manager: it keeps the memory of data objects within a limit by asking the creators of
/// the least recently used ones to release what they can make again.
///
/// @code
/// #include <tolvane/Cache.hpp>
///
/// Tolvane::StrongPtr<Tolvane::Cache, Tolvane::CacheBase> cache =
///     new Tolvane::Cache(64 << 20, "bricks");
/// if (!cache->insert(brick, false)) {
///   std::cout << "no room for " << brick->memsize() << " bytes\n";
/// }
/// cache->touch(brick);   // the newest again
/// @endcode

namespace Tolvane {

class Creature;

/// A memory-limited store of data objects, which it does not own.
///
/// An object is filed under the type of its creator and its own. An insertion that would pass the
/// limit first releases old objects of the same domain, then of the others. Data that can never be
/// released, because its creator said so, does not count against the limit.
///
/// Thread safety: any thread may call any operation of a cache that somebody holds meanwhile: a
/// thread that has no strong pointer of its own takes one first, as in
/// `if (const auto cache = weak.lock()) cache->insert(...)`. What runs inside a call, the release
/// of a creator, the destructor of data or a catcher of messages, may let go of the last one in
/// insert(), touch(), adjust(), purge(), purge_Hades() and forget(). A cache on the stack is
/// destroyed by its owner after everybody is done.
class TOLVANE_API Cache : public CacheBase {
public:
  /// What a creator gets whose object found no room.
  class TOLVANE_API OutOfMemory : public Exception {
  public:
    /// Each of the pointers may be empty.
    OutOfMemory(const StrongPtr<Cacheable>& object, const WeakPtr<Creature>& creator,
                const WeakPtr<Cache, CacheBase>& cache);
    /// Throws std::bad_alloc.
    OutOfMemory(const OutOfMemory& other);
    ~OutOfMemory() override;

    /// "Not enough memory to handle " and the type of the object, or "Unknown object".
    const char* what() const noexcept override;

    /// The object that did not fit; it lives at least as long as the exception.
    const StrongPtr<Cacheable>& object() const noexcept { return object_; }
    /// The creator of the object.
    const WeakPtr<Creature>& creator() const noexcept { return creator_; }
    /// The cache that had no room.
    const WeakPtr<Cache, CacheBase>& cache() const noexcept { return cache_; }

  private:
    StrongPtr<Cacheable> object_;
    WeakPtr<Creature> creator_;
    WeakPtr<Cache, CacheBase> cache_;
    std::string text_;
  };

  /// An empty cache for up to `limit` bytes of releasable data.
  Cache(memsize_t limit, const std::string& name);

  Cache(const Cache&) = delete;
  Cache& operator=(const Cache&) = delete;

  /// Purges the queues. Objects that stay alive stand in no queue afterwards.
  ~Cache() override;

  memsize_t totalCost(bool all) const override;
  memsize_t limit() const override;

  /// Always throws OutOfMemory; a derived cache may decide otherwise.
  bool handleOutOfMemory(const StrongPtr<Cacheable>& object,
                         const WeakPtr<Creature>& creator) override;

  /// Files an object, after making room for it, as the oldest of its domain with `asOldest`, else
  /// as the newest. An object that stands in the cache already is moved.
  ///
  /// Returns false when there is no room, and for an object that is gone, is held by no strong
  /// pointer, or has no creator that is held by one. Throws what a creator throws that is asked to
  /// release its data, NullPtrException where an entry has no live creator, and std::system_error
  /// for an object of the very domain whose release request this thread answers.
  ///
  /// Where there is no memory, for the first entry of a domain above all, it throws std::bad_alloc:
  /// the object then stands where it stood, but data that went to make room is gone.
  ///
  /// The object's first strong pointer decides over its life: take it before the insertion and
  /// keep it.
  bool insert(const WeakPtr<Cacheable>& object, bool asOldest);

  /// Keeps an object alive until the next insertion or purge_Hades(); nothing when it is gone.
  void insert_zombie(const WeakPtr<Cacheable>& object);

  /// Lets go of the zombies.
  void purge_Hades();

  /// Marks an object as the most recently used of its domain. Returns false when it is gone or,
  /// after a line on standard output, when its domain is unknown.
  bool touch(const WeakPtr<Cacheable>& object);

  /// Asks every creator to release its data; see CacheQueue::purge(). Returns the bytes that went.
  memsize_t purge();

  /// Makes room for `newCost` bytes of data of `domainType` made by `creatorType`. Returns whether
  /// they fit now. Throws as insert() does.
  bool adjust(const std::type_info& creatorType, const std::type_info& domainType,
              memsize_t newCost);

  /// What the cache holds and what happened in it so far, by domains.
  CacheStatistics statistics() const;

  /// The number of objects in the cache.
  std::uint32_t nEntries() const;

  /// The objects as they are filed, to look at; lives as long as the cache.
  const CreatorCacheMap& objects() const noexcept { return objects_; }

  /// Prints the whole cache to standard output.
  void list_info() const;
  /// Prints one creator domain.
  void list_info(const std::type_info& creatorType) const;
  /// Prints one data domain of a creator domain.
  void list_info(const std::type_info& creatorType, const std::type_info& domainType) const;

  /// Purges and removes what is filed under `type`, as a creator or as data, so that nothing
  /// refers to the type any more: for a module that is about to be unloaded. Objects that stay
  /// alive stand in no queue afterwards. A thread or a release that is just now in one of these
  /// domains finishes first, and only then the domain is gone: before the module is unloaded, the
  /// host sees to it that none is. Where it ends with an exception, std::bad_alloc included, what
  /// it came to is gone all the same, and what was not asked yet lives on outside; a repeated call
  /// does the rest. Returns the bytes that went.
  memsize_t forget(const std::type_info& type);

  /// The trace level of all caches: the variable `MEMCACHE_VERBOSITY`, read once.
  static int verbosity() {
    const int known = knownVerbosity.load(std::memory_order_relaxed);
    return known != Unread ? known : readVerbosity();
  }

  /// The default cache of the process, made on first use with the size that the variable
  /// `TOLVANE_CACHESIZE` says. It lives until the process ends.
  static WeakPtr<Cache, CacheBase> MemCache();

private:
  struct Applicant;

  static constexpr int Unread = std::numeric_limits<int>::min();
  static std::atomic<int> knownVerbosity;
  static int readVerbosity();

  template <class List>
  void list(List list) const;
  inline bool fits(memsize_t cost) const;
  inline bool makeRoom(const CreatorCacheMap::Place& place, const std::type_info& creatorType,
                       const std::type_info& domainType, memsize_t newCost,
                       detail::Entrant* entrant);
  bool refuse(memsize_t cost, const std::type_info& creatorType, const std::type_info& domainType);

  // In cache lines without the record of the cache, which is made next: evictions on all threads
  // change that, and look at these.
  alignas(64) CreatorCacheMap objects_;
  const memsize_t limit_;
  const std::atomic<memsize_t>& freeable_; // a sum of the objects', at hand for all insertions
};

} // namespace Tolvane
