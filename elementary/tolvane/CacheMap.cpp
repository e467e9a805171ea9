#include <tolvane/Cache.hpp>
#include <tolvane/CacheMap.hpp>
#include <tolvane/CacheTotalsInternal.hpp>
#include <tolvane/Creature.hpp>
#include <tolvane/HeldInternal.hpp>
#include <tolvane/TypeMapInternal.hpp>
#include <tolvane/Typename.hpp>
#include <tolvane/Verbose.hpp>

#include <cstdio>
#include <utility>

namespace Tolvane {

namespace {

/// Closes a domain also when its purge throws.
memsize_t purgeAndClose(CacheMultiQueue& queues) {
  struct Closing {
    ~Closing() { queues.close(); }
    CacheMultiQueue& queues;
  };
  const Closing closing{queues};
  return queues.purge();
}

} // namespace

struct CacheMap::Domains : detail::TypeMap<CacheMultiQueue> {};

CacheMap::CacheMap() : CacheMap(std::make_shared<detail::CacheTotals>()) {}

CacheMap::CacheMap(std::shared_ptr<detail::CacheTotals> totals)
    : totals_(std::move(totals)), domains_(std::make_unique<Domains>()) {}

CacheMap::~CacheMap() = default;

CacheMultiQueue& CacheMap::obtain(const std::type_info& domainType) {
  CacheMultiQueue& queues =
      domains_->obtain(domainType, [this] { return CacheMultiQueue(totals_); });
  if (closed()) {
    queues.close(); // it came after close()
  }
  return queues;
}

CacheMultiQueue* CacheMap::find(const std::type_info& domainType) const {
  return domains_->find(domainType);
}

bool CacheMap::insert(const WeakPtr<Cacheable>& object, bool asOldest) {
  detail::Held<Creature> creator; // let go of after the object
  const detail::Held<Cacheable> held(object);
  if (!held) {
    return false;
  }
  held->holdCreator(creator);
  return insert(*held, held->DomainType(), asOldest);
}

/// Inserts an object that the caller holds together with its creator.
bool CacheMap::insert(Cacheable& object, const std::type_info& domainType, bool asOldest) {
  for (;;) {
    CacheMultiQueue& queues = obtain(domainType);
    if (queues.insert(object, asOldest)) {
      return true;
    }
    if (!queues.closed() || closed_) {
      return false;
    }
    // The domain was taken out in this moment: the object goes into a new one.
  }
}

void CacheMap::insert_zombie(const WeakPtr<Cacheable>& object) {
  if (const detail::Held<Cacheable> held{object}) {
    obtain(held->DomainType()).insert_zombie(object);
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
  const std::type_info* type = nullptr;
  {
    const detail::Held<Cacheable> held(object);
    if (!held) {
      return false;
    }
    type = &held->DomainType();
  }
  if (const CacheMultiQueue* queues = domains_->find(*type)) {
    return queues->touch(object);
  }
  std::printf("CacheMap::touch(const WeakPtr<Cacheable>&Ca): No Cacheable Domain found! Nothing "
              "touched.\n");
  std::fflush(stdout);
  return false;
}

memsize_t CacheMap::memsize(bool all) const {
  memsize_t sum = 0;
  domains_->each([&](const auto& domain) { sum += domain.value.memsize(all); });
  return sum;
}

std::uint32_t CacheMap::nEntries() const {
  std::uint32_t sum = 0;
  domains_->each([&](const auto& domain) { sum += domain.value.nEntries(); });
  return sum;
}

memsize_t CacheMap::purge() {
  memsize_t freed = 0;
  domains_->each([&](auto& domain) { freed += domain.value.purge(); });
  return freed;
}

void CacheMap::purge_Hades() {
  domains_->each([](auto& domain) { domain.value.purge_Hades(); });
}

bool CacheMap::adjust(const std::type_info& domainType, const CacheBase& cache, memsize_t newCost) {
  return adjust(find(domainType), domainType, cache, newCost);
}

/// The same with the queues of the domain, as far as there are any.
bool CacheMap::adjust(CacheMultiQueue* own, const std::type_info& domainType,
                      const CacheBase& cache, memsize_t newCost) {
  if (Cache::verbosity() >= 11) {
    std::printf("   CacheMap::adjust(%s, Cache, newCost=%luMB) HAVE %luMB of this domain\n",
                Typename(domainType).c_str(), static_cast<unsigned long>(newCost >> 20),
                static_cast<unsigned long>(memsize(true) >> 20));
    std::fflush(stdout);
  }
  if (own != nullptr && own->adjust(cache, newCost)) {
    return true;
  }
  if (domains_->any([&](auto& domain) { return domain.value.adjust(cache, newCost); })) {
    return true;
  }
  TOLVANE_VERBOSE_DOMAIN(5, "Mem") << "CacheMap::adjust(): no data domain can make room for "
                                   << VerboseStream::MemString(static_cast<long long>(newCost));
  return false;
}

void CacheMap::list_info() const {
  domains_->each([this](const auto& domain) { list_info(domain.type.get()); });
}

void CacheMap::list_info(const std::type_info& domainType) const {
  const CacheMultiQueue* queues = domains_->find(domainType);
  if (queues == nullptr) {
    return;
  }
  const CacheDomainStatistics now = queues->statistics(typeid(void), domainType);
  const CacheCounts total = now.total();
  std::printf("  CacheMap for [%s]: %llu entries using %llu bytes, %llu of them kept\n    %s\n",
              Typename(domainType).c_str(), static_cast<unsigned long long>(total.entries),
              total.bytes, now.keepers.bytes, total.str().c_str());
  queues->list_info();
  std::fflush(stdout);
}

std::vector<TypeInfo> CacheMap::domains() const {
  std::vector<TypeInfo> types;
  domains_->each([&](const auto& domain) { types.push_back(domain.type); });
  return types;
}

const CacheMultiQueue* CacheMap::domain(const std::type_info& domainType) const {
  return domains_->find(domainType);
}

void CacheMap::countRefusal(const std::type_info& domainType) noexcept {
  if (CacheMultiQueue* queues = domains_->find(domainType)) {
    queues->countRefusal();
  }
}

memsize_t CacheMap::forget(const std::type_info& domainType) {
  CacheMultiQueue* const queues = domains_->take(domainType);
  return queues != nullptr ? purgeAndClose(*queues) : 0;
}

memsize_t CacheMap::close() {
  domains_->beforeLaterOnes([this] { closed_ = true; });
  /// Closes what is left when a purge throws.
  struct Closing {
    ~Closing() {
      domains.each([this](const auto& domain) {
        if (CacheMultiQueue* queues = domains.take(domain.type.get())) {
          queues->close();
        }
      });
    }
    Domains& domains;
  };
  const Closing closing{*domains_};
  memsize_t freed = 0;
  domains_->each([&](const auto& domain) { freed += forget(domain.type.get()); });
  return freed;
}

} // namespace Tolvane
