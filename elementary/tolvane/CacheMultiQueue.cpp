#include <tolvane/CacheMultiQueue.hpp>
#include <tolvane/CacheQueueInternal.hpp>
#include <tolvane/CacheTotalsInternal.hpp>
#include <tolvane/HeldInternal.hpp>
#include <tolvane/Verbose.hpp>

#include <cstdio>
#include <utility>

namespace Tolvane {

namespace {

std::string nameOf(const WeakPtr<Cacheable>& object) {
  const detail::Held<Cacheable> held(object);
  return held ? held->name() : "";
}

} // namespace

CacheMultiQueue::CacheMultiQueue() : CacheMultiQueue(std::make_shared<detail::CacheTotals>()) {}

CacheMultiQueue::CacheMultiQueue(std::shared_ptr<detail::CacheTotals> totals)
    : totals_(std::move(totals)) {}

CacheMultiQueue::~CacheMultiQueue() {
  purge_Hades();
}

CacheQueue& CacheMultiQueue::make(Slot& slot, CacheQueue::Role role) {
  const std::lock_guard lock(mutex_);
  if (slot.get() == nullptr) {
    slot.owner = new CacheQueue(totals_, this, role);
    if (closed()) {
      slot.owner->close();
    }
    slot.queue.store(slot.owner.get(), std::memory_order_release);
  }
  return *slot.get();
}

template <class Visit>
void CacheMultiQueue::forEachQueue(Visit visit) const {
  for (const Slot* slot : {&primary_, &temporaries_, &keepers_}) {
    if (CacheQueue* queue = slot->get()) {
      visit(*queue);
    }
  }
}

bool CacheMultiQueue::push_front(const WeakPtr<Cacheable>& object) {
  return object && obtain(primary_, CacheQueue::Role::Primary).push_front(object);
}

bool CacheMultiQueue::push_back(const WeakPtr<Cacheable>& object) {
  return object && obtain(primary_, CacheQueue::Role::Primary).put_in_back(object);
}

bool CacheMultiQueue::isAlreadyIncluded(const WeakPtr<Cacheable>& object) const {
  bool included = false;
  forEachQueue([&](const CacheQueue& queue) { included |= queue.isAlreadyIncluded(object); });
  return included;
}

bool CacheMultiQueue::touch(const WeakPtr<Cacheable>& object) const {
  if (!object) {
    return false;
  }
  if (CacheQueue* primary = primary_.get()) {
    return primary->push_front(object);
  }
  std::printf("CacheMap::touch(const WeakPtr<Cacheable>&Ca): No Primary Queue found! Nothing "
              "touched.\n");
  std::fflush(stdout);
  return false;
}

void CacheMultiQueue::insert_zombie(const WeakPtr<Cacheable>& object) {
  StrongPtr<Cacheable> zombie = object.lock();
  if (!zombie) {
    return;
  }
  const std::lock_guard lock(mutex_);
  if (!closed()) {
    hades_.push_front(std::move(zombie));
    totals_->zombies.fetch_add(1);
  }
}

void CacheMultiQueue::purge_Hades() {
  if (totals_->zombies.load() == 0) {
    return;
  }
  // Swapped out first: the death of a zombie may make others.
  std::list<StrongPtr<Cacheable>> zombies;
  const std::lock_guard lock(mutex_);
  zombies.swap(hades_);
  totals_->zombies.fetch_sub(zombies.size());
}

void CacheMultiQueue::close() noexcept {
  {
    const std::lock_guard lock(mutex_); // a queue is made before this or closed
    closed_ = true;
  }
  purge_Hades();
  for (const Slot* slot : {&keepers_, &temporaries_, &primary_}) {
    if (CacheQueue* queue = slot->get()) {
      queue->close();
    }
  }
}

memsize_t CacheMultiQueue::purge() {
  purge_Hades();
  memsize_t freed = 0;
  forEachQueue([&](CacheQueue& queue) { freed += queue.purge(); });
  return freed;
}

/// Makes the oldest temporary object the first to be asked again.
void CacheMultiQueue::takeBack(CacheQueue& primary, const CacheQueue& temporaries) {
  if (const WeakPtr<Cacheable> returning = temporaries.oldest()) {
    TOLVANE_VERBOSE_DOMAIN(5, "Mem")
        << "  MOVING Temporary Item [" << nameOf(returning) << "] to Release Candidates.";
    primary.askAgain(returning);
  }
}

bool CacheMultiQueue::adjust(const CacheBase& cache, memsize_t newCost) {
  return adjust(cache, newCost, nullptr);
}

bool CacheMultiQueue::adjust(const CacheBase& cache, memsize_t newCost, detail::Entrant* entrant) {
  if (CacheQueue::Lock::anyHeldByThisThread()) {
    const CacheQueue* const asking = primary_.get();
    if (asking != nullptr && asking->heldByThisThread()) {
      return false;
    }
  }
  purge_Hades(); // the end of a zombie may well be the first insertion
  CacheQueue* const primary = primary_.get();
  if (primary == nullptr) {
    return false;
  }
  CacheQueue& temporaries = obtain(temporaries_, CacheQueue::Role::Temporaries);
  if (temporaries.nEntries() != 0) {
    takeBack(*primary, temporaries);
  }
  return primary->adjust(cache, newCost, temporaries, obtain(keepers_, CacheQueue::Role::Keepers),
                         entrant);
}

void CacheMultiQueue::list_info() const {
  forEachQueue([](const CacheQueue& queue) { queue.list_info(50); });
}

memsize_t CacheMultiQueue::memsize(bool all) const {
  memsize_t sum = 0;
  forEachQueue([&](const CacheQueue& queue) {
    if (all || &queue != keepers_.get()) {
      sum += queue.memsize();
    }
  });
  return sum;
}

CacheDomainStatistics CacheMultiQueue::statistics(const TypeInfo& creator,
                                                  const TypeInfo& data) const {
  const auto countsOf = [](const CacheQueue* queue) {
    return queue != nullptr ? queue->counts() : CacheCounts{};
  };
  CacheDomainStatistics result{creator, data, countsOf(primary()), countsOf(temporaries()),
                               countsOf(keepers())};
  result.primary.refused = refused_.load(std::memory_order_relaxed);
  return result;
}

std::uint32_t CacheMultiQueue::nEntries() const {
  std::uint32_t sum = 0;
  forEachQueue([&](const CacheQueue& queue) { sum += queue.nEntries(); });
  return sum;
}

} // namespace Tolvane
