// Uses the library for a host that does not link it: a message, a report, pointers, a cache.

#include <tolvane/Cache.hpp>
#include <tolvane/Creature.hpp>
#include <tolvane/Irregularity.hpp>
#include <tolvane/Profiler.hpp>
#include <tolvane/Typename.hpp>
#include <tolvane/Verbose.hpp>

#include <cstdio>

using namespace Tolvane;

namespace {

struct Item : Cacheable {
  memsize_t memsize() const override { return 42; }
};

struct Maker : Creature {
  using Creature::Creature;
  StrongPtr<Cacheable> getCacheable() const override { return data; }
  int release() override {
    data.reset();
    return 2;
  }
  StrongPtr<Cacheable> data;
};

} // namespace

#ifdef _WIN32
#define USE_EXPORT extern "C" __declspec(dllexport)
#else
#define USE_EXPORT extern "C" __attribute__((visibility("default")))
#endif

USE_EXPORT int useLibrary();
USE_EXPORT int useLibrary() {
  TOLVANE_VERBOSE(3) << "not shown";
  TOLVANE_IRREGULARITY("used late");
  Profiler::enable();
  const Profiler scope(__FILE__, __LINE__, "useLibrary", "use", 0);
  const WeakPtr<Cache, CacheBase> cache = Cache::MemCache();
  const StrongPtr<Maker, Creature> maker = new Maker(cache);
  maker->data = new Item;
  maker->data->setCreator(maker);
  maker->enableCaching(false);
  const std::string name = Typename(typeid(*maker->data));
  const int id = static_cast<int>(getTypeID(typeid(Item)));
  std::printf("used: %d %s %d\n", id, name.c_str(), static_cast<int>(cache->totalCost(true)));
  std::fflush(stdout);
  return cache->forget(typeid(Item)) == 42 ? 0 : 1;
}
