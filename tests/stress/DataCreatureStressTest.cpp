#include <tolvane/Cache.hpp>
#include <tolvane/DataCreature.hpp>

#include <atomic>
#include <gtest/gtest.h>
#include <random>
#include <thread>
#include <vector>

using namespace Tolvane;

namespace {

using CachePtr = StrongPtr<Cache, CacheBase>;

std::atomic<int> blocksAlive{0};

class Block : public Cacheable {
public:
  explicit Block(int content) : value(content) { ++blocksAlive; }
  ~Block() override { --blocksAlive; }
  memsize_t memsize() const override { return 100; }
  const int value;
};

template <template <class, class> class Hold>
class BlockMaker : public DataCreature<Block, Hold> {
public:
  BlockMaker(const WeakPtr<Cache, CacheBase>& cache, int value)
      : DataCreature<Block, Hold>(cache), value_(value) {}

private:
  typename DataCreature<Block, Hold>::Pointer create() override { return new Block(value_); }
  const int value_;
};

template <class Work>
void inThreads(unsigned count, Work work) {
  std::vector<std::thread> threads;
  for (unsigned t = 0; t < count; ++t)
    threads.emplace_back([&work, t] { work(t); });
  for (std::thread& thread : threads)
    thread.join();
}

/// Uses, evicts and remakes the data of shared creatures from all sides.
template <template <class, class> class Hold>
void walkShared() {
  constexpr int creatures = 12;
  constexpr unsigned threadCount = 4;
  constexpr int rounds = 1500;
  const CachePtr cache = new Cache(700, "shared");
  std::vector<StrongPtr<BlockMaker<Hold>, Creature>> makers;
  for (int i = 0; i < creatures; ++i)
    makers.emplace_back(new BlockMaker<Hold>(cache, i));
  std::atomic<int> refused{0};
  inThreads(threadCount, [&](unsigned t) {
    std::mt19937 random(t);
    for (int round = 0; round < rounds; ++round) {
      const auto i = random() % creatures;
      try {
        const auto block = makers[i]->data();
        ASSERT_TRUE(block);
        EXPECT_EQ(block->value, static_cast<int>(i));
        EXPECT_TRUE(block->creator() == makers[i]);
      } catch (const Cache::OutOfMemory&) {
        ++refused; // What others use at this moment cannot go.
      }
      if (round % 100 == 0)
        cache->purge();
    }
  });
  EXPECT_LT(refused, static_cast<int>(threadCount) * rounds);
  memsize_t there = 0;
  for (const auto& maker : makers)
    there += maker->hasData() ? 100U : 0U;
  EXPECT_EQ(cache->totalCost(true), there) << "each live block is counted once";
  EXPECT_LE(cache->totalCost(true), 700U);
  makers.clear();
  EXPECT_EQ(cache->totalCost(true), 0U);
  EXPECT_EQ(blocksAlive, 0);
}

} // namespace

TEST(DataCreatureStress, ThreadsShareCreaturesThatEvictEachOther) {
  walkShared<StrongPtr>();
  walkShared<WeakPtr>();
}

TEST(DataCreatureStress, ManyWantMissingDataAndOneMakesIt) {
  const CachePtr cache = new Cache(100'000, "one");
  constexpr unsigned threadCount = 4;
  for (int round = 0; round < 300; ++round) {
    const StrongPtr<BlockMaker<StrongPtr>, Creature> maker =
        new BlockMaker<StrongPtr>(cache, round);
    std::atomic<unsigned> ready{0};
    std::atomic<const Block*> seen{nullptr};
    inThreads(threadCount, [&](unsigned) {
      ++ready;
      while (ready < threadCount)
        std::this_thread::yield();
      const auto block = maker->data();
      const Block* other = nullptr;
      EXPECT_TRUE(seen.compare_exchange_strong(other, block.get()) || other == block.get());
    });
    EXPECT_EQ(maker->timesMade(), 1U);
  }
  EXPECT_EQ(blocksAlive, 0);
}

TEST(DataCreatureStress, CreaturesDieWhileOthersEvictAndUseTheirData) {
  const CachePtr cache = new Cache(600, "mortal");
  inThreads(4, [&](unsigned t) {
    StrongPtr<Block, Cacheable> survivor;
    for (int round = 0; round < 3000; ++round) {
      StrongPtr<BlockMaker<StrongPtr>, Creature> maker = new BlockMaker<StrongPtr>(cache, round);
      try {
        StrongPtr<Block, Cacheable> block = maker->data();
        if (t % 2 == 0) {
          survivor = block; // outlives its maker
        }
      } catch (const Cache::OutOfMemory&) {
      }
      maker = nullptr;
      if (survivor)
        survivor->markAsUsed();
    }
  });
  EXPECT_EQ(cache->totalCost(true), 0U);
  EXPECT_EQ(cache->nEntries(), 0U);
  EXPECT_EQ(blocksAlive, 0);
}

TEST(DataCreatureStress, AWeakPointerMaySaveDataThatIsBeingReleased) {
  const CachePtr cache = new Cache(100'000, "saved");
  const StrongPtr<BlockMaker<StrongPtr>, Creature> maker = new BlockMaker<StrongPtr>(cache, 7);
  std::atomic<bool> done{false};
  inThreads(2, [&](unsigned t) {
    if (t == 0) {
      for (int round = 0; round < 5000; ++round) {
        const WeakPtr<Block, Cacheable> watched = maker->data();
        EXPECT_TRUE(maker->release() != 2 || !watched);
      }
      done = true;
      return;
    }
    while (!done) {
      const StrongPtr<Cacheable> data = maker->getCacheable();
      const WeakPtr<Cacheable> watched = data;
      StrongPtr<Cacheable> again = watched.lock();
      EXPECT_EQ(static_cast<bool>(again), static_cast<bool>(data));
    }
  });
  EXPECT_EQ(blocksAlive, maker->hasData() ? 1 : 0);
}
