#include <tolvane/Tolvane.hpp>

#include <cstdio>

// Uses the installed library across its boundary: an exception of a type that lives in the library,
// the name of a type that the library has never seen, and objects of the host's own types in the
// library's cache.

using namespace Tolvane;

struct Volume : Cacheable {
  memsize_t memsize() const override { return 400; }
};

struct Maker : DataCreature<Volume> {
  using DataCreature::DataCreature;
  Pointer create() override { return new Volume; }
};

static bool exceptionKeepsItsType() {
  const StrongPtr<Cache, CacheBase> cache = new Cache(100, "too small");
  try {
    cache->handleOutOfMemory(new Volume, nullptr);
  } catch (const std::exception& caught) {
    return dynamic_cast<const Cache::OutOfMemory*>(&caught) != nullptr;
  }
  return false;
}

static bool cacheKeepsItsBudget() {
  const StrongPtr<Cache, CacheBase> cache = new Cache(1000, "consumer");
  StrongPtr<Maker, Creature> makers[3];
  for (auto& maker : makers) {
    maker = new Maker(cache);
    maker->data();
  }
  return cache->totalCost(true) == 800 && !makers[0]->hasData() && makers[2]->hasData();
}

int main() {
  const bool named = Typename(typeid(Volume)) == "Volume", kept = exceptionKeepsItsType(),
             within = cacheKeepsItsBudget();
  std::printf("a type is named: %d, an exception keeps its type: %d, the cache its budget: %d\n",
              named, kept, within);
  return named && kept && within ? 0 : 1;
}
