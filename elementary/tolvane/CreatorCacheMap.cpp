#include <tolvane/Cache.hpp>
#include <tolvane/CacheTotalsInternal.hpp>
#include <tolvane/CreatorCacheMap.hpp>
#include <tolvane/DomainMapInternal.hpp>
#include <tolvane/HeldInternal.hpp>
#include <tolvane/Typename.hpp>
#include <tolvane/Verbose.hpp>

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
  const memsize_t freeable = queues != nullptr ? queues->memsize(false) : 0;
  const std::uint32_t entries = queues != nullptr ? queues->nEntries() : 0;
  std::printf("   Have %d entries using %llu (%lgM, %lgM freeable, %lgM unfreeable) here. \n",
              static_cast<int>(entries), all, mebibytes(all), mebibytes(freeable),
              mebibytes(all - freeable));
}

} // namespace

struct CreatorCacheMap::Domains : detail::DomainMap<StrongPtr<CacheMap>> {};

CreatorCacheMap::CreatorCacheMap()
    : totals_(std::make_shared<detail::CacheTotals>()), domains_(std::make_unique<Domains>()) {}

CreatorCacheMap::~CreatorCacheMap() = default;

StrongPtr<CacheMap>& CreatorCacheMap::obtain(const std::type_info& creatorType) {
  return domains_->obtain(
      creatorType, [this] { return std::make_unique<StrongPtr<CacheMap>>(new CacheMap(totals_)); });
}

bool CreatorCacheMap::insert(const WeakPtr<Cacheable>& object, bool asOldest) {
  const detail::Held<Cacheable> held(object);
  return held && obtain(held->CreatorType())->insert(object, asOldest);
}

void CreatorCacheMap::insert_zombie(const WeakPtr<Cacheable>& object) {
  if (const detail::Held<Cacheable> held{object}) {
    obtain(held->CreatorType())->insert_zombie(object);
  }
}

bool CreatorCacheMap::touch(const WeakPtr<Cacheable>& object) {
  const detail::Held<Cacheable> held(object);
  if (!held) {
    return false;
  }
  const StrongPtr<CacheMap>* map = domains_->find(held->CreatorType());
  if (map != nullptr && *map) {
    return (*map)->touch(object);
  }
  if (map == nullptr) {
    std::printf("CreatorCacheMap::touch(const WeakPtr<Cacheable>&[%s]): No Cacheable Creator "
                "Domain [%s] found! Nothing touched.\n",
                Typename(held->DomainType()).c_str(), Typename(held->CreatorType()).c_str());
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
  return totals_->entries.load(std::memory_order_relaxed);
}

memsize_t CreatorCacheMap::purge() {
  memsize_t freed = 0;
  for (const auto& domain : domains_->all()) {
    freed += (*domain.value)->purge();
  }
  return freed;
}

void CreatorCacheMap::purge_Hades() {
  if (totals_->zombies.load() == 0) {
    return;
  }
  for (const auto& domain : domains_->all()) {
    (*domain.value)->purge_Hades();
  }
}

bool CreatorCacheMap::adjust(const std::type_info& creatorType, const std::type_info& domainType,
                             const CacheBase& cache, memsize_t newCost) {
  StrongPtr<CacheMap>* own = domains_->find(creatorType);
  if (Cache::verbosity() >= 11) {
    const memsize_t have = own != nullptr ? (*own)->memsize(true) : 0;
    std::printf(" CreatorCacheMap::adjust(%s, Cache, newCost=%luMB) HAVE %luMB of this domain\n",
                Typename(creatorType).c_str(), static_cast<unsigned long>(newCost >> 20),
                static_cast<unsigned long>(have >> 20));
    std::fflush(stdout);
  }
  if (own != nullptr && (*own)->adjust(domainType, cache, newCost)) {
    return true;
  }
  for (const auto& domain : domains_->all()) {
    if ((*domain.value)->adjust(domainType, cache, newCost)) {
      return true;
    }
  }
  TOLVANE_VERBOSE_DOMAIN(5, "Mem") << "CreatorCacheMap::adjust(): no domain can make room for "
                                   << VerboseStream::MemString(static_cast<long long>(newCost));
  return false;
}

void CreatorCacheMap::list_info() const {
  for (const auto& domain : domains_->all()) {
    std::printf(" CreatorCacheMap for listed Domain [%s]:", Typename(domain.type.get()).c_str());
    const CacheMap& map = **domain.value;
    printFigures(&map);
    for (const TypeInfo data : map.domains()) {
      std::printf(" CreatorCacheMap for listed Domain [%s]:", Typename(data.get()).c_str());
      printFigures(map.domain(data.get()));
      map.list_info(data.get());
    }
  }
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

memsize_t CreatorCacheMap::forget(const std::type_info& type) {
  memsize_t freed = 0;
  if (const std::unique_ptr<StrongPtr<CacheMap>> map = domains_->take(type)) {
    freed += (*map)->purge();
  }
  for (const auto& domain : domains_->all()) {
    freed += (*domain.value)->forget(type);
  }
  return freed;
}

} // namespace Tolvane
