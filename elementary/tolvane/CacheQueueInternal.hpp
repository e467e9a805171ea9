#pragma once

#include <tolvane/CacheQueue.hpp>
#include <tolvane/CacheTotalsInternal.hpp>
#include <tolvane/HeldInternal.hpp>

#include <chrono>

/// @file
/// How a thread takes a queue, and what the queue counts: the part that every insertion runs
/// through. Internal to the library, not installed.

namespace Tolvane {

namespace detail {

/// An object for which its domain makes room. It comes in before the queue that made the room is
/// let go of: so the queue is locked but once, and none of its other insertions is in between.
struct Entrant {
  WeakPtr<Cacheable> object;
  const bool asOldest;
  Held<Cacheable>& held; ///< Empty while the room is made; let go of after the queue.
  bool entered = false;

  /// Whether the object is held: by somebody else, and from now on here.
  bool hold() {
    if (!held) {
      held.resume(object);
    }
    return held.owned();
  }
};

} // namespace detail

/// Holds the mutex of a queue and remembers, per thread, which queues it holds.
///
/// A thread that holds none waits. One that holds a queue runs the code of a creator or of an
/// object's memsize(): it only tries to take another one, because the holder of that might be
/// trying to take the first.
class CacheQueue::Lock {
public:
  /// Throws std::system_error when this thread holds the queue already. With `mayWait` it waits
  /// also inside of another queue: for the side queues, which are always taken after their primary
  /// queue.
  Lock(CacheQueue& queue, bool mayWait)
      : queue_(queue), outer_(innermost),
        owns_(outer_ == nullptr ? wait(queue) : lockInside(queue, mayWait)) {
    if (owns_) {
      innermost = this;
    }
  }
  ~Lock() {
    innermost = outer_;
    if (owns_) {
      queue_.queueMutex_.unlock();
    }
  }

  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  /// Whether the queue is held; false when it is busy.
  explicit operator bool() const noexcept { return owns_; }

  static bool heldByThisThread(const CacheQueue& queue) noexcept {
    for (const Lock* lock = innermost; lock != nullptr; lock = lock->outer_) {
      if (&lock->queue_ == &queue) {
        return true;
      }
    }
    return false;
  }

  /// Whether this thread holds any queue.
  static bool anyHeldByThisThread() noexcept { return innermost != nullptr; }

private:
  /// Waits for a queue; says so after ten seconds.
  static bool wait(CacheQueue& queue) {
    return queue.queueMutex_.lockWithin(std::chrono::seconds(10)) || waitLonger(queue);
  }
  static bool waitLonger(CacheQueue& queue);
  static bool lockInside(CacheQueue& queue, bool mayWait);

  [[gnu::tls_model("initial-exec")]] static constinit thread_local Lock* innermost;

  CacheQueue& queue_;
  Lock* outer_;
  const bool owns_;
};

/// Needs the mutex of the queue's node.
inline void CacheQueue::count(memsize_t bytes, int entries) noexcept {
  total_.store(total_.load(std::memory_order_relaxed) + bytes, std::memory_order_relaxed);
  entries_.store(entries_.load(std::memory_order_relaxed) + static_cast<std::uint32_t>(entries),
                 std::memory_order_relaxed);
  if (totals_ == nullptr) {
    return;
  }
  if (role_ == Role::Keepers) {
    totals_->kept.fetch_add(bytes, std::memory_order_relaxed);
  } else {
    totals_->countReleasable(bytes);
  }
}

/// Notes that an object came in, or was used.
inline void CacheQueue::countEntry(const CacheQueue* from, Entry entry) noexcept {
  if (entry == Entry::Aside || entry == Entry::Back) {
    return;
  }
  const bool wasHere =
      from == this || (from != nullptr && domain_ != nullptr && from->domain_ == domain_);
  (wasHere ? touched_ : inserted_).add(1);
}

} // namespace Tolvane
