#pragma once

#include <tolvane/MemorySize.hpp>
#include <tolvane/PosixMutex.hpp>
#include <tolvane/StrongPtr.hpp>

#include <atomic>
#include <mutex>
#include <string>
#include <typeinfo>

/// @file
/// A data object whose memory the cache counts and may ask back.
///
/// @code
/// #include <tolvane/Cacheable.hpp>
///
/// class Brick : public Tolvane::Cacheable {
/// public:
///   explicit Brick(std::size_t bytes) : data_(bytes) {}
///   Tolvane::memsize_t memsize() const override { return sizeof *this + data_.size(); }
///
/// private:
///   std::vector<char> data_;
/// };
/// @endcode

namespace Tolvane {

class Cache;
class CacheBase;
class CacheQueue;
class CreatorCacheMap;
class Creature;

namespace detail {
struct CacheTotals;
template <class T, class Base>
class Held;
} // namespace detail

/// The unit of memory that the cache manager counts, ages and evicts.
///
/// An object knows its size, the Creature that produced it, and the CacheQueue it stands in. It
/// stands in at most one queue, by links inside the object itself; a queue does not own it.
///
/// The first strong pointer to an object decides over its life: a strong pointer taken and dropped
/// inside the object's own constructor destroys the object under construction. Where a
/// constructor needs the object to be in the cache, put that into DeferredConstructor() and have
/// the maker call CacheableDeferredConstructor() once the object is held.
///
/// Thread safety: any thread may call any operation on an object that it knows to be alive.
/// memsize(), DomainType() and CreatorType() may be called by any thread at any time while the
/// object stands in a queue, also inside of the queue, so an override reads only what is constant
/// or atomic and changes nothing, least of all the cache.
class TOLVANE_API Cacheable : public ReferenceBase<Cacheable> {
public:
  /// An object without a creator, in no queue. Throws std::bad_alloc, and std::system_error when
  /// the platform has no mutex left.
  Cacheable();

  /// The same: queue, creator and size belong to an object and are never copied.
  Cacheable(const Cacheable& other);

  /// An object made by `creator`; an empty pointer means none.
  explicit Cacheable(const WeakPtr<Creature, Creature>& creator);

  /// Takes the object out of its queue's ring.
  ~Cacheable() override;

  /// Copies nothing: queue, creator and size belong to an object.
  Cacheable& operator=(const Cacheable& other) noexcept;

  /// The bytes that the object occupies. 0 here; concrete classes override it. The answer may
  /// only change together with adjustCacheableSize(), see there and MutableCacheable. It is asked
  /// a last time when the object dies, and must not throw then.
  virtual memsize_t memsize() const;

  /// What a class wants to do once its object is complete and held. Does nothing by default.
  virtual void DeferredConstructor();

  /// The data domain under which the cache files the object: its dynamic type.
  virtual const std::type_info& DomainType() const;

  /// The creator domain under which the cache files the object: the dynamic type of its creator,
  /// or `typeid(void)` when that is not there.
  virtual const std::type_info& CreatorType() const;

  /// Replaces the creator; an empty pointer means none.
  void setCreator(const WeakPtr<Creature, Creature>& creator);

  /// The creator; empty when there is none.
  WeakPtr<Creature, Creature> creator() const;

  /// The cache manager of the creator; empty when there is no creator or it has none.
  WeakPtr<Cache, CacheBase> myCache() const;

  /// The text that stands for the object in reports and listings; empty at first.
  std::string name() const;
  /// Sets that text.
  void setName(std::string name);

  /// The other nodes of the ring that the object stands in, the queue's own node included; 0 when
  /// it stands in none.
  unsigned NumberOfListEntries() const;

  /// Hands the object over to its creator's cache as the newest entry (the creator's
  /// `enableCaching(false)`, with its exceptions), then calls DeferredConstructor(). Returns the
  /// object.
  Cacheable& CacheableDeferredConstructor();

  /// Tells the queue that the size grew by `delta` bytes; a shrink is the two's complement.
  ///
  /// A class that keeps its size by hand changes it first and calls this next. Between the two
  /// steps no other thread may move the object to another queue, or the totals of the two queues
  /// drift apart by `delta`; MutableCacheable does both in one step and has no such condition.
  void adjustCacheableSize(unsigned long long delta);

  /// Makes the object the newest of its queue. Returns false when it stands in none, or when the
  /// queue is busy on another thread while this one answers a release request.
  bool markAsUsed();

  /// Takes the object out of its queue and of its sums, for a creator that goes before its data: an
  /// entry without a creator is misuse of the queue. From then on markAsUsed() does not bring it
  /// back, an insertion does. Returns whether it stood in a queue. Waits for no queue, so a release
  /// may call it, too.
  bool leaveQueue();

  /// Called when the last strong pointer went, before the destructor: takes the object out of the
  /// sums of its queue.
  void PreDestructor();

  /// Makes the object the oldest of `queue`, wherever it stood before. Throws std::system_error
  /// when this thread holds the queue already, because it answers a release request of it.
  /// Returns false, and changes nothing, where the queue is busy on another thread while this one
  /// answers a release request of a second queue, and for an object whose last strong pointer went.
  /// A queue cannot be an entry of a queue: std::invalid_argument.
  bool push_back(CacheQueue& queue);

  /// Makes the object the newest of `queue`; otherwise as push_back().
  bool push_front(CacheQueue& queue);

protected:
  /// Changes the size in one step with the queue's total: calls `memsize()` for the old size and
  /// `newSize()` for the new one, and `store(size)` to keep it if they differ.
  template <class NewSize, class Store>
  void changeSize(NewSize newSize, Store store) {
    // Beyond some attempts a size that changes with every look is taken as it is.
    for (int attempts = 100;; --attempts) {
      const unsigned version = sizeVersion_.load();
      const memsize_t before = memsize();
      const memsize_t after = newSize();
      if (before == after) {
        return;
      }
      const std::lock_guard lock(mutex_);
      if (version == sizeVersion_.load() || attempts <= 0) {
        store(after);
        countDelta(after - before);
        return;
      }
    }
  }

private:
  friend class CacheQueue;
  friend class Cache;
  friend class CacheMap;
  friend class CreatorCacheMap;

  enum class End { Newest, Oldest };

  /// Why an object comes into a queue.
  enum class Entry {
    Insert,  ///< It is inserted or used.
    Refresh, ///< It is used, provided that it stands in a queue: what left the cache stays out.
    Aside,   ///< It cannot go just now. Likewise only from a queue. A side queue is always taken
             ///< after its primary queue, so waiting for it inside of that is safe.
    Back,    ///< It is to be asked again. Likewise only from a queue.
  };

  /// What came of a touch at once.
  enum class Refresh {
    Done,
    Busy,      ///< The queue or the object is held; nothing was done.
    Elsewhere, ///< It is no such case; nothing was done.
  };

  /// A link of the ring. Only whether a ring is empty is ever asked without its lock.
  class Link {
  public:
    explicit Link(Cacheable* node) noexcept : node_(node) {}
    Cacheable* get() const noexcept { return node_.load(std::memory_order_relaxed); }
    void set(Cacheable* node) noexcept { node_.store(node, std::memory_order_relaxed); }

  private:
    std::atomic<Cacheable*> node_;
  };

  /// Tells the constructor of a queue from that of an entry.
  struct Anchor {};
  explicit Cacheable(Anchor);

  class CreatorHold;
  void holdCreator(detail::Held<Creature, Creature>& creator) const;
  bool push(CacheQueue& queue, End end);
  Refresh refreshAtOnce(const detail::CacheTotals* cache) noexcept;
  bool refresh(Refresh result);
  bool enter(CacheQueue& queue, End end, Entry entry);
  bool moveFrom(CacheQueue& old, CacheQueue& queue, End end, Entry entry, memsize_t size);
  inline bool relink(CacheQueue& queue, End end, Entry entry) noexcept;

  /// Leaves the ring; the links lead to the object itself from then on. Needs the mutexes of the
  /// object and of its queue's node.
  void unlink() noexcept {
    Cacheable* const next = next_.get();
    Cacheable* const prev = prev_.get();
    next->prev_.set(prev);
    prev->next_.set(next);
    next_.set(this);
    prev_.set(this);
  }

  /// Enters a ring between two neighbours; needs the same mutexes.
  void linkBetween(Cacheable& prev, Cacheable& next) noexcept {
    prev_.set(&prev);
    next_.set(&next);
    prev.next_.set(this);
    next.prev_.set(this);
  }

  void countDelta(memsize_t delta) noexcept;

  // A ring has two directions: seen from the queue's own node, `next_` leads to the oldest entry
  // and `prev_` to the newest. All links of a ring are guarded by the mutex of the queue's node;
  // which ring a node stands in (`queue_`) by its own. A thread locks its own node first, then
  // the node of the queue; the other way round it only tries.
  //
  // What a touch needs stands together, so that it comes from memory at once.
  Link next_{this};
  Link prev_{this};
  CacheQueue* queue_ = nullptr;
  bool predestructed_ = false;
  bool creatorChanged_ = false; // since the object was filed
  bool forgotten_ = false;      // by its creator, as a patient look found
  const bool isAnchor_ = false;
  // Raised with every change of the size, so that a size read outside the lock is known to be
  // the current one.
  std::atomic<unsigned> sizeVersion_{0};
  mutable detail::PosixMutex mutex_{detail::PosixMutex::Kind::Plain};
  WeakPtr<Creature, Creature> creator_;
  std::string name_;
};

} // namespace Tolvane
