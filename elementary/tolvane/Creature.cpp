#include <tolvane/Cache.hpp>
#include <tolvane/Creature.hpp>
#include <tolvane/HeldInternal.hpp>
#include <tolvane/Verbose.hpp>

#include <cstdio>

namespace Tolvane {

namespace {

[[noreturn]] void throwWithoutHolder() {
  throw "No strong references for Creature!";
}

} // namespace

Creature::Exception::Exception(const Exception& other) = default;

Creature::Exception::~Exception() = default;

const char* Creature::Exception::what() const noexcept {
  return "Unspecified Tolvane::Creature Exception";
}

Creature::Creature(const WeakPtr<Cache, CacheBase>& cache) : cache_(cache) {}

Creature::~Creature() = default;

void Creature::unction() {}

int Creature::release() {
  return 0;
}

bool Creature::isReproducible() const {
  return false;
}

bool Creature::isUnderCreation() const {
  return false;
}

bool Creature::discardCreation() {
  return false;
}

std::string Creature::hasProducer() const {
  return {};
}

bool Creature::hasData() const {
  return static_cast<bool>(getCacheable());
}

WeakPtr<Cache, CacheBase> Creature::cacheManager() const {
  const std::lock_guard lock(mutex_);
  return cache_;
}

void Creature::setCacheManager(const WeakPtr<Cache, CacheBase>& cache) {
  const std::lock_guard lock(mutex_);
  cache_ = cache;
}

void Creature::enableCaching(bool asOldest) const {
  if (self().strongCount() < 1) {
    throwWithoutHolder();
  }
  const StrongPtr<Cacheable> data = getCacheable();
  if (!data) {
    return;
  }
  const detail::Held<Cache, CacheBase> cache(cacheManager());
  if (!cache) {
    std::printf("Creature::enableCaching(): No Cache!\n");
    std::fflush(stdout);
    throw "No Cache!";
  }
  offer(*cache, data, asOldest);
}

bool Creature::handOver(const StrongPtr<Cacheable>& data, bool asOldest) const {
  const detail::Held<Cache, CacheBase> cache(cacheManager());
  if (!cache) {
    return false;
  }
  if (self().strongCount() < 1) {
    throwWithoutHolder();
  }
  return offer(*cache, data, asOldest);
}

bool Creature::offer(Cache& cache, const StrongPtr<Cacheable>& data, bool asOldest) const {
  while (!cache.insert(data, asOldest)) {
    TOLVANE_VERBOSE_DOMAIN(1, "Mem")
        << "Creature::enableCaching(): no room for " << to_address_string(data.get()) << " of type "
        << data->DomainType();
    if (!cache.handleOutOfMemory(data, self())) {
      return false;
    }
  }
  return true;
}

void Creature::list_info() const {
  if (const StrongPtr<Cache, CacheBase> cache = Cache::MemCache().lock()) {
    cache->list_info(typeid(*this));
  }
}

void Creature::list_info(const std::type_info& type) const {
  if (const StrongPtr<Cache, CacheBase> cache = Cache::MemCache().lock()) {
    cache->list_info(typeid(*this), type);
  }
}

std::string Creature::addrstr() const {
  const StrongPtr<Cacheable> data = getCacheable();
  if (data) {
    return to_address_string(data.get());
  }
  if (const void* record = detail::PointerAccess::referer(data)) {
    return "[invalid:" + to_address_string(record) + "]";
  }
  return "[No Data Available]";
}

void Creature::appendProvenance(const StrongPtr<Provenance>& provenance) {
  const std::lock_guard lock(mutex_);
  provenance_.push_back(provenance);
}

void Creature::appendProvenance(const std::string& name) {
  appendProvenance(StrongPtr<Provenance>(new Provenance(name)));
}

void Creature::setProvenance(const std::string& name) {
  const std::lock_guard lock(mutex_);
  if (!provenance_.empty() && provenance_.back()) {
    provenance_.back()->setName(name);
    return;
  }
  const StrongPtr<Provenance> record = new Provenance(name);
  if (provenance_.empty()) {
    provenance_.push_back(record);
  } else {
    provenance_.back() = record;
  }
}

void Creature::setProvenance(const StrongPtr<Provenance>& provenance) {
  // The old records go after the lock: a long chain takes its time.
  std::list<StrongPtr<Provenance>> records{provenance};
  const std::lock_guard lock(mutex_);
  provenance_.swap(records);
}

std::list<StrongPtr<Provenance>> Creature::provenance() const {
  const std::lock_guard lock(mutex_);
  return provenance_;
}

std::string Creature::provenancePath(char separator) const {
  // Under the lock, as the renaming is.
  const std::lock_guard lock(mutex_);
  return provenance_.empty() || !provenance_.back() ? std::string()
                                                    : provenance_.back()->getPath(separator);
}

} // namespace Tolvane
