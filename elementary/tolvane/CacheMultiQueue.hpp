#pragma once

#include <tolvane/CacheQueue.hpp>

#include <atomic>
#include <list>
#include <memory>
#include <mutex>

/// @file
/// All cached objects of one data domain under one creator domain: those that can be released,
/// those that could not be just now, those that are kept, and those that wait to be destroyed.
///
/// @code
/// Tolvane::CacheMultiQueue domain;
/// domain.push_front(brick);
/// domain.touch(brick);
/// @endcode

namespace Tolvane {

/// The three queues and the zombie list of one domain.
///
/// An object enters the primary queue; an eviction moves it to the temporaries or the keepers; each
/// later eviction first brings the oldest temporary back to the oldest end of the primary queue;
/// a touch brings any object back to its newest end.
///
/// Thread safety: any thread may call any operation.
class TOLVANE_API CacheMultiQueue {
public:
  /// No queue and no zombie yet.
  CacheMultiQueue();

  /// The same as part of a whole cache, whose sums its queues keep.
  explicit CacheMultiQueue(std::shared_ptr<detail::CacheTotals> totals);

  CacheMultiQueue(const CacheMultiQueue&) = delete;
  CacheMultiQueue& operator=(const CacheMultiQueue&) = delete;

  ~CacheMultiQueue();

  /// Makes an object the newest of the primary queue; nothing when it is gone. Returns whether it
  /// stands there now; see CacheQueue::push_front().
  bool push_front(const WeakPtr<Cacheable>& object);

  /// Makes an object the oldest of the primary queue, the first to be released.
  bool push_back(const WeakPtr<Cacheable>& object);

  /// Whether an object stands in one of the three queues.
  bool isAlreadyIncluded(const WeakPtr<Cacheable>& object) const;

  /// Makes an object, wherever it stands, the newest of the primary queue. Returns false when it
  /// is gone, and, after a line on standard output, when there is no primary queue yet.
  bool touch(const WeakPtr<Cacheable>& object) const;

  /// Keeps an object alive until the next purge_Hades(); nothing when it is gone, or when the
  /// domain is closed.
  void insert_zombie(const WeakPtr<Cacheable>& object);

  /// Lets go of the zombies.
  void purge_Hades();

  /// purge_Hades(), then the purge of all three queues; see CacheQueue::purge(). Returns the bytes
  /// that the queues lost.
  memsize_t purge();

  /// Makes room for `newCost` bytes; see CacheQueue::adjust(). Returns false when nothing was ever
  /// inserted here, and when this thread answers a release request of this very domain.
  bool adjust(const CacheBase& cache, memsize_t newCost);

  /// The listings of the three queues, as far as they exist.
  void list_info() const;

  /// The bytes that can be released, and with `all` those that are kept as well.
  memsize_t memsize(bool all) const;

  /// The number of entries of all queues.
  std::uint32_t nEntries() const;

  /// What the queues hold and what happened in them so far, as far as they exist; `creator` and
  /// `data` name the domain.
  CacheDomainStatistics statistics(const TypeInfo& creator, const TypeInfo& data) const;

  /// Notes that an insertion found no room.
  void countRefusal() noexcept { refused_.fetch_add(1, std::memory_order_relaxed); }

  /// Purges the queues, reporting what cannot be purged, and closes the domain for good: objects
  /// that stay alive stand in no queue afterwards, and none comes in any more.
  void close() noexcept;

  /// Whether the domain is closed.
  bool closed() const noexcept { return closed_.load(std::memory_order_relaxed); }

  /// The single queues, to look at; null until the queue is first needed. They live as long as
  /// the domain.
  const CacheQueue* primary() const noexcept { return primary_.get(); }
  /// Those that could not go just now.
  const CacheQueue* temporaries() const noexcept { return temporaries_.get(); }
  /// Those that are kept.
  const CacheQueue* keepers() const noexcept { return keepers_.get(); }

private:
  friend class CacheMap;
  friend class CreatorCacheMap;

  /// A queue that is made when it is first needed and stays from then on.
  struct Slot {
    StrongPtr<CacheQueue, Cacheable> owner;
    std::atomic<CacheQueue*> queue{nullptr};

    CacheQueue* get() const noexcept { return queue.load(std::memory_order_acquire); }
  };

  CacheQueue& obtain(Slot& slot, CacheQueue::Role role) {
    CacheQueue* const queue = slot.get();
    return queue != nullptr ? *queue : make(slot, role);
  }
  CacheQueue& make(Slot& slot, CacheQueue::Role role);
  /// Inserts an object that the caller holds together with its creator.
  bool insert(Cacheable& object, bool asOldest) {
    return obtain(primary_, CacheQueue::Role::Primary).insert(object, asOldest);
  }
  /// adjust() with an object, if any, that comes in where an eviction made the room.
  bool adjust(const CacheBase& cache, memsize_t newCost, detail::Entrant* entrant);
  static void takeBack(CacheQueue& primary, const CacheQueue& temporaries);
  template <class Visit>
  void forEachQueue(Visit visit) const;

  Slot primary_;
  Slot temporaries_;
  Slot keepers_;
  std::list<StrongPtr<Cacheable>> hades_;
  std::shared_ptr<detail::CacheTotals> totals_;
  std::atomic<std::uint64_t> refused_{0};
  std::atomic<bool> closed_{false};
  // Guards the making of queues and the zombies.
  mutable detail::PosixMutex mutex_{detail::PosixMutex::Kind::Plain};
};

} // namespace Tolvane
