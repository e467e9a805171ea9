// Qt's cache, with the mutex that threads need.
#include "CacheBench.hpp"

#include <QCache>
#include <mutex>

namespace {

/// An object whose memory is not the cache's: the others neither make nor destroy one either.
struct Object {
  static void operator delete(void*) {}
};

/// A number for each number, each once, in no order. The hash of a number is itself here, so that
/// keys in order, as only a benchmark has them, would find all they need side by side; the other
/// caches scatter them by their hashes.
constexpr std::uint32_t scattered(std::uint32_t number) {
  number ^= number >> 16;
  number *= 0x85ebca6bU;
  number ^= number >> 13;
  number *= 0xc2b2ae35U;
  return number ^ number >> 16;
}

class Qt {
public:
  Qt(std::uint32_t capacity, std::uint32_t objects)
      : objects_(objects), cache_(static_cast<int>(capacity)) {}
  void insert(std::uint32_t key) {
    const std::lock_guard lock(mutex_);
    cache_.insert(scattered(key), &objects_[key]);
  }
  void touch(std::uint32_t key) {
    const std::lock_guard lock(mutex_);
    benchmark::DoNotOptimize(cache_.object(scattered(key)));
  }
  void erase(std::uint32_t key) {
    const std::lock_guard lock(mutex_);
    cache_.remove(scattered(key));
  }

private:
  std::vector<Object> objects_;
  std::mutex mutex_;
  QCache<std::uint32_t, Object> cache_;
};

[[maybe_unused]] const bool added = (bench::addCache<Qt>("QCache with a mutex"), true);

} // namespace
