#include "Probe.hpp"

#include <tolvane/Cache.hpp>
#include <tolvane/Creature.hpp>
#include <tolvane/SystemMemory.hpp>
#include <tolvane/Typename.hpp>

#include <cstdio>
#include <list>
#include <utility>

using namespace Tolvane;

namespace brick {

// Global, so that their names are short.
struct Data : Cacheable {
  Data(memsize_t bytes, const std::string& name) : size(bytes) { setName(name); }
  memsize_t memsize() const override { return size; }
  const memsize_t size;
};

struct Maker : Creature {
  using Creature::Creature;
  StrongPtr<Cacheable> getCacheable() const override { return data; }
  bool isReproducible() const override { return reproducible; }
  std::string hasProducer() const override { return "the mason"; }
  int release() override {
    if (alsoDrops)
      *std::exchange(alsoDrops, nullptr) = nullptr;
    if (answer == 2)
      data = nullptr;
    return answer;
  }
  StrongPtr<Cacheable> data;
  int answer = 2;
  bool reproducible = false;
  StrongPtr<Creature>* alsoDrops = nullptr;
};

} // namespace brick

namespace {

using MakerPtr = StrongPtr<brick::Maker, Creature>;

MakerPtr made(const WeakPtr<Cache, CacheBase>& cache, const std::string& name, memsize_t size,
              int answer) {
  MakerPtr maker = new brick::Maker(cache);
  maker->data = new brick::Data(size, name);
  maker->data->setCreator(maker->self());
  maker->answer = answer;
  return maker;
}

void flush() {
  std::fflush(stdout);
  std::fflush(stderr);
}

} // namespace

// The limit of the default cache, and the available memory before and after it was made.
PROBE_COMMAND(default_cache) {
  const memsize_t before = getAvailableMemory();
  const memsize_t limit = Cache::MemCache()->limit();
  const memsize_t after = getAvailableMemory();
  std::printf("limit %llu, available %llu to %llu\n", limit, before, after);
  return 0;
}

PROBE_COMMAND(cache_verbosity) {
  std::printf("%d %d\n", Cache::verbosity(), Cache::verbosity());
  return 0;
}

// LIMIT, then objects in MiB and the answers of their creators, as in "a1:2", that are inserted one
// after another.
PROBE_COMMAND(insert_bricks) {
  const StrongPtr<Cache, CacheBase> cache = new Cache(std::stoull(arguments.at(0)) << 20, "probe");
  std::list<MakerPtr> makers;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    const std::string& brick = arguments[i];
    makers.push_back(
        made(cache, brick.substr(0, 1), std::stoull(brick.substr(1)) << 20, brick.back() - '0'));
    std::printf("%s\n", cache->insert(makers.back()->data, false) ? "inserted" : "refused");
    flush();
  }
  for (const MakerPtr& maker : makers)
    maker->answer = 2;
  return 0;
}

// What is said when a release takes another object along.
PROBE_COMMAND(release_two) {
  const StrongPtr<Cache, CacheBase> cache = new Cache(30 << 20, "probe");
  const MakerPtr first = made(cache, "a", 10 << 20, 2), third = made(cache, "c", 10 << 20, 2);
  MakerPtr second = made(cache, "b", 10 << 20, 2);
  for (const MakerPtr& maker : {first, second, third})
    cache->insert(maker->data, false);
  StrongPtr<Creature> victim(second);
  second = nullptr;
  first->alsoDrops = &victim;
  cache->adjust(typeid(brick::Maker), typeid(brick::Data), 1);
  return 0;
}

// What is said when an object stays: with one owner, and with two whose creator could make it.
PROBE_COMMAND(keep_two) {
  const StrongPtr<Cache, CacheBase> cache = new Cache(1, "probe");
  CacheQueue queue, temporaries, keepers;
  const MakerPtr first = made(nullptr, "a", 10, 0), second = made(nullptr, "b", 10, 0);
  second->reproducible = true;
  const StrongPtr<Cacheable> owner = second->data;
  for (const MakerPtr& maker : {first, second})
    queue.push_front(maker->data);
  queue.adjust(*cache, 2, temporaries, keepers);
  std::printf("%s %s\n", first->addrstr().c_str(), second->addrstr().c_str());
  for (const MakerPtr& maker : {first, second})
    maker->answer = 2;
  return 0;
}

// The trace of each cost by an empty queue.
PROBE_COMMAND(queue_costs) {
  CacheQueue queue, temporaries, keepers;
  for (const std::string& cost : arguments)
    queue.adjust(*Cache::MemCache(), std::stoull(cost), temporaries, keepers);
  return 0;
}

// EMPTY FULL: so many adjustments of an empty queue, then of one with an entry.
PROBE_COMMAND(queue_adjustments) {
  CacheQueue queue, temporaries, keepers;
  const MakerPtr maker = made(nullptr, "a", 1, 2);
  for (int i = 0; i < std::stoi(arguments.at(0)); ++i)
    queue.adjust(*Cache::MemCache(), 0, temporaries, keepers);
  queue.push_front(maker->data);
  for (int i = 0; i < std::stoi(arguments.at(1)); ++i) {
    std::printf("%d", i + 1);
    flush();
    queue.adjust(*Cache::MemCache(), 0, temporaries, keepers);
  }
  std::printf(" done\n");
  return 0;
}

PROBE_COMMAND(push_brick) {
  CacheQueue queue;
  const MakerPtr maker = made(nullptr, "a", 1, 2);
  queue.push_front(maker->data);
  return 0;
}
