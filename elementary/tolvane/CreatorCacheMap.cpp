#include <tolvane/Cache.hpp>
#include <tolvane/CacheTotalsInternal.hpp>
#include <tolvane/CreatorCacheMap.hpp>
#include <tolvane/Creature.hpp>
#include <tolvane/HeldInternal.hpp>
#include <tolvane/TypeMapInternal.hpp>
#include <tolvane/Typename.hpp>
#include <tolvane/Verbose.hpp>

#include <algorithm>
#include <cstdio>

namespace Tolvane {

namespace {

double mebibytes(memsize_t bytes) {
  return static_cast<double>(bytes) / (1024.0 * 1024.0);
}

/// The figures that end the line of a domain.
template <class Queues>
void printFigures(const Queues* queues) {
  const memsize_t all = queues != nullptr ? queues->memsize(true) : 0;
  // Both are right, but not of the same moment.
  const memsize_t freeable = queues != nullptr ? std::min(all, queues->memsize(false)) : 0;
  const std::uint32_t entries = queues != nullptr ? queues->nEntries() : 0;
  std::printf("   Have %d entries using %llu (%lgM, %lgM freeable, %lgM unfreeable) here. \n",
              static_cast<int>(entries), all, mebibytes(all), mebibytes(freeable),
              mebibytes(all - freeable));
}

} // namespace

struct CreatorCacheMap::Domains : detail::TypeMap<StrongPtr<CacheMap>> {};

CreatorCacheMap::CreatorCacheMap()
    : totals_(std::make_shared<detail::CacheTotals>()), domains_(std::make_unique<Domains>()) {}

CreatorCacheMap::~CreatorCacheMap() = default;

CacheMap& CreatorCacheMap::obtain(const std::type_info& creatorType) {
  return *domains_->obtain(creatorType,
                           [this] { return StrongPtr<CacheMap>(new CacheMap(totals_)); });
}

CacheMap* CreatorCacheMap::find(const std::type_info& creatorType) const {
  const StrongPtr<CacheMap>* map = domains_->find(creatorType);
  // A map that is found is never empty.
  return map != nullptr ? detail::PointerAccess::held(*map) : nullptr;
}

bool CreatorCacheMap::insert(const WeakPtr<Cacheable>& object, bool asOldest) {
  detail::Held<Creature> creator; // let go of after the object
  const detail::Held<Cacheable> held(object);
  if (!held) {
    return false;
  }
  held->holdCreator(creator);
  const std::type_info& creatorType = held->CreatorType();
  const std::type_info& domainType = held->DomainType();
  return insert(*held, find(creatorType, domainType), creatorType, domainType, asOldest);
}

/// Inserts an object that the caller holds together with its creator.
bool CreatorCacheMap::insert(Cacheable& object, const Place& place,
                             const std::type_info& creatorType, const std::type_info& domainType,
                             bool asOldest) {
  if (place.queues != nullptr) {
    if (place.queues->insert(object, asOldest)) {
      return true;
    }
    if (!place.queues->closed()) {
      return false;
    }
  }
  return insertAnew(object, creatorType, domainType, asOldest);
}

/// The same where there are no queues yet, or none any more.
bool CreatorCacheMap::insertAnew(Cacheable& object, const std::type_info& creatorType,
                                 const std::type_info& domainType, bool asOldest) {
  for (;;) {
    CacheMap& map = obtain(creatorType);
    if (map.insert(object, domainType, asOldest)) {
      return true;
    }
    if (!map.closed()) {
      return false;
    }
    // The domain was taken out in this moment: the object goes into a new one.
  }
}

CreatorCacheMap::Place CreatorCacheMap::find(const std::type_info& creatorType,
                                             const std::type_info& domainType) const {
  CacheMap* const map = find(creatorType);
  return {map, map != nullptr ? map->find(domainType) : nullptr};
}

bool CreatorCacheMap::hasZombies() const noexcept {
  return totals_->zombies.load() != 0;
}

/// The bytes that can be released.
const std::atomic<memsize_t>& CreatorCacheMap::freeable() const noexcept {
  return totals_->releasable;
}

void CreatorCacheMap::insert_zombie(const WeakPtr<Cacheable>& object) {
  if (const detail::Held<Cacheable> held{object}) {
    obtain(held->CreatorType()).insert_zombie(object);
  }
}

bool CreatorCacheMap::touchAtOnce(const WeakPtr<Cacheable>& object) noexcept {
  const detail::Held<Cacheable> held(object);
  return held && held->refreshAtOnce(totals_.get()) == Cacheable::Refresh::Done;
}

bool CreatorCacheMap::touch(const WeakPtr<Cacheable>& object) {
  const std::type_info* domain = nullptr;
  const std::type_info* creator = nullptr;
  detail::Held<Creature> maker; // so that the data does not come into a queue without it
  {
    const detail::Held<Cacheable> held(object);
    if (!held) {
      return false;
    }
    held->holdCreator(maker);
    domain = &held->DomainType();
    creator = &held->CreatorType();
  }
  const StrongPtr<CacheMap>* map = domains_->find(*creator);
  if (map != nullptr && *map) {
    return map->get()->touch(object);
  }
  if (map == nullptr) {
    std::printf("CreatorCacheMap::touch(const WeakPtr<Cacheable>&[%s]): No Cacheable Creator "
                "Domain [%s] found! Nothing touched.\n",
                Typename(*domain).c_str(), Typename(*creator).c_str());
  } else {
    std::printf("CreatorCacheMap::touch(const WeakPtr<Cacheable>&Ca): No CacheMap found for "
                "Creator Domain! Nothing touched.\n");
  }
  std::fflush(stdout);
  return false;
}

memsize_t CreatorCacheMap::memsize(bool all) const {
  const memsize_t releasable = totals_->releasable.load(std::memory_order_relaxed);
  return all ? releasable + totals_->kept.load(std::memory_order_relaxed) : releasable;
}

std::uint32_t CreatorCacheMap::nEntries() const {
  std::uint32_t sum = 0;
  domains_->each([&](const auto& domain) { sum += domain.value->nEntries(); });
  return sum;
}

memsize_t CreatorCacheMap::purge() {
  memsize_t freed = 0;
  domains_->each([&](const auto& domain) { freed += domain.value->purge(); });
  return freed;
}

void CreatorCacheMap::purge_Hades() {
  if (!hasZombies()) {
    return;
  }
  domains_->each([](const auto& domain) { domain.value->purge_Hades(); });
}

bool CreatorCacheMap::adjust(const std::type_info& creatorType, const std::type_info& domainType,
                             const CacheBase& cache, memsize_t newCost) {
  return adjust(find(creatorType, domainType), creatorType, domainType, cache, newCost, nullptr);
}

/// The same with an object, if any, that comes in where an eviction in its own domain makes the
/// room.
bool CreatorCacheMap::adjust(const Place& own, const std::type_info& creatorType,
                             const std::type_info& domainType, const CacheBase& cache,
                             memsize_t newCost, detail::Entrant* entrant) {
  const bool told = Cache::verbosity() >= 11;
  if (told) [[unlikely]] {
    const memsize_t have = own.map != nullptr ? own.map->memsize(true) : 0;
    std::printf(" CreatorCacheMap::adjust(%s, Cache, newCost=%luMB) HAVE %luMB of this domain\n",
                Typename(creatorType).c_str(), static_cast<unsigned long>(newCost >> 20),
                static_cast<unsigned long>(have >> 20));
    std::fflush(stdout);
  }
  // Mostly the very domain makes room; where nothing is told on the way, it is asked at once.
  const bool atOnce = !told && own.queues != nullptr;
  if (atOnce && own.queues->adjust(cache, newCost, entrant)) {
    return true;
  }
  return adjustAny({own.map, atOnce ? nullptr : own.queues}, domainType, cache, newCost);
}

/// Makes room in `own`, as far as it is given, or in any other domain.
bool CreatorCacheMap::adjustAny(const Place& own, const std::type_info& domainType,
                                const CacheBase& cache, memsize_t newCost) {
  if (own.map != nullptr && own.map->adjust(own.queues, domainType, cache, newCost)) {
    return true;
  }
  if (domains_->any(
          [&](const auto& domain) { return domain.value->adjust(domainType, cache, newCost); })) {
    return true;
  }
  TOLVANE_VERBOSE_DOMAIN(5, "Mem") << "CreatorCacheMap::adjust(): no domain can make room for "
                                   << VerboseStream::MemString(static_cast<long long>(newCost));
  return false;
}

void CreatorCacheMap::list_info() const {
  domains_->each([](const auto& domain) {
    std::printf(" CreatorCacheMap for listed Domain [%s]:", Typename(domain.type.get()).c_str());
    const CacheMap& map = *domain.value;
    printFigures(&map);
    for (const TypeInfo data : map.domains()) {
      std::printf(" CreatorCacheMap for listed Domain [%s]:", Typename(data.get()).c_str());
      printFigures(map.domain(data.get()));
      map.list_info(data.get());
    }
  });
  std::fflush(stdout);
}

void CreatorCacheMap::list_info(const std::type_info& creatorType) const {
  const StrongPtr<CacheMap> map = creatorDomain(creatorType);
  if (map) {
    std::printf(" CreatorCacheMap for specific Domain [%s]:", Typename(creatorType).c_str());
    printFigures(map.get());
    map->list_info();
  } else {
    std::printf(" CreatorCacheMap for Domain [%s]:  No such domain found, not that the domain must "
                "refer to the typeid of the Cacheable objects!\n",
                Typename(creatorType).c_str());
  }
  std::fflush(stdout);
}

void CreatorCacheMap::list_info(const std::type_info& creatorType,
                                const std::type_info& domainType) const {
  const StrongPtr<CacheMap> map = creatorDomain(creatorType);
  const std::string creator = Typename(creatorType);
  std::printf(" CreatorCacheMap for Creator Domain [%s] for Cacheable Domain [%s]:",
              creator.c_str(), Typename(domainType).c_str());
  printFigures(map ? map->domain(domainType) : nullptr);
  if (map) {
    map->list_info(domainType);
  }
  std::fflush(stdout);
}

StrongPtr<CacheMap> CreatorCacheMap::creatorDomain(const std::type_info& creatorType) const {
  const StrongPtr<CacheMap>* map = domains_->find(creatorType);
  return map != nullptr ? *map : StrongPtr<CacheMap>();
}

void CreatorCacheMap::countRefusal(const std::type_info& creatorType,
                                   const std::type_info& domainType) noexcept {
  totals_->refused.fetch_add(1, std::memory_order_relaxed);
  if (CacheMap* map = find(creatorType)) {
    map->countRefusal(domainType);
  }
}

CacheStatistics CreatorCacheMap::statistics() const {
  CacheStatistics result;
  domains_->each([&](const auto& creator) {
    const CacheMap& map = *creator.value;
    for (const TypeInfo data : map.domains()) {
      if (const CacheMultiQueue* queues = map.domain(data.get())) {
        result.domains.push_back(queues->statistics(creator.type, data));
        result.total += result.domains.back().total();
      }
    }
  });
  result.freeable = memsize(false);
  result.peak = totals_->peak.load(std::memory_order_relaxed);
  result.total.refused = totals_->refused.load(std::memory_order_relaxed);
  return result;
}

memsize_t CreatorCacheMap::forget(const std::type_info& type) {
  memsize_t freed = 0;
  if (const StrongPtr<CacheMap>* map = domains_->take(type)) {
    freed += (*map)->close();
  }
  domains_->each([&](const auto& domain) { freed += domain.value->forget(type); });
  return freed;
}

} // namespace Tolvane
