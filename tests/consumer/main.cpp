#include <tolvane/Tolvane.hpp>

#include <cstdio>
#include <vector>

// Uses the installed library across its boundary: values, an exception of a type that lives in the
// library, the name of a type that the library has never seen, and objects of the host's own types
// in the library's cache.

using namespace Tolvane;

struct Volume : Cacheable {
  memsize_t memsize() const override { return 400; }
};

struct Maker : DataCreature<Volume> {
  using DataCreature::DataCreature;
  Pointer create() override { return new Volume; }
};

static bool exceptionKeepsItsType() {
  try {
    throw Exception("out of bricks", "main.cpp", 7);
  } catch (const std::exception& caught) {
    const auto* const exception = dynamic_cast<const Exception*>(&caught);
    return exception && exception->sourceLine() == 7;
  }
}

static bool cacheKeepsItsBudget() {
  const StrongPtr<Cache, CacheBase> cache = new Cache(1000, "consumer");
  std::vector<StrongPtr<Maker, Creature>> makers;
  for (int i = 0; i < 3; ++i) {
    makers.emplace_back(new Maker(cache));
    makers.back()->data();
  }
  return cache->totalCost(true) == 800 && !makers[0]->hasData() && makers[1]->hasData() &&
         makers[2]->hasData();
}

int main() {
  const std::pair<const char*, bool> checks[] = {
      {"a type of the host has a readable name", Typename(typeid(Volume)) == "Volume"},
      {"a variable is set", setEnv("TOLVANE_CONSUMER", "17", true)},
      {"and read back", getEnvInteger("TOLVANE_CONSUMER", "a variable of the host", 0) == 17},
      {"an exception keeps its type", exceptionKeepsItsType()},
      {"the cache releases the oldest object of the host", cacheKeepsItsBudget()}};
  int failures = 0;
  for (const auto& [what, holds] : checks) {
    std::printf("%s  %s\n", holds ? "ok    " : "FAILED", what);
    failures += !holds;
  }
  return failures == 0 ? 0 : 1;
}
