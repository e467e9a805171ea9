#include <tolvane/CacheQueueInternal.hpp>
#include <tolvane/Cacheable.hpp>
#include <tolvane/CreatorHoldInternal.hpp>
#include <tolvane/Creature.hpp>
#include <tolvane/HeldInternal.hpp>
#include <tolvane/SpinInternal.hpp>
#include <tolvane/UnloadLockInternal.hpp>
#include <tolvane/Verbose.hpp>

#include <cstdint>
#include <stdexcept>
#include <utility>

namespace Tolvane {

namespace detail {

void preDestruct(ReferenceBase<Cacheable>& object) noexcept {
  static_cast<Cacheable&>(object).PreDestructor();
}

} // namespace detail

constinit thread_local const Cacheable::CreatorHold* Cacheable::CreatorHold::innermost = nullptr;

Cacheable::Cacheable() = default;

Cacheable::Cacheable(const Cacheable& other) : ReferenceBase(other) {}

Cacheable::Cacheable(const WeakPtr<Creature, Creature>& creator) : creator_(creator) {}

Cacheable::Cacheable(Anchor) : isAnchor_(true) {}

Cacheable::~Cacheable() {
  const std::lock_guard own(mutex_);
  if (queue_ != nullptr) {
    const std::lock_guard ring(queue_->Cacheable::mutex_);
    unlink();
  }
}

// NOLINTNEXTLINE(bugprone-unhandled-self-assignment): it copies nothing
Cacheable& Cacheable::operator=(const Cacheable&) noexcept {
  return *this;
}

memsize_t Cacheable::memsize() const {
  return 0;
}

void Cacheable::DeferredConstructor() {}

const std::type_info& Cacheable::DomainType() const {
  return typeid(*this);
}

/// Holds the creator, in what holds nothing yet; nothing when it is gone.
void Cacheable::holdCreator(detail::Held<Creature>& creator) const {
  const std::lock_guard lock(mutex_);
  creator = detail::Held<Creature>(creator_);
  __builtin_prefetch(creator.get()); // looked at in a moment
}

const std::type_info& Cacheable::CreatorType() const {
  if (const Creature* creator = CreatorHold::find(*this)) {
    return typeid(*creator);
  }
  detail::Held<Creature> creator;
  holdCreator(creator);
  return creator ? typeid(*creator) : typeid(void);
}

void Cacheable::setCreator(const WeakPtr<Creature, Creature>& creator) {
  const std::lock_guard lock(mutex_);
  creator_ = creator;
  creatorChanged_ = true;
  forgotten_ = false;
}

WeakPtr<Creature, Creature> Cacheable::creator() const {
  const std::lock_guard lock(mutex_);
  return creator_;
}

WeakPtr<Cache, CacheBase> Cacheable::myCache() const {
  detail::Held<Creature> creator;
  holdCreator(creator);
  return creator ? creator->cacheManager() : WeakPtr<Cache, CacheBase>();
}

std::string Cacheable::name() const {
  const std::lock_guard lock(mutex_);
  return name_;
}

void Cacheable::setName(std::string name) {
  const std::lock_guard lock(mutex_);
  name_.swap(name);
}

unsigned Cacheable::NumberOfListEntries() const {
  const std::lock_guard own(mutex_);
  std::unique_lock<detail::PosixMutex> ring;
  if (queue_ != nullptr) {
    ring = std::unique_lock(queue_->Cacheable::mutex_);
  }
  unsigned others = 0;
  for (const Cacheable* node = prev_.get(); node != this; node = node->prev_.get()) {
    ++others;
  }
  return others;
}

Cacheable& Cacheable::CacheableDeferredConstructor() {
  {
    detail::Held<Creature> creator;
    holdCreator(creator);
    if (creator) {
      creator->enableCaching(false);
    }
  }
  DeferredConstructor();
  return *this;
}

void Cacheable::adjustCacheableSize(unsigned long long delta) {
  const std::lock_guard lock(mutex_);
  countDelta(delta);
}

void Cacheable::countDelta(memsize_t delta) noexcept {
  sizeVersion_.fetch_add(1);
  // A dying object is no longer part of the sums; its destructors may well shrink it.
  if (queue_ != nullptr && !predestructed_) {
    const std::lock_guard ring(queue_->Cacheable::mutex_);
    queue_->count(delta, 0);
  }
}

/// Makes the object the newest of the queue it stands in, which is what a touch mostly comes to, if
/// that can be had without waiting for anybody and without looking its domain up; with a `cache`
/// only in a primary queue of that one.
Cacheable::Refresh Cacheable::refreshAtOnce(const detail::CacheTotals* cache) noexcept {
  if (100 <= detail::verboseThreshold.load(std::memory_order_relaxed) ||
      CacheQueue::Lock::anyHeldByThisThread()) {
    return Refresh::Elsewhere;
  }
  // The object and its neighbours come from memory while the locks are taken. A neighbour may be
  // gone by now, so its links are asked for by an address that is only reckoned.
  const auto fetchLinks = [this](const Cacheable* node) {
    const auto offset =
        reinterpret_cast<std::uintptr_t>(&next_) - reinterpret_cast<std::uintptr_t>(this);
    __builtin_prefetch(
        reinterpret_cast<const void*>(reinterpret_cast<std::uintptr_t>(node) + offset), 1);
  };
  __builtin_prefetch(&mutex_, 1);
  fetchLinks(next_.get());
  fetchLinks(prev_.get());
  const std::unique_lock own(mutex_, std::try_to_lock);
  if (!own) {
    return Refresh::Busy;
  }
  if (queue_ == nullptr || predestructed_) {
    return Refresh::Elsewhere;
  }
  CacheQueue& queue = *queue_;
  if (cache != nullptr &&
      (queue.totals_.get() != cache || queue.role_ != CacheQueue::Role::Primary ||
       creatorChanged_ || !creator_)) {
    return Refresh::Elsewhere;
  }
  // Tried only: who holds a queue waits for its entries.
  const std::unique_lock hold(queue.queueMutex_, std::try_to_lock);
  if (!hold) {
    return Refresh::Busy;
  }
  Cacheable& anchor = queue;
  const std::lock_guard ring(anchor.mutex_);
  unlink();
  linkBetween(*anchor.prev_.get(), anchor);
  queue.touched_.add(1);
  return Refresh::Done;
}

bool Cacheable::markAsUsed() {
  const Refresh result = refreshAtOnce(nullptr);
  return result == Refresh::Done || refresh(result);
}

/// The same where something is waited for, or in the way.
bool Cacheable::refresh(Refresh result) {
  if (result == Refresh::Busy) {
    detail::spin([&] { return (result = refreshAtOnce(nullptr)) != Refresh::Busy; });
  }
  if (result == Refresh::Done) {
    return true;
  }
  CacheQueue* queue = nullptr;
  WeakPtr<Cacheable> node;
  {
    // A queue lets go of its entries before it dies, so its record is there as long as this lock
    // is held; from then on the hold keeps the queue, where it has an owner.
    const std::lock_guard lock(mutex_);
    if (queue_ == nullptr) {
      return false;
    }
    queue = queue_;
    node = queue->self();
  }
  const detail::Held<Cacheable> held(node);
  return held && queue->put("CacheQueue::push_front(type=", self(), End::Newest, Entry::Refresh);
}

bool Cacheable::leaveQueue() {
  for (int attempts = 100;; --attempts) {
    const unsigned version = sizeVersion_.load();
    const memsize_t size = memsize();
    const std::lock_guard own(mutex_);
    if (queue_ == nullptr) {
      return false;
    }
    if (version != sizeVersion_.load() && attempts > 0) {
      continue;
    }
    // The queue may die as soon as its ring is released.
    const std::lock_guard ring(queue_->Cacheable::mutex_);
    unlink();
    if (!predestructed_) {
      queue_->count(-size, -1);
    }
    queue_ = nullptr;
    return true;
  }
}

void Cacheable::PreDestructor() {
  const memsize_t size = memsize();
  const std::lock_guard lock(mutex_);
  predestructed_ = true;
  if (queue_ != nullptr) {
    const std::lock_guard ring(queue_->Cacheable::mutex_);
    queue_->count(-size, -1);
  }
}

bool Cacheable::push_back(CacheQueue& queue) {
  return push(queue, End::Oldest);
}

bool Cacheable::push_front(CacheQueue& queue) {
  return push(queue, End::Newest);
}

bool Cacheable::push(CacheQueue& queue, End end) {
  const CacheQueue::Lock lock(queue, false);
  return lock && enter(queue, end, Entry::Insert);
}

/// Enters a ring, or changes its place there; needs the mutexes of the object and of the nodes of
/// its old and its new queue.
[[gnu::always_inline]] inline bool Cacheable::relink(CacheQueue& queue, End end,
                                                     Entry entry) noexcept {
  if (queue.closed_) {
    return false;
  }
  Cacheable& anchor = queue;
  if (end == End::Newest) {
    unlink();
    linkBetween(*anchor.prev_.get(), anchor);
  } else if (anchor.next_.get() != this) {
    unlink();
    linkBetween(anchor, *anchor.next_.get());
  }
  queue.countEntry(std::exchange(queue_, &queue), entry);
  creatorChanged_ = false;
  return true;
}

/// Comes into a queue that this thread holds.
bool Cacheable::enter(CacheQueue& queue, End end, Entry entry) {
  if (isAnchor_) {
    throw std::invalid_argument("Cacheable: a CacheQueue cannot be an entry of a queue, its links "
                                "are those of its own ring");
  }
  for (int attempts = 100;; --attempts) {
    const unsigned version = sizeVersion_.load();
    const memsize_t size = memsize();
    const std::lock_guard own(mutex_);
    if (predestructed_ || (queue_ == nullptr && entry != Entry::Insert)) {
      return false;
    }
    if (version != sizeVersion_.load() && attempts > 0) {
      continue;
    }
    CacheQueue* const old = queue_;
    if (old != nullptr && old != &queue) {
      return moveFrom(*old, queue, end, entry, size);
    }
    const std::lock_guard ring(queue.Cacheable::mutex_);
    const bool entered = relink(queue, end, entry);
    if (entered && old == nullptr) {
      queue.count(size, 1);
    }
    return entered;
  }
}

/// The same where an entry comes from another queue.
bool Cacheable::moveFrom(CacheQueue& old, CacheQueue& queue, End end, Entry entry, memsize_t size) {
  std::unique_lock<detail::PosixMutex> ring(queue.Cacheable::mutex_, std::defer_lock);
  std::unique_lock<detail::PosixMutex> oldRing(old.Cacheable::mutex_, std::defer_lock);
  if (detail::otherThreadsAreGone()) { // stepping back would not have them let go
    ring.lock();
    oldRing.lock();
  } else {
    std::lock(ring, oldRing);
  }
  if (!relink(queue, end, entry)) {
    return false;
  }
  // Still inside the ring's lock: the old queue may die as soon as it is released.
  old.count(-size, -1);
  queue.count(size, 1);
  return true;
}

} // namespace Tolvane
