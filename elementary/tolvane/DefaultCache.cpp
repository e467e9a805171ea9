// The default cache of the process: its size, its making, and what messages ask of it.

#include <tolvane/Cache.hpp>
#include <tolvane/CacheFiguresInternal.hpp>
#include <tolvane/Environment.hpp>
#include <tolvane/HeldInternal.hpp>
#include <tolvane/SystemMemory.hpp>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <optional>

namespace Tolvane {

namespace {

/// Set once the default cache was made; a message that asks for its figures does not make it.
std::atomic<Cache*> existingDefaultCache{nullptr};

/// The size that a user asked for: a number of bytes, of K, M or G with an optional B, or a
/// percentage of the available memory. Numbers beyond 32 bits stand for the largest; a negative one
/// makes a cache that never evicts.
memsize_t requestedSize(const std::string& value) {
  const long parsed = std::strtol(value.c_str(), nullptr, 10);
  const auto number = static_cast<memsize_t>(static_cast<long long>(std::clamp<long>(
      parsed, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max())));
  std::size_t last = value.size() - 1;
  if (value[last] == 'B' && last > 0) {
    --last;
  }
  switch (value[last]) {
  case '%':
    return getAvailableMemory() * number / 100;
  case 'K':
  case 'k':
    return number << 10;
  case 'M':
  case 'm':
    return number << 20;
  case 'G':
  case 'g':
    return number << 30;
  default:
    return number;
  }
}

/// A third of the memory that the system says it has; nothing when it does not say.
std::optional<memsize_t> thirdOfMemory() {
  std::FILE* file = std::fopen("/proc/meminfo", "r");
  if (file == nullptr) {
    return std::nullopt;
  }
  long kilobytes = 1048576;
  const int fields = std::fscanf(file, "MemTotal:\t %ld kB", &kilobytes);
  std::optional<memsize_t> limit;
  if (fields == 1) {
    // In signed 32 bits on purpose: on machines with 2 GiB and more the figure wraps.
    const auto low = static_cast<std::int32_t>(static_cast<std::uint32_t>(kilobytes) << 10);
    limit = static_cast<memsize_t>(static_cast<long long>(low / 3));
    std::printf("MemCache: Using %lfGB RAM per default, set the environment variable "
                "TOLVANE_CACHESIZE=30GB to use 30GB of memory instead (for instance, if you have "
                "that many).\n",
                static_cast<double>(*limit) / (1024.0 * 1024.0 * 1024.0));
    std::fflush(stdout);
  }
  std::fclose(file);
  return limit;
}

memsize_t defaultSize() {
  const std::string value =
      getEnvString("TOLVANE_CACHESIZE", "Default CacheSize used for storing objects");
  if (!value.empty()) {
    return requestedSize(value);
  }
  const std::optional<memsize_t> third = thirdOfMemory();
  return third ? *third : getAvailableMemory();
}

} // namespace

WeakPtr<Cache, CacheBase> Cache::MemCache() {
  // Never destroyed: objects in static variables of the host may still stand in it while the
  // process ends.
  static const StrongPtr<Cache, CacheBase>& cache = *[] {
    auto* made = new StrongPtr<Cache, CacheBase>(new Cache(defaultSize(), "MemCache Objects"));
    existingDefaultCache.store(made->get());
    return made;
  }();
  return cache;
}

namespace detail {

CacheFigures cacheFigures(const Cache& cache) {
  return {true, cache.totalCost(true), cache.totalCost(false)};
}

CacheFigures cacheFigures(const WeakPtr<Cache, CacheBase>& cache) {
  const Held<Cache, CacheBase> live(cache);
  return live ? cacheFigures(*live) : CacheFigures{false, 0, 0};
}

CacheFigures defaultCacheFigures() noexcept {
  const Cache* cache = existingDefaultCache.load();
  return cache != nullptr ? CacheFigures{true, cache->totalCost(true), cache->totalCost(false)}
                          : CacheFigures{false, 0, 0};
}

} // namespace detail

} // namespace Tolvane
