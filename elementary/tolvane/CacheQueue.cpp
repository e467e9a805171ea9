#include <tolvane/Cache.hpp>
#include <tolvane/CacheQueue.hpp>
#include <tolvane/CacheQueueInternal.hpp>
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
#include <optional>
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

/// An entry whose creator is gone is looked at so often, a millisecond apart, before it counts as
/// forgotten: a thread that merely looks at it may have kept it from going with its creator.
constexpr int LooksAtForgotten = 30;

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

/// Whether a push has passed by its trace and asked for a name: the first time that makes the plain
/// types readable, for everybody, and the file known as one with messages, shown or not.
std::atomic<bool> traced{false};

/// Whether a push may be told of, or is the first one.
bool mayTrace() noexcept {
  return detail::verboseThreshold.load(std::memory_order_relaxed) >= 100 ||
         !traced.load(std::memory_order_relaxed);
}

/// The types of an object and of its creator, for the trace of a push.
std::string typeNames(const WeakPtr<Cacheable>& object) {
  const detail::Held<Cacheable> held(object);
  return held ? Typename(held->DomainType()) + " creator=" + Typename(held->CreatorType()) : "";
}

} // namespace

constinit thread_local CacheQueue::Lock* CacheQueue::Lock::innermost = nullptr;

/// Says that it takes long, and goes on waiting.
bool CacheQueue::Lock::waitLonger(CacheQueue& queue) {
  TOLVANE_IRREGULARITY("a queue of the cache has been held for ten seconds")
      << ". If a release request waits for this thread, both wait for ever.";
  queue.queueMutex_.lock();
  return true;
}

/// Takes a queue on a thread that holds one already; throws where it is that one.
bool CacheQueue::Lock::lockInside(CacheQueue& queue, bool mayWait) {
  if (heldByThisThread(queue)) {
    throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur),
                            "CacheQueue: a queue that asks for a release cannot take an object in "
                            "on the same thread");
  }
  return mayWait ? wait(queue) : queue.queueMutex_.try_lock();
}

CacheQueue::Iterator::~Iterator() = default;

CacheQueue::CacheQueue() : Cacheable(Anchor{}) {}

CacheQueue::CacheQueue(std::shared_ptr<detail::CacheTotals> totals, const CacheMultiQueue* domain,
                       Role role)
    : Cacheable(Anchor{}), totals_(std::move(totals)), domain_(domain), role_(role) {}

CacheQueue::~CacheQueue() {
  const Profiler profiler(__FILE__, __LINE__, TOLVANE_FUNCTION, "CacheQueue::~CacheQueue()",
                          EvictionLevel);
  close();
}

/// Purges the queue and takes no entry any more.
void CacheQueue::close() noexcept {
  try {
    purgeEntries(true);
  } catch (...) {
    TOLVANE_IRREGULARITY("a dying queue could not be purged");
  }
  {
    const std::lock_guard ring(mutex_);
    closed_ = true;
  }
  releaseEntries();
}

memsize_t CacheQueue::memsize() const {
  return total_.load(std::memory_order_relaxed);
}

std::uint32_t CacheQueue::nEntries() const noexcept {
  return entries_.load(std::memory_order_relaxed);
}

CacheCounts CacheQueue::counts() const noexcept {
  CacheCounts counts;
  counts.entries = nEntries();
  counts.bytes = total_.load(std::memory_order_relaxed);
  counts.inserted = inserted_.get();
  counts.touched = touched_.get();
  counts.released = released_.get();
  counts.temporary = temporary_.get();
  counts.kept = kept_.get();
  counts.evicted = evicted_.get();
  counts.evictedBytes = evictedBytes_.get();
  const std::uint64_t usual = counts.released + counts.temporary + counts.kept;
  counts.asked = std::max(asked_.get(), usual); // while another thread counts an answer
  counts.unusual = counts.asked - usual;
  return counts;
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
  if (!object) {
    return false;
  }
  if (mayTrace()) [[unlikely]] {
    trace(operation, object);
  }
  // Held only once the queue is, since nothing is waited for with a hold; let go of after the
  // queue, for it may be the last hold.
  detail::Held<Cacheable> held;
  const Lock lock(*this, entry == Entry::Aside);
  if (!lock) {
    return false;
  }
  held = detail::Held<Cacheable>(object);
  return held && held->enter(*this, end, entry);
}

/// Inserts an object that the caller holds together with its creator.
bool CacheQueue::insert(Cacheable& object, bool asOldest) {
  if (mayTrace()) [[unlikely]] {
    trace(asOldest ? "CacheQueue::put_in_back(type=" : "CacheQueue::push_front(type=",
          object.self());
  }
  const Lock lock(*this, false);
  return lock && object.enter(*this, asOldest ? End::Oldest : End::Newest, Entry::Insert);
}

void CacheQueue::trace(const char* operation, const WeakPtr<Cacheable>& object) {
  if (!traced.load(std::memory_order_relaxed)) [[unlikely]] {
    typeNames(object);
    traced.store(detail::defaultTypenamesInstalled(), std::memory_order_relaxed);
  }
  TOLVANE_VERBOSE_DOMAIN(100, "Mem") << operation << typeNames(object) << ")";
}

/// Makes an object that stood aside the first to be asked.
bool CacheQueue::askAgain(const WeakPtr<Cacheable>& object) {
  return put("CacheQueue::put_in_back(type=", object, End::Oldest, Entry::Back);
}

bool CacheQueue::isAlreadyIncluded(const WeakPtr<Cacheable>& object) const {
  const detail::Held<Cacheable> held(object);
  return held && includes(*held);
}

bool CacheQueue::includes(const Cacheable& object) const {
  const std::lock_guard lock(object.mutex_);
  return object.queue_ == this;
}

/// The oldest entry, or the queue itself; needs the mutex of the queue's node.
inline const Cacheable* CacheQueue::firstAlive() const noexcept {
  const Cacheable* entry = next_.get();
  // One that dies on another thread is no longer counted and about to leave the ring.
  while (entry != this && dying(*entry)) {
    entry = entry->next_.get();
  }
  return entry;
}

/// Whether an object is the oldest entry.
bool CacheQueue::isOldest(const WeakPtr<Cacheable>& object) const {
  const std::lock_guard ring(mutex_);
  const Cacheable* const first = firstAlive();
  return first != this && first->self() == object;
}

/// Whether an entry whose creator is gone leaves the queue, or gets another creator, in a moment.
bool CacheQueue::goesByItself(const WeakPtr<Cacheable>& entry) const {
  for (int looks = 0; looks <= LooksAtForgotten && !detail::otherThreadsAreGone(); ++looks) {
    {
      const detail::Held<Cacheable> held(entry);
      if (!held || !includes(*held) || held->creator()) {
        return true;
      }
      const std::lock_guard own(held->mutex_);
      if (!held.owned() || held->forgotten_) {
        return false;
      }
      held->forgotten_ = looks == LooksAtForgotten;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return false;
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
    const detail::Held<Cacheable> held(entry);
    if (!held || !includes(*held)) {
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
  for (const WeakPtr<Cacheable>& entry : snapshot()) {
    // Printed without the hold: standard output may keep its writer waiting.
    std::string line;
    if (const detail::Held<Cacheable> held{entry}; held && includes(*held)) {
      line = "    {" + held->name() + "} " + Typename(held->DomainType()) + " " +
             to_address_string(held.get()) + " " + std::to_string(held->memsize()) + " bytes";
      if (detail >= 50) {
        line += ", creator " + Typename(held->CreatorType()) + ", " +
                std::to_string(entry.strongCount() - (held.owned() ? 1 : 0)) + " strong";
      }
      line += "\n";
    }
    std::fputs(line.c_str(), stdout);
  }
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
  const Cacheable* const entry = firstAlive();
  return entry != this ? entry->self() : WeakPtr<Cacheable>();
}

/// Holds the oldest entry, unless that dies in this moment. Returns whether there is one.
[[gnu::always_inline]] inline bool
CacheQueue::holdOldest(detail::Held<Cacheable>& held) const noexcept {
  const std::lock_guard ring(mutex_);
  const Cacheable* const entry = firstAlive();
  if (entry == this) {
    return false;
  }
  held = detail::Held<Cacheable>(entry->self());
  return true;
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
      if (creator) {
        creator->release();
      } else if (!destructing(maker) && isAlreadyIncluded(entry) &&
                 (tolerant || !goesByItself(entry))) {
        maker->release(); // reports and throws
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
      count(-memsize(), -static_cast<int>(nEntries()));
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
}

/// One call of adjust(): what it knows between the passes. A pass is a part of every insertion into
/// a full cache, so that its steps are inlined, which a benchmark shows.
class CacheQueue::Eviction {
public:
  Eviction(CacheQueue& queue, const CacheBase& cache, memsize_t newCost, CacheQueue& temporaries,
           CacheQueue& keepers)
      : queue_(queue), cache_(cache), newCost_(newCost), temporaries_(temporaries),
        keepers_(keepers) {}

  [[gnu::always_inline]] inline bool run();

private:
  /// What is asked about the oldest entry before its creator is: nothing holds the entry any more
  /// while the creator decides.
  struct Candidate {
    [[gnu::always_inline]] explicit Candidate(detail::Held<Cacheable>& entry)
        : size(entry->memsize()), domain(entry->DomainType()), object(lookAt(entry)) {}

    const memsize_t size;
    const std::type_info& domain;
    std::string name;
    detail::Held<Creature> creator;
    std::optional<WeakPtr<Creature>> maker; // where that is not alive
    const WeakPtr<Cacheable> object;

  private:
    /// Notes name and creator. Lets go of the entry and returns what goes on observing it.
    [[gnu::always_inline]] WeakPtr<Cacheable> lookAt(detail::Held<Cacheable>& entry) {
      {
        const std::lock_guard own(entry->mutex_);
        name = entry->name_;
        creator = detail::Held<Creature>(entry->creator_);
        __builtin_prefetch(creator.get()); // asked in a moment
        if (!creator) {
          maker = entry->creator_;
        }
      }
      return entry.observe();
    }
  };

  bool fitsNow() const { return fits(cache_.totalCost(false), newCost_, cache_.limit()); }
  inline bool holdOldest(detail::Held<Cacheable>& entry) const;
  bool isForgotten(const Candidate& candidate);
  inline int ask(const Candidate& candidate);
  inline void actOn(int answer, const Candidate& candidate, std::uint32_t entriesBefore);
  void putAside(const Candidate& candidate, CacheQueue& queue);
  void trace(const Candidate& candidate) const;
  void traceRelease(const Candidate& candidate, std::uint32_t entriesBefore) const;
  void traceKeeping(const Candidate& candidate) const;
  void reportStillThere(const Candidate& candidate) const;
  void reportGivingUp(const Candidate& candidate) const;
  std::string diagnosis(const Candidate& candidate) const;

  CacheQueue& queue_;
  const CacheBase& cache_;
  const memsize_t newCost_;
  CacheQueue& temporaries_;
  CacheQueue& keepers_;
  unsigned releasedItems_ = 0;
  int answersWithoutProgress_ = 0;
};

bool CacheQueue::adjust(const CacheBase& cache, memsize_t newCost, CacheQueue& temporaries,
                        CacheQueue& keepers) {
  return adjust(cache, newCost, temporaries, keepers, nullptr);
}

/// The same with an object, if any, that comes in at once, unless that is to be told of first. Who
/// asks looks whether it did: an empty queue has room without a look at anything.
bool CacheQueue::adjust(const CacheBase& cache, memsize_t newCost, CacheQueue& temporaries,
                        CacheQueue& keepers, detail::Entrant* entrant) {
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
  if (!Eviction(*this, cache, newCost, temporaries, keepers).run()) {
    return false;
  }
  if (entrant != nullptr && !mayTrace() && entrant->hold()) {
    entrant->entered =
        entrant->held->enter(*this, entrant->asOldest ? End::Oldest : End::Newest, Entry::Insert);
  }
  return true;
}

bool CacheQueue::Eviction::run() {
  while (!fitsNow()) {
    const Profiler profiler(EvictionFile, 399, EvictionFunction, "CacheQueue::adjust items",
                            EvictionLevel);
    detail::Held<Cacheable> entry;
    if (!holdOldest(entry)) {
      return false;
    }
    const Candidate candidate(entry);
    if (Cache::verbosity() > 0) [[unlikely]] {
      trace(candidate);
    }
    if (!candidate.creator && !isForgotten(candidate)) [[unlikely]] {
      continue;
    }
    const std::uint32_t entriesBefore = queue_.nEntries();
    actOn(ask(candidate), candidate, entriesBefore);
    if (queue_.nEntries() < entriesBefore) {
      answersWithoutProgress_ = 0;
    } else if (++answersWithoutProgress_ == MostAnswersWithoutProgress) {
      reportGivingUp(candidate);
      return false;
    }
  }
  return true;
}

/// Holds the oldest entry that is alive. Returns whether there is one.
bool CacheQueue::Eviction::holdOldest(detail::Held<Cacheable>& entry) const {
  do {
    if (!queue_.holdOldest(entry)) {
      return false;
    }
  } while (!entry);
  return true;
}

/// Whether a candidate was forgotten by its creator, which is gone, so that asking reports it. If
/// not, it went, or is about to, or was put aside because its creator is just being destroyed.
bool CacheQueue::Eviction::isForgotten(const Candidate& candidate) {
  // In this order: a creator that is gone by now has taken its data along.
  const bool underDestruction = destructing(*candidate.maker);
  if (!queue_.isAlreadyIncluded(candidate.object)) {
    return false;
  }
  if (underDestruction) {
    putAside(candidate, temporaries_);
    return false;
  }
  return !queue_.goesByItself(candidate.object);
}

/// Asks the creator of a candidate. Returns its answer.
int CacheQueue::Eviction::ask(const Candidate& candidate) {
  // Without a live creator the access to the entry's own pointer reports and throws.
  Creature& creator = candidate.creator ? *candidate.creator : **candidate.maker;
  int answer = 0;
  {
    const Profiler profiler(EvictionFile, 454, EvictionFunction, "CacheQueue: Creator->release()",
                            EvictionLevel);
    answer = creator.release();
  }
  ++releasedItems_;
  queue_.asked_.add(1);
  if (!candidate.object) {
    queue_.evicted_.add(1);
    queue_.evictedBytes_.add(candidate.size);
  }
  return answer;
}

void CacheQueue::Eviction::actOn(int answer, const Candidate& candidate,
                                 std::uint32_t entriesBefore) {
  switch (answer) {
  case 2:
    queue_.released_.add(1);
    // Mostly it went: then its address tells, without a look into the ring.
    if (queue_.next_.get() == candidate.object.get() && queue_.isOldest(candidate.object)) {
      reportStillThere(candidate);
    }
    if (queue_.nEntries() != entriesBefore - 1) {
      traceRelease(candidate, entriesBefore);
    }
    break;
  case 1:
    queue_.temporary_.add(1);
    putAside(candidate, temporaries_);
    break;
  case 0:
    queue_.kept_.add(1);
    putAside(candidate, keepers_);
    traceKeeping(candidate);
    break;
  default:
    break;
  }
}

void CacheQueue::Eviction::putAside(const Candidate& candidate, CacheQueue& queue) {
  queue.put("CacheQueue::push_front(type=", candidate.object, End::Newest, Entry::Aside);
}

void CacheQueue::Eviction::reportGivingUp(const Candidate& candidate) const {
  Irregularity(EvictionFile, __LINE__, EvictionFunction,
               "creators were asked 100 times in a row and no entry left the queue")
      << ". The eviction gives up; the last one asked was [" << candidate.name << "] of type "
      << candidate.domain << ", made by " << typeid(*candidate.creator);
}

void CacheQueue::Eviction::trace(const Candidate& candidate) const {
  VerboseStream(false, false, 0, EvictionFile, __LINE__, EvictionFunction, "", "Mem")
      << "CacheQueue adjust: Total " << bytes(cache_.totalCost(false)) << " (limit "
      << bytes(cache_.limit()) << ", this releasable [" << candidate.name << "] uses "
      << bytes(candidate.size) << " of " << bytes(queue_.memsize())
      << " in this domain), trying to release ";
  VerboseStream(false, false, 0, EvictionFile, __LINE__, EvictionFunction, "", "Mem")
      << "    CacheQueue release candidate " << Typename(candidate.domain) << " [" << candidate.name
      << "] is one of " << std::to_string(queue_.nEntries()) << " elements using "
      << bytes(queue_.memsize());
}

/// Says that a creator claims falsely that its data went.
void CacheQueue::Eviction::reportStillThere(const Candidate& candidate) const {
  Irregularity(EvictionFile, 479, EvictionFunction, "Releaseable == oldest()")
      << "There is a problem, the object to be released is still in the Cache:\n"
      << "NumberOfReleasedItems =" << std::to_string(releasedItems_) << ", computed size "
      << std::to_string(queue_.compute_memsize()) << " against " << std::to_string(queue_.memsize())
      << " counted, cache total " << std::to_string(cache_.totalCost(false)) << " of limit "
      << std::to_string(cache_.limit()) << "\nRELEASE: OLDEST CANDIDATE: [" << candidate.name
      << "]\nRelease candidate's ProvenancePath: " << candidate.creator->provenancePath();
}

/// Says that not just one entry went.
void CacheQueue::Eviction::traceRelease(const Candidate& candidate,
                                        std::uint32_t entriesBefore) const {
  bool shown = false;
  TOLVANE_VERBOSE_DOMAIN(1, "Mem") << " CACHE successful release of " << bytes(candidate.size)
                                   << ", had " << std::to_string(entriesBefore) << " entries, now "
                                   << std::to_string(queue_.nEntries()) << (shown = true, "");
  if (shown) {
    queue_.list_info(0);
  }
}

/// Says why an object stays in memory.
void CacheQueue::Eviction::traceKeeping(const Candidate& candidate) const {
  TOLVANE_VERBOSE_DOMAIN(10, "Mem") << diagnosis(candidate);
}

std::string CacheQueue::Eviction::diagnosis(const Candidate& candidate) const {
  const Creature& creator = *candidate.creator;
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
          Typename(candidate.domain) + ", creator domain " + Typename(typeid(creator)) + ")";
  return text;
}

} // namespace Tolvane
