#include <tolvane/Cache.hpp>
#include <tolvane/CacheQueue.hpp>
#include <tolvane/CacheQueueLockInternal.hpp>
#include <tolvane/CacheTotalsInternal.hpp>
#include <tolvane/Creature.hpp>
#include <tolvane/GlobalsInternal.hpp>
#include <tolvane/HeldInternal.hpp>
#include <tolvane/Irregularity.hpp>
#include <tolvane/Profiler.hpp>
#include <tolvane/Typename.hpp>
#include <tolvane/UnloadLockInternal.hpp>
#include <tolvane/Verbose.hpp>

#include <cstdio>
#include <exception>
#include <limits>
#include <system_error>
#include <thread>
#include <unordered_set>
#include <utility>

namespace Tolvane {

namespace {

/// The place under which the eviction appears in profiles and reports; the lines are fixed, so
/// that figures of different versions can be compared.
constexpr const char* EvictionFile = "elementary/tolvane/CacheQueue";
constexpr const char* EvictionFunction =
    "bool Tolvane::CacheQueue::adjust(const Tolvane::CacheBase&, Tolvane::memsize_t, "
    "Tolvane::CacheQueue&, Tolvane::CacheQueue&)";
constexpr int EvictionLevel = 5;

/// After so many answers in a row that left the number of entries as it was, an eviction gives up.
constexpr int MostAnswersWithoutProgress = 100;

/// A thread that waits for a queue longer than this says so.
constexpr std::chrono::seconds PatienceForQueue{10};

/// The number of adjustments so far, for the debug stop. Raced on purpose.
std::atomic<std::int32_t> adjustments{0};

void stopForDebugging() {
  const int limit = detail::debugStopLimit();
  if (limit <= 0) {
    return;
  }
  const std::int32_t now = adjustments.load(std::memory_order_relaxed) + 1;
  adjustments.store(now, std::memory_order_relaxed);
  if (now >= limit) {
    std::terminate();
  }
}

/// Whether `cost` more bytes fit. A sum beyond 64 bits does not.
bool fits(memsize_t total, memsize_t cost, memsize_t limit) {
  return cost <= std::numeric_limits<memsize_t>::max() - total && total + cost <= limit;
}

std::string bytes(memsize_t count) {
  return VerboseStream::MemString(static_cast<long long>(count));
}

/// Whether a creator is being destroyed at this moment, by whatever thread. Its data may go with it
/// or leave the queue still.
bool destructing(const WeakPtr<Creature>& creator) {
  const detail::Referer* record = detail::PointerAccess::referer(creator);
  return record != nullptr && !record->gone() && creator.strongCount() < 0;
}

bool dying(const Cacheable& entry) {
  return entry.self().strongCount() < 0;
}

} // namespace

thread_local CacheQueue::Lock* CacheQueue::Lock::innermost = nullptr;

CacheQueue::Lock::Lock(CacheQueue& queue, bool mayWait)
    : queue_(queue), outer_(innermost), owns_(false) {
  if (heldByThisThread(queue)) {
    throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur),
                            "CacheQueue: a queue that asks for a release cannot take an object in "
                            "on the same thread");
  }
  owns_ = queue.queueMutex_.try_lock();
  if (!owns_ && (mayWait || outer_ == nullptr)) {
    if (!queue.queueMutex_.lockWithin(PatienceForQueue)) {
      TOLVANE_IRREGULARITY("a queue of the cache has been held for ten seconds")
          << ". If a release request waits for this thread, both wait for ever.";
      queue.queueMutex_.lock();
    }
    owns_ = true;
  }
  if (owns_) {
    innermost = this;
  }
}

CacheQueue::Lock::~Lock() {
  if (owns_) {
    innermost = outer_;
    queue_.queueMutex_.unlock();
  }
}

bool CacheQueue::Lock::heldByThisThread(const CacheQueue& queue) noexcept {
  for (const Lock* lock = innermost; lock != nullptr; lock = lock->outer_) {
    if (&lock->queue_ == &queue) {
      return true;
    }
  }
  return false;
}

CacheQueue::Iterator::~Iterator() = default;

CacheQueue::CacheQueue() : Cacheable(Anchor{}) {}

CacheQueue::CacheQueue(std::shared_ptr<detail::CacheTotals> totals, bool releasable)
    : Cacheable(Anchor{}), totals_(std::move(totals)), releasable_(releasable) {}

CacheQueue::~CacheQueue() {
  const Profiler profiler(__FILE__, __LINE__, TOLVANE_FUNCTION, "CacheQueue::~CacheQueue()",
                          EvictionLevel);
  try {
    purgeEntries(true);
  } catch (...) {
    TOLVANE_IRREGULARITY("a dying queue could not be purged");
  }
  releaseEntries();
}

memsize_t CacheQueue::memsize() const {
  return total_.load(std::memory_order_relaxed);
}

std::uint32_t CacheQueue::nEntries() const noexcept {
  return entries_.load(std::memory_order_relaxed);
}

void CacheQueue::count(memsize_t bytes, int entries) noexcept {
  const auto number = static_cast<std::uint32_t>(entries);
  total_.fetch_add(bytes, std::memory_order_relaxed);
  entries_.fetch_add(number, std::memory_order_relaxed);
  if (totals_ != nullptr) {
    if (releasable_) {
      totals_->releasable.fetch_add(bytes, std::memory_order_relaxed);
    } else {
      totals_->kept.fetch_add(bytes, std::memory_order_relaxed);
    }
    totals_->entries.fetch_add(number, std::memory_order_relaxed);
  }
}

bool CacheQueue::push_front(const WeakPtr<Cacheable>& object) {
  return put("CacheQueue::push_front(type=", object, End::Newest, Entry::Insert);
}

bool CacheQueue::put_in_front(const WeakPtr<Cacheable>& object) {
  return put("CacheQueue::put_in_front(type=", object, End::Newest, Entry::Insert);
}

bool CacheQueue::put_in_back(const WeakPtr<Cacheable>& object) {
  return put("CacheQueue::put_in_back(type=", object, End::Oldest, Entry::Insert);
}

bool CacheQueue::put(const char* operation, const WeakPtr<Cacheable>& object, End end,
                     Entry entry) {
  const detail::Held<Cacheable> held(object);
  if (!held) {
    return false;
  }
  if (!detail::defaultTypenamesInstalled()) {
    // Asking for a name makes the plain types readable, for everybody, from the first push on.
    Typename(held->DomainType());
    Typename(held->CreatorType());
  }
  TOLVANE_VERBOSE_DOMAIN(100, "Mem") << operation << Typename(held->DomainType())
                                     << " creator=" << Typename(held->CreatorType()) << ")";
  return held->push(*this, end, entry);
}

bool CacheQueue::isAlreadyIncluded(const WeakPtr<Cacheable>& object) const {
  const detail::Held<Cacheable> held(object);
  if (!held) {
    return false;
  }
  const std::lock_guard lock(held->mutex_);
  return held->queue_ == this;
}

memsize_t CacheQueue::compute_memsize() const {
  const Profiler profiler(__FILE__, __LINE__, TOLVANE_FUNCTION, "CacheQueue::compute_memsize()",
                          EvictionLevel);
  memsize_t sum = 0;
  for (const WeakPtr<Cacheable>& entry : snapshot()) {
    if (const detail::Held<Cacheable> held{entry}) {
      sum += held->memsize();
    }
  }
  return sum;
}

unsigned CacheQueue::iterate(Iterator& iterator) const {
  unsigned visited = 0;
  for (const WeakPtr<Cacheable>& entry : snapshot()) {
    if (!isAlreadyIncluded(entry)) {
      continue;
    }
    const detail::Held<Cacheable> held(entry);
    if (!held) {
      continue;
    }
    if (!iterator.visit(*held)) {
      break;
    }
    ++visited;
  }
  return visited;
}

void CacheQueue::list_info(int detail) const {
  class Lister : public Iterator {
  public:
    explicit Lister(bool withCreator) : withCreator_(withCreator) {}

    bool visit(Cacheable& entry) override {
      std::printf("    {%s} %s %p %llu bytes", entry.name().c_str(),
                  Typename(entry.DomainType()).c_str(), static_cast<const void*>(&entry),
                  entry.memsize());
      if (withCreator_) {
        // One strong pointer is that of the listing itself.
        const int strong = entry.self().strongCount();
        std::printf(", creator %s, %d strong", Typename(entry.CreatorType()).c_str(),
                    strong > 0 ? strong - 1 : strong);
      }
      std::printf("\n");
      return true;
    }

  private:
    const bool withCreator_;
  };
  Lister lister(detail >= 50);
  iterate(lister);
  std::fflush(stdout);
}

std::vector<WeakPtr<Cacheable>> CacheQueue::snapshot() const {
  std::vector<WeakPtr<Cacheable>> entries;
  const std::lock_guard ring(mutex_);
  for (const Cacheable* entry = prev_.get(); entry != this; entry = entry->prev_.get()) {
    if (!dying(*entry)) {
      entries.push_back(entry->self());
    }
  }
  return entries;
}

WeakPtr<Cacheable> CacheQueue::oldest() const {
  const std::lock_guard ring(mutex_);
  for (const Cacheable* entry = next_.get(); entry != this; entry = entry->next_.get()) {
    // One that dies on another thread is no longer counted and about to leave the ring.
    if (!dying(*entry)) {
      return entry->self();
    }
  }
  return {};
}

bool CacheQueue::heldByThisThread() const noexcept {
  return Lock::heldByThisThread(*this);
}

memsize_t CacheQueue::purge() {
  return purgeEntries(false);
}

memsize_t CacheQueue::purgeEntries(bool tolerant) {
  const Profiler profiler(__FILE__, __LINE__, TOLVANE_FUNCTION, "CacheQueue::purge()",
                          EvictionLevel);
  const std::uint64_t firstNew = instancesMade();
  // Whom this walk has asked: an entry that moves to the front is not asked again for it, or two
  // that take turns would keep the walk going for ever.
  std::unordered_set<WeakPtr<Cacheable>> asked;
  // Who could not be asked; once told is enough.
  std::unordered_set<WeakPtr<Cacheable>> hopeless;

  const auto next = [&](const Cacheable* after) {
    std::unique_lock<detail::PosixMutex> own;
    if (after != nullptr) {
      own = std::unique_lock(after->mutex_);
    }
    const std::lock_guard ring(mutex_);
    const bool stillHere = after != nullptr && after->queue_ == this;
    for (const Cacheable* entry = (stillHere ? after : this)->prev_.get(); entry != this;
         entry = entry->prev_.get()) {
      if (!dying(*entry) && entry->instanceNumber() < firstNew && !asked.contains(entry->self())) {
        return entry->self();
      }
    }
    return WeakPtr<Cacheable>();
  };

  const WeakPtr<Cacheable> none;
  memsize_t freed = 0;
  WeakPtr<Cacheable> entry = next(nullptr);
  while (entry != none) {
    asked.insert(entry);
    memsize_t size = 0;
    WeakPtr<Creature> maker;
    {
      const detail::Held<Cacheable> held(entry);
      if (!held) {
        entry = next(nullptr);
        continue;
      }
      size = held->memsize();
      maker = held->creator();
    }
    try {
      const detail::Held<Creature> creator(maker);
      if (creator || (!destructing(maker) && isAlreadyIncluded(entry))) {
        creator->release();
      }
    } catch (...) {
      if (!tolerant) {
        throw;
      }
      TOLVANE_IRREGULARITY("an entry of a dying queue could not be asked to release its data");
      hopeless.insert(entry);
    }
    const detail::Held<Cacheable> held(entry);
    if (held) {
      entry = next(held.get());
    } else {
      freed += size;
      asked = hopeless;
      entry = next(nullptr);
    }
  }
  return freed;
}

/// Takes the entries that survive the queue out of its ring.
void CacheQueue::releaseEntries() {
  for (;;) {
    std::unique_lock ring(mutex_);
    Cacheable* const entry = prev_.get();
    if (entry == this) {
      break;
    }
    // A thread that is gone while the process ends never lets go of the entry.
    const bool taken = entry->mutex_.try_lock();
    if (taken || detail::otherThreadsAreGone()) {
      entry->unlink();
      entry->queue_ = nullptr;
      if (taken) {
        entry->mutex_.unlock();
      }
    } else {
      ring.unlock();
      std::this_thread::yield();
    }
  }
  count(-memsize(), -static_cast<int>(nEntries()));
}

/// One call of adjust(): what it knows between the passes.
class CacheQueue::Eviction {
public:
  Eviction(CacheQueue& queue, const CacheBase& cache, memsize_t newCost, CacheQueue& temporaries,
           CacheQueue& keepers)
      : queue_(queue), cache_(cache), newCost_(newCost), temporaries_(temporaries),
        keepers_(keepers) {}

  bool run();

private:
  /// What is asked about the oldest entry before its creator is: nothing holds the entry any more
  /// while the creator decides.
  struct Candidate {
    WeakPtr<Cacheable> object;
    WeakPtr<Creature> creator;
    memsize_t size;
    std::string name;
    const std::type_info* domain;
    const std::type_info* creatorDomain;
  };

  bool fitsNow() const { return fits(cache_.totalCost(false), newCost_, cache_.limit()); }
  bool look(Candidate& candidate) const;
  void trace(const Candidate& candidate) const;
  void released(const Candidate& candidate, Creature& creator, std::uint32_t entriesBefore) const;
  void kept(const Candidate& candidate, const Creature& creator) const;
  std::string diagnosis(const Candidate& candidate, const Creature& creator) const;

  CacheQueue& queue_;
  const CacheBase& cache_;
  const memsize_t newCost_;
  CacheQueue& temporaries_;
  CacheQueue& keepers_;
  unsigned releasedItems_ = 0;
};

bool CacheQueue::adjust(const CacheBase& cache, memsize_t newCost, CacheQueue& temporaries,
                        CacheQueue& keepers) {
  const Profiler profiler(EvictionFile, 322, EvictionFunction, "CacheQueue::adjust", EvictionLevel);
  if (Cache::verbosity() > 5) {
    // In 32 bits on purpose: the figure wraps from 2 GiB on.
    const auto low = static_cast<std::int32_t>(static_cast<std::uint32_t>(newCost));
    const std::int32_t kibibytes = low / 1024;
    std::printf("   CacheQueue::adjust(memsize_t newCost=%lgMB)\n", kibibytes * 0.0009765625);
    std::fflush(stdout);
  }
  if (next_.get() == this) {
    return true;
  }
  const Lock lock(*this, false);
  if (!lock) {
    return false;
  }
  stopForDebugging();
  return Eviction(*this, cache, newCost, temporaries, keepers).run();
}

bool CacheQueue::Eviction::run() {
  int answersWithoutProgress = 0;
  while (!fitsNow()) {
    const Profiler profiler(EvictionFile, 399, EvictionFunction, "CacheQueue::adjust items",
                            EvictionLevel);
    Candidate candidate;
    if (!look(candidate)) {
      return false;
    }
    const std::uint32_t entriesBefore = queue_.nEntries();
    if (Cache::verbosity() > 0) {
      trace(candidate);
    }
    const detail::Held<Creature> held(candidate.creator);
    if (!held) {
      // In this order: a creator that is gone by now has taken its data along.
      const bool later = destructing(candidate.creator);
      if (!queue_.isAlreadyIncluded(candidate.object)) {
        continue;
      }
      if (later) {
        temporaries_.put("CacheQueue::push_front(type=", candidate.object, End::Newest,
                         Entry::MoveAside);
        continue;
      }
    }
    // Without a live creator the access to the entry's own pointer reports and throws.
    Creature& creator = held ? *held : *candidate.creator;
    int answer = 0;
    {
      const Profiler releaseProfiler(EvictionFile, 454, EvictionFunction,
                                     "CacheQueue: Creator->release()", EvictionLevel);
      answer = creator.release();
    }
    ++releasedItems_;
    switch (answer) {
    case 2:
      released(candidate, creator, entriesBefore);
      break;
    case 1:
      temporaries_.put("CacheQueue::push_front(type=", candidate.object, End::Newest,
                       Entry::MoveAside);
      break;
    case 0:
      keepers_.put("CacheQueue::push_front(type=", candidate.object, End::Newest, Entry::MoveAside);
      kept(candidate, creator);
      break;
    default:
      break;
    }
    if (queue_.nEntries() < entriesBefore) {
      answersWithoutProgress = 0;
    } else if (++answersWithoutProgress == MostAnswersWithoutProgress) {
      Irregularity(EvictionFile, __LINE__, EvictionFunction,
                   "creators were asked 100 times in a row and no entry left the queue")
          << ". The eviction gives up; the last one asked was [" << candidate.name << "] of type "
          << *candidate.domain << ", made by " << *candidate.creatorDomain;
      return false;
    }
  }
  return true;
}

/// Looks at the oldest entry. Returns false when there is none.
bool CacheQueue::Eviction::look(Candidate& candidate) const {
  for (;;) {
    candidate.object = queue_.oldest();
    if (candidate.object == WeakPtr<Cacheable>()) {
      return false;
    }
    const detail::Held<Cacheable> held(candidate.object);
    if (held) {
      candidate.creator = held->creator();
      candidate.size = held->memsize();
      candidate.name = held->name();
      candidate.domain = &held->DomainType();
      candidate.creatorDomain = &held->CreatorType();
      return true;
    }
  }
}

void CacheQueue::Eviction::trace(const Candidate& candidate) const {
  VerboseStream(false, false, 0, EvictionFile, __LINE__, EvictionFunction, "", "Mem")
      << "CacheQueue adjust: Total " << bytes(cache_.totalCost(false)) << " (limit "
      << bytes(cache_.limit()) << ", this releasable [" << candidate.name << "] uses "
      << bytes(candidate.size) << " of " << bytes(queue_.memsize())
      << " in this domain), trying to release ";
  VerboseStream(false, false, 0, EvictionFile, __LINE__, EvictionFunction, "", "Mem")
      << "    CacheQueue release candidate " << Typename(*candidate.domain) << " ["
      << candidate.name << "] is one of " << std::to_string(queue_.nEntries()) << " elements using "
      << bytes(queue_.memsize());
}

/// Checks the claim of a creator that its data went.
void CacheQueue::Eviction::released(const Candidate& candidate, Creature& creator,
                                    std::uint32_t entriesBefore) const {
  if (queue_.oldest() == candidate.object) {
    Irregularity(EvictionFile, 479, EvictionFunction, "Releaseable == oldest()")
        << "There is a problem, the object to be released is still in the Cache:\n"
        << "NumberOfReleasedItems =" << std::to_string(releasedItems_) << ", computed size "
        << std::to_string(queue_.compute_memsize()) << " against "
        << std::to_string(queue_.memsize()) << " counted, cache total "
        << std::to_string(cache_.totalCost(false)) << " of limit " << std::to_string(cache_.limit())
        << "\nRELEASE: OLDEST CANDIDATE: [" << candidate.name
        << "]\nRelease candidate's ProvenancePath: " << creator.provenancePath();
  }
  if (queue_.nEntries() == entriesBefore - 1) {
    return;
  }
  TOLVANE_VERBOSE_DOMAIN(1, "Mem")
      << " CACHE successful release of " << bytes(candidate.size) << ", had "
      << std::to_string(entriesBefore) << " entries, now " << std::to_string(queue_.nEntries());
  if (VerboseStream::show(1)) {
    queue_.list_info(0);
  }
}

/// Says why an object stays in memory.
void CacheQueue::Eviction::kept(const Candidate& candidate, const Creature& creator) const {
  TOLVANE_VERBOSE_DOMAIN(10, "Mem") << diagnosis(candidate, creator);
}

std::string CacheQueue::Eviction::diagnosis(const Candidate& candidate,
                                            const Creature& creator) const {
  const int strong = candidate.object.strongCount();
  std::string text =
      strong == 1
          ? "possible internal Creator issue while the reference count is correct."
          : std::to_string(strong) +
                " additional reference counters were found that keep this data object alive.";
  text += " Data object in charge [" + creator.addrstr() + "]";
  text += creator.isReproducible()
              ? " These data could be reproduced by " + creator.hasProducer()
              : " These data CANNOT be reproduced and thus must be kept in memory.";
  text += " " + std::to_string(queue_.nEntries()) + " releasable and " +
          std::to_string(keepers_.nEntries()) + " kept objects (domain " +
          Typename(*candidate.domain) + ", creator domain " + Typename(*candidate.creatorDomain) +
          ")";
  return text;
}

} // namespace Tolvane
