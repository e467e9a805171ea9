#include <tolvane/MutableCacheable.hpp>

namespace Tolvane {

MutableCacheable::MutableCacheable(const MutableCacheable& other) : Cacheable(other) {}

MutableCacheable& MutableCacheable::operator=(const MutableCacheable&) noexcept {
  return *this;
}

MutableCacheable::~MutableCacheable() = default;

memsize_t MutableCacheable::memsize() const {
  return currentSize_.load(std::memory_order_relaxed);
}

void MutableCacheable::adjustCurrentMemsize() {
  changeSize([this] { return computeMemsize(); },
             [this](memsize_t size) { currentSize_.store(size, std::memory_order_relaxed); });
}

} // namespace Tolvane
