// Many threads in one or two caches, meant for the thread sanitizer. TOLVANE_TEST_ROUNDS=N makes
// every run N times as long, TOLVANE_TEST_SEED=N changes what the threads do.

#include "support/CacheFixtures.hpp"

#include <chrono>
#include <random>

using namespace cachetest;

namespace {

using DataPtr = StrongPtr<Cacheable>;

constexpr int threadCount = 4;

int rounds(int usual) {
  return usual * static_cast<int>(numberFrom("TOLVANE_TEST_ROUNDS", 1));
}

// Runs `action(thread, random)` in so many threads that start together.
template <class Action>
void inThreads(int count, const Action& action) {
  std::atomic<int> waiting{count};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < count; ++thread)
    threads.emplace_back([&, thread] {
      std::mt19937 random(static_cast<unsigned>(numberFrom("TOLVANE_TEST_SEED", 1)) * 1000u +
                          static_cast<unsigned>(thread));
      for (--waiting; waiting > 0;)
        std::this_thread::yield();
      action(thread, random);
    });
  for (std::thread& thread : threads)
    thread.join();
}

std::atomic<int> livingBlocks{0};

// Data whose content tells whether they are whole.
template <int Domain>
class Block : public Growing {
public:
  explicit Block(memsize_t bytes) : Growing(bytes) { ++livingBlocks; }
  ~Block() override {
    content_ = 0;
    --livingBlocks;
  }
  bool whole() const { return content_ == 4711; }

private:
  std::atomic<int> content_{4711};
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

  int release() override { return drop() ? 2 : 1; }

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

protected:
  virtual Cacheable* make(memsize_t size) = 0;

private:
  mutable std::mutex mutex_;
  DataPtr data_;
};

template <int Domain, int Creator>
class MakerOfBlocks : public SharedMaker {
  Cacheable* make(memsize_t size) override { return new Block<Domain>(size); }
};

// Works in the domain of the other thread before it lets its data go.
template <int Domain>
class CrossMaker : public SharedMaker {
public:
  explicit CrossMaker(Cache& cache) : cache_(cache), other_(new MakerOfBlocks<1 - Domain, 0>) {
    otherData_ = other_->obtain(cache, 5);
  }
  int release() override {
    cache_.insert(otherData_, true);
    cache_.touch(otherData_);
    cache_.adjust(typeid(CrossMaker<1 - Domain>), typeid(Block<1 - Domain>), 20);
    return SharedMaker::release();
  }

private:
  Cacheable* make(memsize_t size) override { return new Block<Domain>(size); }
  Cache& cache_;
  const StrongPtr<SharedMaker, Creature> other_;
  DataPtr otherData_;
};

bool whole(const Cacheable& data) {
  const auto* first = dynamic_cast<const Block<0>*>(&data);
  const auto* second = dynamic_cast<const Block<1>*>(&data);
  return first ? first->whole() : second && second->whole();
}

using Makers = std::vector<StrongPtr<SharedMaker, Creature>>;

Makers makeMakers() {
  Makers makers;
  for (int i = 0; i < 8; ++i) {
    makers.emplace_back(new MakerOfBlocks<0, 0>);
    makers.emplace_back(new MakerOfBlocks<0, 1>);
    makers.emplace_back(new MakerOfBlocks<1, 0>);
    makers.emplace_back(new MakerOfBlocks<1, 1>);
  }
  return makers;
}

const std::type_info& blockType(int domain) {
  return domain ? typeid(Block<1>) : typeid(Block<0>);
}

struct Look : CacheQueue::Iterator {
  bool visit(Cacheable& entry) override {
    EXPECT_TRUE(whole(entry));
    return true;
  }
};

void look(const Cache& cache) {
  Look visitor;
  const StrongPtr<CacheMap> map = cache.objects().creatorDomain(typeid(MakerOfBlocks<1, 0>));
  const CacheMultiQueue* queues = map ? map->domain(blockType(0)) : nullptr;
  if (const CacheQueue* queue = queues ? queues->primary() : nullptr) {
    queue->iterate(visitor);
    queue->compute_memsize();
  }
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

TEST_F(CacheStress, ThreadsShareObjectsAndDomains) {
  const CachePtr caches[] = {new Cache(2000, "first"), new Cache(500, "second")};
  const Makers makers = makeMakers();
  inThreads(threadCount, [&](int, std::mt19937& random) {
    std::vector<DataPtr> held;
    for (int i = rounds(10000); i > 0; --i) {
      SharedMaker& maker = *makers[random() % makers.size()];
      Cache& cache = *caches[random() % 8 == 0];
      const DataPtr data = maker.obtain(cache, 50 + random() % 100);
      EXPECT_TRUE(whole(*data));
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
          [&] { look(cache); },
          [&] { data->setName("renamed" + std::to_string(data->NumberOfListEntries())); },
          [&] { random() % 64 == 0 ? cache.purge() : 0; }};
      actions[random() % std::size(actions)]();
    }
  });

  // Every object that lives is held by its creator now, or by a list of zombies.
  memsize_t sum = 0;
  std::uint32_t entries = 0;
  for (const CachePtr& cache : caches)
    cache->purge_Hades();
  for (const auto& maker : makers)
    if (const DataPtr data = maker->getCacheable())
      if (data->NumberOfListEntries() > 0) {
        sum += data->memsize();
        ++entries;
      }
  EXPECT_EQ(caches[0]->totalCost(true) + caches[1]->totalCost(true), sum);
  EXPECT_EQ(caches[0]->nEntries() + caches[1]->nEntries(), entries);
  for (const auto& maker : makers)
    maker->drop();
  for (const CachePtr& cache : caches)
    expectEmpty(*cache);
}

// Objects that one thread lets go of while another looks at the oldest entries.
TEST_F(CacheStress, CandidatesDieWhileTheyAreLookedAt) {
  struct NoRoom : CacheBase {
    using CacheBase::CacheBase;
    memsize_t limit() const override { return 0; }
    memsize_t totalCost(bool) const override { return 1; }
  } const noRoom("no room");
  CacheQueue queue, temporaries, keepers;
  std::atomic<bool> done{false};
  const MakerPtr maker = new Maker; // asked in one thread only, and answers 1 for all
  maker->answer = 1;
  std::thread looking([&] {
    Look look;
    while (!done) {
      queue.adjust(noRoom, 0, temporaries, keepers);
      queue.iterate(look);
      queue.oldest();
      temporaries.compute_memsize();
    }
  });
  inThreads(2, [&](int, std::mt19937& random) {
    for (int i = rounds(20000); i > 0; --i) {
      DataPtr data = new Block<0>(random() % 100);
      data->setCreator(maker->self());
      queue.push_front(data);
      const WeakPtr<Cacheable> watched = data;
      if (random() % 2)
        data->markAsUsed();
      data = nullptr;
      watched.lock();
    }
  });
  done = true;
  looking.join();
  for (const CacheQueue* each : {&queue, &temporaries, &keepers}) {
    EXPECT_EQ(each->memsize(), 0u);
    EXPECT_EQ(each->nEntries(), 0u);
  }
}

// One thread marks and moves objects while the caches that they stand in die.
TEST_F(CacheStress, CachesDieWhileTheirObjectsMove) {
  const CachePtr lasting = new Cache(100000, "lasting");
  Population all;
  const std::string names = "abcdefgh";
  for (const char name : names)
    all.add(name, 10, 1);
  std::atomic<bool> done{false};
  std::thread moving([&] {
    while (!done)
      for (const char name : names) {
        all[name]->markAsUsed();
        lasting->insert(all[name], false);
      }
  });
  for (int i = rounds(2000); i > 0; --i) {
    const CachePtr passing = new Cache(100000, "passing");
    for (const char name : names)
      passing->insert(all[name], i % 2);
  }
  done = true;
  moving.join();
  for (const char name : names)
    EXPECT_TRUE(lasting->insert(all[name], false));
  EXPECT_EQ(lasting->totalCost(true), 80u);
  EXPECT_EQ(lasting->nEntries(), 8u);
}

// First insertions of many domains at once, which some forget again. While it is being forgotten, a
// domain may still take in what another thread inserts; it counts until it is gone.
TEST_F(CacheStress, DomainsComeAndGo) {
  for (int i = rounds(300); i > 0; --i) {
    const CachePtr cache = new Cache(1000, "cache");
    std::vector<MakerPtr> makers = {
        made(new MakerOf<0>, new DataOf<0>(10)), made(new MakerOf<0>, new DataOf<1>(10)),
        made(new MakerOf<1>, new DataOf<0>(10)), made(new MakerOf<1>, new DataOf<1>(10))};
    for (const MakerPtr& maker : makers)
      maker->answer = 1;
    inThreads(threadCount, [&](int thread, std::mt19937&) {
      for (int j = 0; j < threadCount; ++j) {
        const MakerPtr& maker = makers[static_cast<std::size_t>((thread + j) % threadCount)];
        EXPECT_TRUE(cache->insert(maker->data, false));
        maker->data->markAsUsed();
        if (thread == 0 && i % 2)
          cache->forget(typeid(DataOf<1>));
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

// Releases that insert into, touch and adjust the domain of the other thread.
TEST_F(CacheStress, ReleasesWorkCrosswise) {
  const CachePtr cache = new Cache(40, "cache");
  inThreads(2, [&](int thread, std::mt19937&) {
    for (int i = rounds(2000); i > 0; --i) {
      StrongPtr<SharedMaker, Creature> maker;
      if (thread)
        maker = StrongPtr<SharedMaker, Creature>(new CrossMaker<1>(*cache));
      else
        maker = StrongPtr<SharedMaker, Creature>(new CrossMaker<0>(*cache));
      maker->obtain(*cache, 20);
      if (i % 3 == 0)
        cache->adjust(typeid(CrossMaker<0>), blockType(thread), 30);
    }
  });
  expectEmpty(*cache);
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
