#pragma once

#include <tolvane/CacheStatistics.hpp>
#include <tolvane/Cacheable.hpp>

#include <cstdint>
#include <memory>
#include <vector>

/// @file
/// The cached objects of one domain in the order of their last use, and the eviction of the oldest.
///
/// @code
/// Tolvane::CacheQueue queue;
/// queue.push_front(brick);      // the newest entry
/// brick->markAsUsed();          // the newest again
/// assert(queue.nEntries() == 1 && queue.memsize() == brick->memsize());
/// @endcode

namespace Tolvane {

class CacheMultiQueue;

namespace detail {
struct CacheTotals;
struct Entrant;
} // namespace detail

/// A ring of cacheables from the newest to the oldest, without owning them.
///
/// Thread safety: any thread may call any operation of a queue that it knows to be alive; an
/// entry may die at any time. adjust() holds the queue while it asks the creators to release their
/// data. A `Creature::release` that is asked may destroy objects and use any other queue, but
/// - must not push into the queue that asks it: that throws std::system_error
///   (resource_deadlock_would_occur);
/// - must not wait for a thread that needs this queue: that never ends. The thread that waits
///   for the queue reports it once, as an irregularity, after ten seconds;
/// - finds a queue that another thread holds busy, which counts as "no room": waiting for it could
///   be a wait for each other.
///
/// The destructors of data run inside of such releases, and in a queue that looks at an object when
/// its last pointer goes elsewhere. The same holds for them, and an exception ends the process: a
/// destructor neither inserts nor uses other data of its own domain.
class TOLVANE_API CacheQueue : public Cacheable {
public:
  /// Visits the entries of a queue.
  class TOLVANE_API Iterator {
  public:
    /// Looks at one entry, which is held alive meanwhile. Returns whether to go on.
    virtual bool visit(Cacheable& entry) = 0;
    virtual ~Iterator();
  };

  /// An empty queue.
  CacheQueue();

  CacheQueue(const CacheQueue&) = delete;
  CacheQueue& operator=(const CacheQueue&) = delete;

  /// Purges the queue. Entries that stay alive stand in no queue afterwards; an entry without a
  /// creator is reported as an irregularity.
  ~CacheQueue() override;

  /// The sum of the entries' sizes as they were counted.
  memsize_t memsize() const override;

  /// Makes an object the newest entry, wherever it stood before; nothing when it is gone. Returns
  /// whether it stands here now; exceptions and the case of false are those of
  /// Cacheable::push_front.
  bool push_front(const WeakPtr<Cacheable>& object);

  /// The same under a name of its own in the trace.
  bool put_in_front(const WeakPtr<Cacheable>& object);

  /// Makes an object the oldest entry; otherwise as push_front().
  bool put_in_back(const WeakPtr<Cacheable>& object);

  /// Whether an object is alive and stands in this queue.
  bool isAlreadyIncluded(const WeakPtr<Cacheable>& object) const;

  /// The number of entries.
  std::uint32_t nEntries() const noexcept;

  /// The sum of what the entries say now, to be compared with memsize().
  memsize_t compute_memsize() const;

  /// Visits the entries from the newest to the oldest, as the ring stands at the start of the
  /// call; entries that go or leave meanwhile are passed over. Stops at the first visit that
  /// returns false. Returns how many returned true.
  unsigned iterate(Iterator& iterator) const;

  /// Prints a line per entry to standard output, from the newest: the name in braces, type,
  /// address and size; with a `detail` of 50 and more also the creator's type and the number of
  /// strong pointers.
  void list_info(int detail) const;

  /// The oldest entry; empty when there is none.
  WeakPtr<Cacheable> oldest() const;

  /// Asks the creator of every entry to release its data, from the newest on and from the newest
  /// again after each that went, whatever the creators answer. Entries made meanwhile are not
  /// asked. Holds no lock while it asks. Returns the bytes that went.
  ///
  /// Throws NullPtrException, after its report, at an entry without a live creator, and what a
  /// creator throws; the queue is whole then. A creator that is just being destroyed is not asked.
  /// An entry whose creator is gone is once given some hundredths of a second to follow it, because
  /// another thread may just be looking at it.
  memsize_t purge();

  /// Releases the oldest entries until `newCost` bytes fit the limit of `cache`, or no entry is
  /// left. Entries whose creators answer 1 move to `temporaries`, 0 to `keepers`. Returns whether
  /// there is room; an empty queue answers true at once.
  ///
  /// Returns false with one irregularity report after 100 answers in a row that left the number
  /// of entries as it was. Throws as purge() does; an entry whose creator is just being destroyed
  /// moves to `temporaries`.
  bool adjust(const CacheBase& cache, memsize_t newCost, CacheQueue& temporaries,
              CacheQueue& keepers);

  /// Whether this thread holds the queue, because it answers a release request of it.
  bool heldByThisThread() const noexcept;

  /// What the queue holds, and what happened in it so far. Refusals belong to a domain, not to a
  /// queue.
  CacheCounts counts() const noexcept;

private:
  friend class Cacheable;
  friend class CacheMultiQueue;
  class Lock;
  class Eviction;

  /// The part that a queue plays in its domain.
  enum class Role { Primary, Temporaries, Keepers };

  /// A figure that is raised under the mutex of the queue only and read by any thread.
  class Tally {
  public:
    void add(std::uint64_t amount) noexcept {
      value_.store(get() + amount, std::memory_order_relaxed);
    }
    std::uint64_t get() const noexcept { return value_.load(std::memory_order_relaxed); }

  private:
    std::atomic<std::uint64_t> value_{0};
  };

  /// A queue of a domain of a cache, towards whose sums its own count.
  CacheQueue(std::shared_ptr<detail::CacheTotals> totals, const CacheMultiQueue* domain, Role role);

  inline void count(memsize_t bytes, int entries) noexcept;
  inline void countEntry(const CacheQueue* from, Entry entry) noexcept;
  bool put(const char* operation, const WeakPtr<Cacheable>& object, End end, Entry entry);
  bool insert(Cacheable& object, bool asOldest);
  bool adjust(const CacheBase& cache, memsize_t newCost, CacheQueue& temporaries,
              CacheQueue& keepers, detail::Entrant* entrant);
  static void trace(const char* operation, const WeakPtr<Cacheable>& object);
  bool askAgain(const WeakPtr<Cacheable>& object);
  bool includes(const Cacheable& object) const;
  bool isOldest(const WeakPtr<Cacheable>& object) const;
  inline const Cacheable* firstAlive() const noexcept;
  inline bool holdOldest(detail::Held<Cacheable, Cacheable>& held) const noexcept;
  bool goesByItself(const WeakPtr<Cacheable>& entry) const;
  std::vector<WeakPtr<Cacheable>> snapshot() const;
  memsize_t purgeEntries(bool tolerant);
  void releaseEntries();
  void close() noexcept;

  std::atomic<memsize_t> total_{0};
  std::atomic<std::uint32_t> entries_{0};
  mutable detail::PosixMutex queueMutex_{detail::PosixMutex::Kind::Plain};
  std::shared_ptr<detail::CacheTotals> totals_;
  const CacheMultiQueue* const domain_ = nullptr;
  const Role role_ = Role::Primary;
  bool closed_ = false; // takes no entry any more; guarded by the mutex of the node

  Tally inserted_;
  Tally touched_;
  Tally asked_;
  Tally released_;
  Tally temporary_;
  Tally kept_;
  Tally evicted_;
  Tally evictedBytes_;
};

} // namespace Tolvane
