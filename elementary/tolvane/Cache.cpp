#include <tolvane/Cache.hpp>
#include <tolvane/CacheQueueInternal.hpp>
#include <tolvane/CreatorHoldInternal.hpp>
#include <tolvane/Creature.hpp>
#include <tolvane/Environment.hpp>
#include <tolvane/HeldInternal.hpp>
#include <tolvane/SystemMemory.hpp>
#include <tolvane/Typename.hpp>
#include <tolvane/Verbose.hpp>

#include <algorithm>
#include <cstdio>
#include <new>

namespace Tolvane {

namespace {

std::string mem(memsize_t bytes) {
  return VerboseStream::MemString(static_cast<long long>(bytes));
}

std::string outOfMemoryText(const Cacheable* object) {
  return "Not enough memory to handle " +
         (object != nullptr ? Typename(typeid(*object)) : "Unknown object");
}

} // namespace

/// An object that asks to be admitted, held together with its creator. A part of every insertion
/// and so inlined, which a benchmark shows.
struct Cache::Applicant {
  detail::Held<Creature> creator; // let go of after the object
  detail::Held<Cacheable> object;
  const std::type_info* domain = nullptr;
  const std::type_info* creatorDomain = nullptr;
  memsize_t cost = 0;

  /// Whether the object and its creator are alive and held by somebody.
  [[gnu::always_inline]] bool hold(const WeakPtr<Cacheable>& candidate) {
    object = detail::Held<Cacheable>(candidate);
    if (!object.owned()) {
      return false;
    }
    object->holdCreator(creator);
    if (!creator.owned()) {
      return false;
    }
    const Cacheable::CreatorHold hold(*object, *creator);
    domain = &object->DomainType();
    creatorDomain = &object->CreatorType();
    cost = object->memsize();
    return true;
  }
};

Cache::OutOfMemory::OutOfMemory(const StrongPtr<Cacheable>& object,
                                const WeakPtr<Creature>& creator,
                                const WeakPtr<Cache, CacheBase>& cache)
    : Exception(outOfMemoryText(object.get()), __FILE__, __LINE__), object_(object),
      creator_(creator), cache_(cache), text_(description().c_str()) {}

Cache::OutOfMemory::OutOfMemory(const OutOfMemory& other) = default;

Cache::OutOfMemory::~OutOfMemory() = default;

const char* Cache::OutOfMemory::what() const noexcept {
  return text_.c_str();
}

Cache::Cache(memsize_t limit, const std::string& name)
    : CacheBase(name), limit_(limit), freeable_(objects_.freeable()) {}

Cache::~Cache() = default;

memsize_t Cache::totalCost(bool all) const {
  return all ? objects_.memsize(true) : freeable_.load(std::memory_order_relaxed);
}

memsize_t Cache::limit() const {
  return limit_;
}

bool Cache::handleOutOfMemory(const StrongPtr<Cacheable>& object,
                              const WeakPtr<Creature>& creator) {
  throw OutOfMemory(object, creator, WeakPtr<Cache, CacheBase>(this));
}

/// Whether the sum stays below the limit, strictly: at equality the queue decides, and says yes.
inline bool Cache::fits(memsize_t cost) const {
  const memsize_t total = totalCost(false);
  const memsize_t most = limit();
  return total < most && cost < most - total; // without a sum that could wrap
}

bool Cache::insert(const WeakPtr<Cacheable>& object, bool asOldest) {
  // From the moment on in which something may let go of the cache: a catcher of messages, or the
  // object, which goes before the listing. The caller's pointer may be a part of the object, and is
  // not looked at any more from then on.
  detail::Held<CacheBase> alive;
  const int level = verbosity();
  if (detail::verboseThreshold.load(std::memory_order_relaxed) >= 100 || level >= 11) [[unlikely]] {
    alive = detail::Held<CacheBase>(self());
  }
  Applicant applicant;
  if (!applicant.hold(object)) {
    return false;
  }
  if (level > 0) [[unlikely]] {
    const memsize_t total = totalCost(true);
    const memsize_t freeable = std::min(total, totalCost(false));
    VerboseStream report(false, false, 0, __FILE__, __LINE__, TOLVANE_FUNCTION, "", "Mem");
    report << "Info: Cache<" << name() << ">::insert(): Have " << std::to_string(nEntries())
           << " entries using " << mem(total) << " (" << mem(freeable) << " freeable, "
           << mem(total - freeable) << " unfreeable) of " << mem(limit()) << " allowed, adding "
           << mem(applicant.cost) << " " << *applicant.domain << " ---> Creator Type "
           << *applicant.creatorDomain;
    if (level > 1) {
      report << " [process uses " << mem(getMemUsage()) << ", available "
             << mem(getAvailableMemory()) << " of " << mem(getMemorySize()) << "]";
    }
  }
  if (objects_.hasZombies()) {
    alive = detail::Held<CacheBase>(self());
    const WeakPtr<Cacheable> candidate = applicant.object.observe();
    applicant.creator.reset();
    purge_Hades();
    // The zombies may have held the object, or have been a part of it.
    if (!applicant.hold(candidate)) {
      return false;
    }
  }
  const auto place = objects_.find(*applicant.creatorDomain, *applicant.domain);
  bool entered = false;
  if (!fits(applicant.cost)) {
    alive = detail::Held<CacheBase>(self());
    // Others decide now what becomes of this object, too, as if nobody asked for it.
    detail::Entrant entrant{applicant.object.observe(), asOldest, applicant.object};
    if (!makeRoom(place, *applicant.creatorDomain, *applicant.domain, applicant.cost, &entrant)) {
      return refuse(applicant.cost, *applicant.creatorDomain, *applicant.domain);
    }
    if (!entrant.hold()) {
      return false;
    }
    entered = entrant.entered;
  }
  if (!entered && !objects_.insert(*applicant.object, place, *applicant.creatorDomain,
                                   *applicant.domain, asOldest)) {
    return refuse(applicant.cost, *applicant.creatorDomain, *applicant.domain);
  }
  if (level >= 11) [[unlikely]] {
    applicant.object.reset(); // it does not count in what is printed
    try {
      list_info();
    } catch (const std::bad_alloc&) {
      // The object is in all the same.
    }
  }
  return true;
}

bool Cache::refuse(memsize_t cost, const std::type_info& creatorType,
                   const std::type_info& domainType) {
  objects_.countRefusal(creatorType, domainType);
  TOLVANE_VERBOSE_DOMAIN(1, "Mem")
      << "Cache<" << name() << ">::insert(): no room for " << mem(cost) << " of " << domainType;
  return false;
}

void Cache::insert_zombie(const WeakPtr<Cacheable>& object) {
  objects_.insert_zombie(object);
}

void Cache::purge_Hades() {
  const detail::Held<CacheBase> alive(self());
  objects_.purge_Hades();
}

bool Cache::touch(const WeakPtr<Cacheable>& object) {
  if (objects_.touchAtOnce(object)) {
    return true;
  }
  const detail::Held<CacheBase> alive(self());
  return objects_.touch(object);
}

memsize_t Cache::purge() {
  const detail::Held<CacheBase> alive(self());
  return objects_.purge();
}

bool Cache::adjust(const std::type_info& creatorType, const std::type_info& domainType,
                   memsize_t newCost) {
  const detail::Held<CacheBase> alive(self());
  return fits(newCost) || makeRoom(objects_.find(creatorType, domainType), creatorType, domainType,
                                   newCost, nullptr);
}

/// Needs a hold on the cache, for what is asked to go may let go of it.
inline bool Cache::makeRoom(const CreatorCacheMap::Place& place, const std::type_info& creatorType,
                            const std::type_info& domainType, memsize_t newCost,
                            detail::Entrant* entrant) {
  if (verbosity() > 10) {
    std::printf("bool Cache::adjust(): Have %llu Allowed %llu new %llu\n", totalCost(false),
                limit(), newCost);
    std::fflush(stdout);
  }
  return objects_.adjust(place, creatorType, domainType, *this, newCost, entrant);
}

CacheStatistics Cache::statistics() const {
  CacheStatistics result = objects_.statistics();
  result.limit = limit();
  return result;
}

std::uint32_t Cache::nEntries() const {
  return objects_.nEntries();
}

template <class List>
void Cache::list(List list) const {
  std::printf("** Cache<%s> with %u entries using %llu bytes, %llu of them freeable (max allowed "
              "%llu) **\n",
              name().c_str(), nEntries(), totalCost(true), totalCost(false), limit());
  list();
  const CacheStatistics now = statistics();
  std::printf("   %llu bytes freeable at most; %s\n", now.peak, now.total.str().c_str());
  std::fflush(stdout);
}

void Cache::list_info() const {
  list([&] { objects_.list_info(); });
}

void Cache::list_info(const std::type_info& creatorType) const {
  list([&] { objects_.list_info(creatorType); });
}

void Cache::list_info(const std::type_info& creatorType, const std::type_info& domainType) const {
  list([&] { objects_.list_info(creatorType, domainType); });
}

memsize_t Cache::forget(const std::type_info& type) {
  const detail::Held<CacheBase> alive(self());
  return objects_.forget(type);
}

constinit std::atomic<int> Cache::knownVerbosity{Unread};

int Cache::readVerbosity() {
  static const int level = getEnvInteger(
      "MEMCACHE_VERBOSITY", "Detailness of the Cacheing process of loading/unloading objects", 0);
  knownVerbosity.store(level, std::memory_order_relaxed);
  return level;
}

} // namespace Tolvane
