// Qt's cache, with the mutex that threads need.
#include "CacheBench.hpp"

#include <QCache>
#include <mutex>

namespace {

/// An object whose memory is not the cache's: the others neither make nor destroy one either.
struct Object {
  static void operator delete(void*) {}
};

class Qt {
public:
  Qt(std::uint32_t capacity, std::uint32_t objects)
      : objects_(objects), cache_(static_cast<int>(capacity)) {}
  void insert(std::uint32_t key) {
    const std::lock_guard lock(mutex_);
    cache_.insert(key, &objects_[key]);
  }
  void touch(std::uint32_t key) {
    const std::lock_guard lock(mutex_);
    benchmark::DoNotOptimize(cache_.object(key));
  }
  void erase(std::uint32_t key) {
    const std::lock_guard lock(mutex_);
    cache_.remove(key);
  }

private:
  std::vector<Object> objects_;
  std::mutex mutex_;
  QCache<std::uint32_t, Object> cache_;
};

[[maybe_unused]] const bool added = (bench::addCache<Qt>("QCache with a mutex"), true);

} // namespace
