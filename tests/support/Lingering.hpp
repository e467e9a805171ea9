#pragma once

/// @file
/// What uses the whole library at any time, also when everything else is at its end: in static and
/// thread-local variables of programs and modules, in threads that the end of the process stops.

#include <tolvane/Cache.hpp>
#include <tolvane/Creature.hpp>
#include <tolvane/Environment.hpp>
#include <tolvane/Irregularity.hpp>
#include <tolvane/Profiler.hpp>
#include <tolvane/Typename.hpp>
#include <tolvane/Verbose.hpp>

#include <cstdio>
#include <functional>

namespace {

using namespace Tolvane;

/// Data of several domains.
template <memsize_t Bytes>
struct Item : Cacheable {
  memsize_t memsize() const override { return Bytes; }
};

struct ItemMaker : Creature {
  using Creature::Creature;
  StrongPtr<Cacheable> getCacheable() const override { return data; }
  int release() override {
    if (onRelease)
      onRelease();
    data = nullptr;
    return 2;
  }
  StrongPtr<Cacheable> data;
  std::function<void()> onRelease;
};

using ItemMakerPtr = StrongPtr<ItemMaker, Creature>;

template <memsize_t Bytes>
ItemMakerPtr makeItem(const WeakPtr<Cache, CacheBase>& cache) {
  ItemMakerPtr maker = new ItemMaker(cache);
  maker->data = new Item<Bytes>;
  maker->data->setCreator(maker);
  maker->enableCaching(false);
  return maker;
}

/// Says @p when in a message, in a report and on standard output.
inline void useAll(const char* when) {
  Profiler::enable();
  const Profiler scope(__FILE__, __LINE__, "useAll", "use", 0);
  TOLVANE_SECTION(0);
  TOLVANE_VERBOSE_DOMAIN(0, when) << when;
  TOLVANE_IRREGULARITY(when);
  WeakPtr<Cacheable> dead;
  {
    const ItemMakerPtr maker = makeItem<1>(Cache::MemCache());
    dead = maker->data;
    Cache::MemCache()->touch(dead);
  }
  try {
    dead->memsize();
  } catch (const NullPtrException& e) {
    std::printf("%s: %s %d %d\n", when, Typename(e.type()).c_str(), dead.strongCount(),
                getEnvInteger("LINGERING", "what lingers", 7));
  }
  std::fflush(stdout);
}

/// Once told to begin, it has data in the default cache and in one of its own; all goes when it
/// does, and its destructor uses the whole library.
class Lingering {
public:
  void begin(const char* name) {
    name_ = name;
    own_ = new Cache(1000, name);
    for (const auto& cache : {Cache::MemCache(), WeakPtr<Cache, CacheBase>(own_)}) {
      const ItemMakerPtr maker = makeItem<0>(cache);
      data_.push_back(maker->data);
      makers_.push_back(maker);
    }
  }
  ~Lingering() {
    if (!name_)
      return;
    useAll(name_);
    makers_.pop_back();
    data_.clear();
  }

private:
  const char* name_ = nullptr;
  StrongPtr<Cache, CacheBase> own_;
  std::vector<StrongPtr<Cacheable>> data_;
  std::vector<ItemMakerPtr> makers_;
};

} // namespace
