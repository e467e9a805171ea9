// Many threads in one or two caches, meant for the thread sanitizer. TOLVANE_TEST_SECONDS=N makes
// every run N seconds long, TOLVANE_TEST_SEED=N changes what the threads do.

#include "support/CacheFixtures.hpp"

#include <tolvane/DataCreature.hpp>

#include <chrono>
#include <random>

using namespace cachetest;

namespace {

using DataPtr = StrongPtr<Cacheable>;

std::atomic<int> livingBlocks{0};

// Data whose content tells whether they are whole.
struct AnyBlock : Growing {
  explicit AnyBlock(memsize_t bytes) : Growing(bytes) { ++livingBlocks; }
  ~AnyBlock() override {
    content_ = 0;
    --livingBlocks;
  }
  bool whole() const { return content_ == 4711; }

private:
  std::atomic<int> content_{4711};
};
template <int Domain>
struct Block : AnyBlock {
  using AnyBlock::AnyBlock;
};

// A creator as a host with threads writes it.
class SharedMaker : public Creature {
public:
  SharedMaker() : Creature(nullptr) {}

  DataPtr getCacheable() const override {
    const std::lock_guard lock(mutex_);
    return data_;
  }
  bool isReproducible() const override { return true; }

  int release() override {
    if (onRelease)
      onRelease();
    return drop() ? 2 : 1;
  }
  // The data, made and handed to the cache where there are none.
  DataPtr obtain(Cache& cache, memsize_t size) {
    if (DataPtr data = getCacheable())
      return data;
    DataPtr made = make(size);
    made->setCreator(self());
    {
      const std::lock_guard lock(mutex_);
      if (data_)
        return data_;
      data_ = made;
    }
    cache.insert(made, false);
    return made;
  }

  // Lets the data go when nobody else holds them.
  bool drop() {
    DataPtr data;
    const std::lock_guard lock(mutex_);
    if (data_.strongCount() != 1)
      return false;
    data.swap(data_);
    return true;
  }

  std::function<void()> onRelease;

protected:
  virtual Cacheable* make(memsize_t size) = 0;

private:
  mutable std::mutex mutex_;
  DataPtr data_;
};

using SharedMakerPtr = StrongPtr<SharedMaker, Creature>;

template <int Domain, int Creator>
class MakerOfBlocks : public SharedMaker {
  Cacheable* make(memsize_t size) override { return new Block<Domain>(size); }
};

// The short way to write one.
template <template <class, class> class Hold>
struct BlockCreature : DataCreature<Block<0>, Hold> {
  explicit BlockCreature(const WeakCachePtr& cache) : DataCreature<Block<0>, Hold>(cache) {}
  typename DataCreature<Block<0>, Hold>::Pointer create() override { return new Block<0>(100); }
};
using Strong = BlockCreature<StrongPtr>;
using Weak = BlockCreature<WeakPtr>;

using Makers = std::vector<SharedMakerPtr>;

template <int Domain, int Creator>
void addMakers(Makers& makers) {
  for (int i = 0; i < 8; ++i)
    makers.emplace_back(new MakerOfBlocks<Domain, Creator>);
}

const std::type_info& blockType(int domain) {
  return domain ? typeid(Block<1>) : typeid(Block<0>);
}

// Everything that only looks; what it sees is whole, and never more than there is.
void look(const Cache& cache) {
  struct Look : CacheQueue::Iterator {
    bool visit(Cacheable& entry) override {
      EXPECT_TRUE(dynamic_cast<AnyBlock&>(entry).whole());
      return true;
    }
  } visitor;
  for (const CacheDomainStatistics& domain : cache.statistics().domains)
    if (const auto map = cache.objects().creatorDomain(domain.creator.get()))
      if (const CacheMultiQueue* queues = map->domain(domain.data.get()))
        for (const CacheQueue* queue :
             {queues->primary(), queues->temporaries(), queues->keepers()})
          if (queue) {
            queue->iterate(visitor);
            queue->compute_memsize();
            queue->oldest();
          }
  cache.nEntries();
  cache.totalCost(true);
}

void expectEmpty(const Cache& cache) {
  EXPECT_EQ(cache.totalCost(true), 0u);
  EXPECT_EQ(cache.totalCost(false), 0u);
  EXPECT_EQ(cache.nEntries(), 0u);
}

struct CacheStress : testing::Test {
  ~CacheStress() override { EXPECT_EQ(livingBlocks, 0); }
  const Watchdog watchdog{std::chrono::minutes(9)};
};

} // namespace

// Two threads share their objects and domains, two have one each that the others only evict from,
// and one looks at it all.
TEST_F(CacheStress, ThreadsShareObjectsAndDomains) {
  const CachePtr caches[] = {new Cache(2000, "first"), new Cache(500, "second")};
  Makers makers[3];
  addMakers<0, 0>(makers[0]);
  addMakers<0, 1>(makers[0]);
  addMakers<1, 0>(makers[0]);
  addMakers<1, 1>(makers[0]);
  addMakers<2, 2>(makers[1]);
  addMakers<3, 3>(makers[2]);
  LongRun run(5);
  std::atomic<int> working{4};
  inThreads(5, [&](int thread, std::mt19937& random) {
    std::vector<DataPtr> held;
    for (int i = 0; thread < 4 && run.goesOn(i, 10000); ++i) {
      const Makers& mine = makers[thread < 2 ? 0 : thread - 1];
      SharedMaker& maker = *mine[random() % mine.size()];
      Cache& cache = *caches[random() % 8 == 0];
      const DataPtr data = maker.obtain(cache, 50 + random() % 100);
      EXPECT_TRUE(dynamic_cast<AnyBlock&>(*data).whole());
      const std::function<void()> actions[] = {
          [&] { cache.touch(data); },
          [&] { cache.touch(data); },
          [&] { data->markAsUsed(); },
          [&] { dynamic_cast<Growing&>(*data).resize(random() % 200); },
          [&] { dynamic_cast<Growing&>(*data).resize(random() % 200); },
          [&] { cache.insert(data, random() % 2); },
          [&] { cache.adjust(typeid(MakerOfBlocks<0, 0>), blockType(random() % 2), 200); },
          [&] { maker.drop(); },
          [&] { held.push_back(data); },
          [&] { held.clear(); },
          [&] { cache.insert_zombie(data); },
          [&] { cache.purge_Hades(); },
          [&] { data->leaveQueue(); },
          [&] { data->setName("renamed" + std::to_string(data->NumberOfListEntries())); },
          [&] { maker.setProvenance("step " + std::to_string(i)); },
          [&] { random() % 64 == 0 ? cache.purge() : 0; }};
      actions[random() % std::size(actions)]();
    }
    working -= thread < 4;
    for (int i = 0; thread == 4 && working > 0; ++i) {
      const SharedMaker& maker = *makers[0][random() % makers[0].size()];
      EXPECT_TRUE(maker.hasProducer().empty() && !maker.addrstr().empty());
      for (const auto& record : maker.provenance())
        EXPECT_TRUE(record->getPath('/').starts_with("step ") &&
                    maker.provenancePath().starts_with("step "));
      look(*caches[i % 2]);
      if (i % 256 == 0)
        printed([&] { caches[0]->list_info(); });
    }
  });

  // Every object that lives is held by its creator now, or by a list of zombies.
  memsize_t sum = 0;
  std::uint32_t entries = 0;
  int alive = 0;
  for (const CachePtr& cache : caches)
    cache->purge_Hades();
  for (const Makers& group : makers)
    for (const auto& maker : group)
      if (const DataPtr data = maker->getCacheable()) {
        ++alive;
        sum += data->NumberOfListEntries() > 0 ? data->memsize() : 0;
        entries += data->NumberOfListEntries() > 0;
      }
  EXPECT_EQ(livingBlocks, alive);
  EXPECT_EQ(caches[0]->totalCost(true) + caches[1]->totalCost(true), sum);
  EXPECT_EQ(caches[0]->nEntries() + caches[1]->nEntries(), entries);
  for (const Makers& group : makers)
    for (const auto& maker : group)
      maker->drop();
  for (const CachePtr& cache : caches)
    expectEmpty(*cache);
}

// Objects that one thread lets go of while another looks at the oldest entries.
TEST_F(CacheStress, CandidatesDieWhileTheyAreLookedAt) {
  const Cache noRoom(0, "no room");
  CacheQueue queue, temporaries, keepers;
  std::atomic<int> working{2};
  const MakerPtr maker = new Maker; // asked in one thread only, and answers 1 for all
  maker->answer = 1;
  LongRun run(3);
  inThreads(3, [&](int thread, std::mt19937& random) {
    while (thread == 2 && working > 0) {
      queue.adjust(noRoom, 1, temporaries, keepers);
      queue.oldest();
      temporaries.compute_memsize();
    }
    for (int i = 0; thread < 2 && run.goesOn(i, 20000); ++i) {
      DataPtr data = new Block<0>(random() % 100);
      data->setCreator(maker->self());
      queue.push_front(data);
      const WeakPtr<Cacheable> watched = data;
      if (random() % 2)
        data->markAsUsed();
      data = nullptr;
      watched.lock();
    }
    working -= thread < 2;
  });
  for (const CacheQueue* each : {&queue, &temporaries, &keepers}) {
    EXPECT_EQ(each->memsize(), 0u);
    EXPECT_EQ(each->nEntries(), 0u);
  }
}

// One thread marks and moves objects while the caches that they stand in die; into those it moves
// them with a hold of its own.
TEST_F(CacheStress, CachesDieWhileTheirObjectsMove) {
  const CachePtr lasting = new Cache(100000, "lasting");
  Population all;
  const std::string names = "abcdefgh";
  for (const char name : names)
    all.add(name, 10, 1);
  std::mutex mutex;
  WeakCachePtr passing;
  std::atomic<bool> done{false};
  LongRun run(2);
  inThreads(2, [&](int thread, std::mt19937&) {
    while (thread == 0 && !done)
      for (const char name : names) {
        std::unique_lock lock(mutex);
        const CachePtr held = passing.lock();
        lock.unlock();
        all[name]->markAsUsed();
        (held ? held : lasting)->insert(all[name], false);
        if (held)
          held->touch(all[name]);
      }
    for (int i = 0; thread == 1 && run.goesOn(i, 2000); ++i) {
      const CachePtr next = new Cache(100000, "passing");
      for (const char name : names)
        next->insert(all[name], i % 2);
      const std::lock_guard lock(mutex);
      passing = next;
    }
    done = true;
  });
  for (const char name : names)
    EXPECT_TRUE(lasting->insert(all[name], false));
  EXPECT_EQ(lasting->totalCost(true), 80u);
  EXPECT_EQ(lasting->nEntries(), 8u);
}

// First insertions of many domains at once, which some forget again and some list. While it is
// being forgotten, a domain may still take in what another thread inserts; it counts until it is
// gone.
TEST_F(CacheStress, DomainsComeAndGo) {
  LongRun run(4);
  for (int i = 0; run.goesOn(i, 300); ++i) {
    const CachePtr cache = new Cache(1000, "cache");
    std::vector<MakerPtr> makers = {
        made(new MakerOf<0>, new DataOf<0>(10)), made(new MakerOf<0>, new DataOf<1>(10)),
        made(new MakerOf<1>, new DataOf<0>(10)), made(new MakerOf<1>, new DataOf<1>(10))};
    for (const MakerPtr& maker : makers)
      maker->answer = 1;
    inThreads(4, [&](int thread, std::mt19937&) {
      for (int j = 0; j < 4; ++j) {
        const MakerPtr& maker = makers[static_cast<std::size_t>((thread + j) % 4)];
        EXPECT_TRUE(cache->insert(maker->data, false));
        maker->data->markAsUsed();
        if (thread == 0 && i % 2)
          cache->forget(j % 2 ? typeid(DataOf<1>) : typeid(MakerOf<1>));
        if (thread == 1)
          printed([&] { cache->list_info(); });
        cache->statistics();
      }
    });
    // Every object that stands in a queue counts once, and in no more than one.
    std::uint32_t standing = 0;
    for (const MakerPtr& maker : makers)
      standing += maker->data->NumberOfListEntries() > 0;
    EXPECT_TRUE(i % 2 || standing == 4);
    EXPECT_EQ(cache->totalCost(true), 10u * standing);
    EXPECT_EQ(cache->nEntries(), standing);
    makers.clear();
    expectEmpty(*cache);
  }
}

// Releases that insert into, touch and adjust the domains of the other thread.
TEST_F(CacheStress, ReleasesWorkCrosswise) {
  const CachePtr cache = new Cache(40, "cache");
  LongRun run(2);
  inThreads(2, [&](int thread, std::mt19937&) {
    for (int i = 0; run.goesOn(i, 2000); ++i) {
      SharedMakerPtr maker = new MakerOfBlocks<0, 1>, other = new MakerOfBlocks<1, 0>;
      if (thread) {
        maker = new MakerOfBlocks<1, 1>;
        other = new MakerOfBlocks<0, 0>;
      }
      maker->onRelease = [&cache, thread, other] {
        const DataPtr data = other->obtain(*cache, 5);
        cache->insert(data, true);
        cache->touch(data);
        cache->adjust(thread ? typeid(MakerOfBlocks<0, 1>) : typeid(MakerOfBlocks<1, 1>),
                      blockType(1 - thread), 20);
      };
      maker->obtain(*cache, 20);
      if (i % 3 == 0)
        cache->adjust(typeid(MakerOfBlocks<0, 1>), blockType(thread), 30);
    }
  });
  expectEmpty(*cache);
}

// Uses, evicts and remakes the data of shared creatures from all sides, some of which die while
// their data are used, inserted, or come back from the temporaries.
TEST_F(CacheStress, CreaturesShareAndDieWhileTheirDataAreUsed) {
  constexpr std::size_t count = 6;
  const CachePtr cache = new Cache(700, "shared");
  std::mutex mutex; // guards the pointers, not what they refer to
  StrongPtr<Strong, Creature> strong[count];
  StrongPtr<Weak, Creature> weak[count];
  for (std::size_t i = 0; i < count; ++i) {
    strong[i] = new Strong(cache);
    weak[i] = new Weak(cache);
  }
  std::atomic<int> refused{0};
  LongRun run(4);
  inThreads(4, [&](int, std::mt19937& random) {
    std::vector<StrongPtr<Block<0>, Cacheable>> kept(2); // outlive their makers now and then
    const auto work = [&](auto& slot) {
      std::unique_lock lock(mutex);
      auto maker = slot;
      if (random() % 16 == 0)
        slot = new std::remove_reference_t<decltype(*slot)>(cache);
      lock.unlock();
      auto block = maker->data();
      EXPECT_TRUE(block->whole() && block->creator() == maker);
      auto& other = kept[random() % kept.size()];
      if (other && other->creator()) // who may be gone at once
        random() % 2 ? cache->touch(other) : cache->insert(other, random() % 2);
      other = random() % 2 ? block : nullptr;
      if (random() % 2)
        maker = nullptr; // perhaps the last, and another thread is at its data
      block->markAsUsed();
    };
    for (int i = 0; run.goesOn(i, 3000); ++i)
      try {
        const std::size_t at = random() % count;
        random() % 2 ? work(strong[at]) : work(weak[at]);
        if (i % 100 == 0)
          cache->purge();
        if (i % 4 == 0)
          cache->adjust(typeid(Strong), typeid(Block<0>), random() % 400);
      } catch (const Cache::OutOfMemory&) {
        ++refused; // What others use at this moment cannot go.
        kept.assign(2, nullptr);
      }
  });
  memsize_t there = 0;
  for (std::size_t i = 0; i < count; ++i) {
    there += strong[i]->hasData() ? 100u : 0u;
    EXPECT_FALSE(weak[i]->hasData());
    weak[i] = nullptr;
  }
  EXPECT_EQ(cache->totalCost(true), there) << "each live block is counted once";
  for (auto& maker : strong)
    maker = nullptr;
  expectEmpty(*cache);
}

TEST_F(CacheStress, ManyWantMissingDataAndOneMakesIt) {
  const CachePtr cache = new Cache(100'000, "one");
  LongRun run(4);
  for (int round = 0; run.goesOn(round, 300); ++round) {
    const StrongPtr<Strong, Creature> maker = new Strong(cache);
    std::atomic<const Cacheable*> seen{nullptr};
    inThreads(4, [&](int, std::mt19937&) {
      const auto block = maker->data();
      const Cacheable* other = nullptr;
      EXPECT_TRUE(seen.compare_exchange_strong(other, block.get()) || other == block.get());
    });
    EXPECT_EQ(maker->timesMade(), 1U);
  }
}

TEST_F(CacheStress, AWeakPointerMaySaveDataThatIsBeingReleased) {
  const CachePtr cache = new Cache(100'000, "saved");
  const StrongPtr<Strong, Creature> maker = new Strong(cache);
  std::atomic<bool> done{false};
  LongRun run(2);
  inThreads(2, [&](int thread, std::mt19937&) {
    for (int round = 0; thread == 0 && run.goesOn(round, 5000); ++round) {
      const WeakPtr<Block<0>, Cacheable> watched = maker->data();
      EXPECT_TRUE(maker->release() != 2 || !watched);
    }
    while (thread == 1 && !done) {
      const DataPtr data = maker->getCacheable();
      const WeakPtr<Cacheable> watched = data;
      EXPECT_EQ(static_cast<bool>(watched.lock()), static_cast<bool>(data));
    }
    done = true;
  });
  EXPECT_EQ(livingBlocks, maker->hasData() ? 1 : 0);
}

// A release that waits for a thread that needs its queue: that thread says so, after ten seconds,
// and goes on as soon as it can.
TEST_F(CacheStress, WaitingForAQueueIsReported) {
  const Reports reports;
  const CachePtr cache = new Cache(10, "cache");
  Population all;
  EXPECT_TRUE(cache->insert(all.add('a', 9), false));
  EXPECT_TRUE(cache->insert(all.add('b', 0), false));
  std::atomic<bool> asked{false};
  all.maker('a').onRelease = [&] {
    asked = true;
    while (reports.count() == 0)
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    all.maker('a').data = nullptr;
    return 2;
  };
  std::thread needing([&] {
    while (!asked)
      std::this_thread::yield();
    EXPECT_TRUE(cache->touch(all['b']));
  });
  EXPECT_TRUE(cache->adjust(typeid(MakerOf<0>), typeid(DataOf<0>), 10));
  needing.join();
  EXPECT_EQ(reports.count(), 1);
  EXPECT_NE(reports.text().find("a queue of the cache has been held for ten seconds"),
            std::string::npos);
  EXPECT_EQ(order(*cache), "b||");
}
