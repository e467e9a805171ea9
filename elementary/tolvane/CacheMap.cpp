#include <tolvane/Cache.hpp>
#include <tolvane/CacheMap.hpp>
#include <tolvane/CacheTotalsInternal.hpp>
#include <tolvane/DomainMapInternal.hpp>
#include <tolvane/HeldInternal.hpp>
#include <tolvane/Typename.hpp>
#include <tolvane/Verbose.hpp>

#include <cstdio>
#include <utility>

namespace Tolvane {

struct CacheMap::Domains : detail::DomainMap<CacheMultiQueue> {};

CacheMap::CacheMap() : CacheMap(std::make_shared<detail::CacheTotals>()) {}

CacheMap::CacheMap(std::shared_ptr<detail::CacheTotals> totals)
    : totals_(std::move(totals)), domains_(std::make_unique<Domains>()) {}

CacheMap::~CacheMap() = default;

bool CacheMap::insert(const WeakPtr<Cacheable>& object, bool asOldest) {
  const detail::Held<Cacheable> held(object);
  if (!held) {
    return false;
  }
  CacheMultiQueue& queues = domains_->obtain(
      held->DomainType(), [this] { return std::make_unique<CacheMultiQueue>(totals_); });
  return asOldest ? queues.push_back(object) : queues.push_front(object);
}

void CacheMap::insert_zombie(const WeakPtr<Cacheable>& object) {
  if (const detail::Held<Cacheable> held{object}) {
    domains_
        ->obtain(held->DomainType(), [this] { return std::make_unique<CacheMultiQueue>(totals_); })
        .insert_zombie(object);
  }
}

bool CacheMap::isAlreadyIncluded(const WeakPtr<Cacheable>& object) const {
  const detail::Held<Cacheable> held(object);
  if (!held) {
    return false;
  }
  const CacheMultiQueue* queues = domains_->find(held->DomainType());
  return queues != nullptr && queues->isAlreadyIncluded(object);
}

bool CacheMap::touch(const WeakPtr<Cacheable>& object) {
  const detail::Held<Cacheable> held(object);
  if (!held) {
    return false;
  }
  if (const CacheMultiQueue* queues = domains_->find(held->DomainType())) {
    return queues->touch(object);
  }
  std::printf("CacheMap::touch(const WeakPtr<Cacheable>&Ca): No Cacheable Domain found! Nothing "
              "touched.\n");
  std::fflush(stdout);
  return false;
}

memsize_t CacheMap::memsize(bool all) const {
  memsize_t sum = 0;
  for (const auto& domain : domains_->all()) {
    sum += domain.value->memsize(all);
  }
  return sum;
}

std::uint32_t CacheMap::nEntries() const {
  std::uint32_t sum = 0;
  for (const auto& domain : domains_->all()) {
    sum += domain.value->nEntries();
  }
  return sum;
}

memsize_t CacheMap::purge() {
  memsize_t freed = 0;
  for (const auto& domain : domains_->all()) {
    freed += domain.value->purge();
  }
  return freed;
}

void CacheMap::purge_Hades() {
  for (const auto& domain : domains_->all()) {
    domain.value->purge_Hades();
  }
}

bool CacheMap::adjust(const std::type_info& domainType, const CacheBase& cache, memsize_t newCost) {
  if (Cache::verbosity() >= 11) {
    std::printf("   CacheMap::adjust(%s, Cache, newCost=%luMB) HAVE %luMB of this domain\n",
                Typename(domainType).c_str(), static_cast<unsigned long>(newCost >> 20),
                static_cast<unsigned long>(memsize(true) >> 20));
    std::fflush(stdout);
  }
  if (CacheMultiQueue* own = domains_->find(domainType);
      own != nullptr && own->adjust(cache, newCost)) {
    return true;
  }
  for (const auto& domain : domains_->all()) {
    if (domain.value->adjust(cache, newCost)) {
      return true;
    }
  }
  TOLVANE_VERBOSE_DOMAIN(5, "Mem") << "CacheMap::adjust(): no data domain can make room for "
                                   << VerboseStream::MemString(static_cast<long long>(newCost));
  return false;
}

void CacheMap::list_info() const {
  for (const auto& domain : domains_->all()) {
    list_info(domain.type.get());
  }
}

void CacheMap::list_info(const std::type_info& domainType) const {
  if (const CacheMultiQueue* queues = domains_->find(domainType)) {
    std::printf("  CacheMap for [%s]: %u entries using %llu bytes, %llu of them kept\n",
                Typename(domainType).c_str(), queues->nEntries(), queues->memsize(true),
                queues->memsize(true) - queues->memsize(false));
    queues->list_info();
    std::fflush(stdout);
  }
}

std::vector<TypeInfo> CacheMap::domains() const {
  std::vector<TypeInfo> types;
  for (const auto& domain : domains_->all()) {
    types.push_back(domain.type);
  }
  return types;
}

const CacheMultiQueue* CacheMap::domain(const std::type_info& domainType) const {
  return domains_->find(domainType);
}

memsize_t CacheMap::forget(const std::type_info& domainType) {
  const std::unique_ptr<CacheMultiQueue> queues = domains_->take(domainType);
  return queues != nullptr ? queues->purge() : 0;
}

} // namespace Tolvane
