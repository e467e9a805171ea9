#include <tolvane/CacheBase.hpp>
#include <tolvane/Cacheable.hpp>
#include <tolvane/Creature.hpp>

#include <utility>

namespace Tolvane {

CacheBase::CacheBase(std::string name) : name_(std::move(name)) {}

CacheBase::~CacheBase() = default;

memsize_t CacheBase::totalCost(bool) const {
  return 0;
}

bool CacheBase::handleOutOfMemory(const StrongPtr<Cacheable>&, const WeakPtr<Creature>&) {
  return false;
}

} // namespace Tolvane
