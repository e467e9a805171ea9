#include "support/CacheFixtures.hpp"

using namespace cachetest;

namespace {

constexpr memsize_t largest = ~memsize_t{0};
using CachePtr = StrongPtr<Cache, CacheBase>;

} // namespace

TEST(Cache, AdmitsOnlyWhatIsHeldAndMade) {
  const CachePtr cache = new Cache(1000, "cache");
  EXPECT_EQ(cache->name(), "cache");
  EXPECT_EQ(cache->limit(), 1000u);
  Population all;
  all.add('a', 10);

  EXPECT_FALSE(cache->insert(nullptr, false));
  Data onTheStack(10);
  onTheStack.setCreator(all.maker('a').self());
  EXPECT_FALSE(cache->insert(&onTheStack, false)) << "nobody holds the object";
  const StrongPtr<Cacheable> orphan = new Data(10);
  EXPECT_FALSE(cache->insert(orphan, false)) << "no creator";
  Maker stackMaker;
  orphan->setCreator(stackMaker.self());
  EXPECT_FALSE(cache->insert(orphan, false)) << "nobody holds the creator";
  {
    const MakerPtr passing = new Maker;
    orphan->setCreator(passing->self());
  }
  EXPECT_FALSE(cache->insert(orphan, false)) << "the creator is dead";
  const WeakPtr<Cacheable> gone = all['a'];
  EXPECT_TRUE(cache->insert(gone, false));
  all.drop('a');
  EXPECT_FALSE(cache->insert(gone, false));
  EXPECT_EQ(cache->nEntries(), 0u);
  EXPECT_EQ(cache->totalCost(true), 0u);
  EXPECT_FALSE(cache->touch(gone));
}

// Objects of one domain are inserted one after another, each as a letter, its creator's answer and
// its size in tens of bytes.
TEST(Cache, Survivors) {
  const struct {
    const char* insertions;
    memsize_t limit;
    const char *refused, *order, *alive, *asked;
  } cases[] = {
      // Strictly below the limit, at it, and one byte above it.
      {"a21b21c21", 31, "", "cba|-|-", "abc", ""},
      {"a21b21c21", 30, "", "cba||", "abc", ""},
      {"a21b21c21", 29, "", "cb||", "bc", "a"},
      {"a21b21c21d21", 30, "", "dcb||", "bcd", "a"},
      {"a21b21c22", 30, "", "cb||", "bc", "a"},
      {"a21b21c23", 30, "", "c||", "c", "ab"},
      // Larger than the limit: a new creator type has no queue that could say yes, and a queue
      // that was drained for it says no; in the walk that follows, the empty queue says yes.
      {"a24", 30, "a", "", "a", ""},
      {"a23", 30, "a", "", "a", ""},
      {"a22", 30, "", "a|-|-", "a", ""},
      {"a21b24", 30, "", "b||", "b", "a"},
      {"a21b24c21", 30, "", "c||", "c", "ab"},
      // Keepers do not count.
      {"a01b01c01d01", 20, "", "dc||ba", "abcd", "ab"},
      {"a01b03", 30, "", "b||a", "ab", "a"},
      {"a01b04", 30, "", "b||a", "ab", "a"},
      // Temporaries count. One comes back, and is asked again, with each of the four visits of a
      // domain: by its data and creator map, each in the domain itself and in the walk.
      {"a11b21c21", 20, "", "c|a|", "ac", "ab"},
      {"a11b11c11", 20, "c", "|ab|", "abc", "aaabb"},
      {"a11b11c11d11", 20, "cd", "|ab|", "abcd", "aaaaabbbb"},
      {"a11b13", 30, "b", "|a|", "ab", "aaaa"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(std::string(test.insertions) + " limit " + std::to_string(test.limit));
    const CachePtr cache = new Cache(test.limit, "cache");
    Population all;
    std::string refused;
    for (const char* at = test.insertions; *at; at += 3) {
      all.add(at[0], static_cast<memsize_t>(at[2] - '0') * 10, at[1] - '0');
      if (!cache->insert(all[at[0]], false))
        refused += at[0];
    }
    EXPECT_EQ(refused, test.refused);
    EXPECT_EQ(order(*cache), test.order);
    EXPECT_EQ(all.alive(), test.alive);
    EXPECT_EQ(all.asked(), test.asked);
  }
}

TEST(Cache, CostsThatDoNotFitSixtyFourBits) {
  const struct {
    memsize_t limit, cost;
    bool inserted;
    const char* alive;
  } cases[] = {
      {100, largest, true, "b"},           // drained, then the empty queue says yes
      {largest, largest - 10, true, "ab"}, // exactly at the limit
      {largest, largest - 9, true, "b"},   // the sum is 2^64
      {largest, largest, true, "b"},       //
      {memsize_t{1} << 63, memsize_t{1} << 63, true, "b"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.cost);
    const CachePtr cache = new Cache(test.limit, "cache");
    Population all;
    ASSERT_TRUE(cache->insert(all.add('a', 10), false));
    all.add('b', test.cost);
    EXPECT_EQ(cache->insert(all['b'], false), test.inserted);
    EXPECT_EQ(all.alive(), test.alive);
  }
  // A new domain has no queue that would say yes.
  const CachePtr cache = new Cache(largest, "cache");
  Population all;
  EXPECT_FALSE(cache->insert(all.add('a', largest), false));
  EXPECT_TRUE(cache->insert(all.add('b', largest - 1), false));
}

TEST(Cache, SizesThatLieKeepTheSumsRight) {
  const CachePtr cache = new Cache(100, "cache");
  Population all;
  EXPECT_TRUE(cache->insert(all.add('a', 0), false));
  EXPECT_TRUE(cache->insert(all.add('b', 10), false));
  all.data('a').size = memsize_t{1} << 63;
  EXPECT_EQ(cache->totalCost(true), 10u);
  EXPECT_FALSE(cache->insert(all['a'], false));
  EXPECT_EQ(all.alive(), "") << "its domain was drained for it, and itself went first";
  EXPECT_EQ(cache->totalCost(true), memsize_t{1} << 63) << "which was never counted";
}

TEST(Cache, FilesAgainWhatStandsThere) {
  const CachePtr cache = new Cache(30, "cache"), other = new Cache(100, "other");
  Population all;
  for (const char name : {'a', 'b'})
    EXPECT_TRUE(cache->insert(all.add(name, 10), false));
  EXPECT_TRUE(cache->insert(all['a'], false));
  EXPECT_EQ(order(*cache), "ab||");
  EXPECT_TRUE(cache->insert(all['a'], true));
  EXPECT_EQ(order(*cache), "ba||");
  EXPECT_EQ(cache->totalCost(false), 20u);
  EXPECT_TRUE(cache->touch(all['a']));
  EXPECT_EQ(order(*cache), "ab||");
  EXPECT_TRUE(other->insert(all['a'], false));
  EXPECT_EQ(order(*cache), "b||");
  EXPECT_EQ(cache->totalCost(true), 10u);
  EXPECT_EQ(other->totalCost(true), 10u);
  EXPECT_EQ(other->nEntries(), 1u);
}

TEST(Cache, ZombiesGoBeforeTheSizeIsTaken) {
  const CachePtr cache = new Cache(30, "cache");
  Population all;
  EXPECT_TRUE(cache->insert(all.add('a', 20), false));
  cache->insert_zombie(all['a']);
  all.drop('a');
  EXPECT_EQ(cache->totalCost(true), 20u);
  all.add('b', 30);
  const WeakPtr<Cacheable> b = all['b'];
  all.add<1>('z', 1);
  all.data('z').onDeath = [&] { all.data('b').size = 25; };
  cache->insert_zombie(all['z']);
  all.drop('z');
  EXPECT_TRUE(cache->insert(b, false)) << "there is room after the zombies went";
  EXPECT_EQ(all.alive(), "b");
  EXPECT_EQ(cache->totalCost(true), 25u);

  const MakerPtr maker = made(new Maker, new Data(1));
  const WeakPtr<Cacheable> last = maker->data;
  cache->insert_zombie(last);
  maker->data = nullptr;
  EXPECT_FALSE(cache->insert(last, false)) << "a zombie of its own that goes first";
  EXPECT_FALSE(last);
  EXPECT_EQ(all.alive(), "b") << "nothing had to make room for it";
}

TEST(Cache, OutOfMemoryTexts) {
  const StrongPtr<Cacheable> object = new DataOf<1>(5);
  const MakerPtr maker = new Maker;
  const CachePtr cache = new Cache(1, "cache");
  const std::string text = "Not enough memory to handle " + Typename(typeid(DataOf<1>));
  try {
    cache->handleOutOfMemory(object, maker->self());
    ADD_FAILURE() << "no exception";
  } catch (const Exception& e) {
    const auto& outOfMemory = dynamic_cast<const Cache::OutOfMemory&>(e);
    EXPECT_EQ(e.what(), text);
    EXPECT_EQ(outOfMemory.object(), object);
    EXPECT_EQ(outOfMemory.creator(), maker->self());
    EXPECT_EQ(outOfMemory.cache(), cache);
    const Cache::OutOfMemory copy(outOfMemory);
    EXPECT_EQ(copy.what(), text);
    EXPECT_EQ(object.strongCount(), 3) << "each exception holds the object";
  }
  EXPECT_EQ(object.strongCount(), 1);
  const Cache::OutOfMemory unknown(nullptr, nullptr, nullptr);
  EXPECT_STREQ(unknown.what(), "Not enough memory to handle Unknown object");
  EXPECT_EQ(unknown.what(), unknown.what()) << "built once";

  struct Base : CacheBase {
    using CacheBase::CacheBase;
    memsize_t limit() const override { return 5; }
  };
  Base base("base");
  EXPECT_EQ(base.totalCost(true), 0u);
  EXPECT_FALSE(base.handleOutOfMemory(object, maker->self()));
}

TEST(Cache, DiesBeforeAndAfterItsObjects) {
  Population all;
  CachePtr cache = new Cache(20, "cache");
  all.add('a', 10, 1);
  all.add('b', 10, 0);
  all.add<1, 1>('c', 10, 2);
  for (const char name : {'a', 'b', 'c'}) {
    all.maker(name).setCacheManager(cache);
    EXPECT_TRUE(cache->insert(all[name], false));
  }
  const StrongPtr<Cacheable> zombie = all['b'].lock();
  cache->insert_zombie(zombie);
  all.asked();
  cache = nullptr;
  EXPECT_EQ(all.asked(), "abc");
  EXPECT_EQ(all.alive(), "ab");
  for (const char name : {'a', 'b'}) {
    EXPECT_EQ(all[name]->NumberOfListEntries(), 0u);
    EXPECT_FALSE(all[name]->markAsUsed());
    EXPECT_FALSE(all[name]->myCache());
  }
  all.drop('a');
  EXPECT_EQ(all.alive(), "b");

  const MakerPtr guardian = new Maker;
  const CachePtr next = new Cache(100, "next");
  EXPECT_TRUE(next->insert(all['b'], false));
  all.drop('b');
  EXPECT_EQ(next->nEntries(), 1u) << "an owner is left";
  zombie->setCreator(guardian->self());
}

TEST(Cache, PurgeReturnsWhatWent) {
  const CachePtr cache = new Cache(100, "cache");
  Population all;
  EXPECT_TRUE(cache->insert(all.add('a', 10), false));
  EXPECT_TRUE(cache->insert(all.add<1, 1>('b', 20, 1), false));
  EXPECT_TRUE(cache->insert(all.add<1, 2>('c', 30), false));
  cache->insert_zombie(all.add<1, 3>('z', 5));
  all.drop('z');
  EXPECT_EQ(cache->purge(), 40u);
  EXPECT_EQ(all.alive(), "b");
  EXPECT_EQ(cache->totalCost(true), 20u);
  EXPECT_EQ(cache->forget(typeid(DataOf<1>)), 0u);
  EXPECT_EQ(cache->nEntries(), 0u);
  EXPECT_EQ(all.alive(), "b");
}

TEST(Cache, ListingsHaveAHeader) {
  const CachePtr cache = new Cache(100, "cache");
  Population all;
  EXPECT_TRUE(cache->insert(all.add<1, 1>('a', 10), false));
  const std::string header = "** Cache<cache> with 1 entries using 10 bytes, 10 of them freeable "
                             "(max allowed 100) **\n CreatorCacheMap for ",
                    creator = Typename(typeid(MakerOf<1>)) + "]";
  EXPECT_EQ(printed([&] { cache->list_info(); }).find(header + "listed Domain [" + creator), 0u);
  EXPECT_EQ(printed([&] {
              cache->list_info(typeid(MakerOf<1>));
            }).find(header + "specific Domain [" + creator),
            0u);
  EXPECT_EQ(printed([&] {
              cache->list_info(typeid(MakerOf<1>), typeid(DataOf<1>));
            }).find(header + "Creator Domain [" + creator + " for Cacheable Domain ["),
            0u);
}

TEST(Cache, ADefaultCacheIsShared) {
  const WeakPtr<Cache, CacheBase> cache = Cache::MemCache();
  EXPECT_EQ(cache->name(), "MemCache Objects");
  EXPECT_EQ(cache, Cache::MemCache());
  const StrongPtr<Cache, CacheBase> held = cache.lock();
  EXPECT_EQ(held.strongCount(), 2) << "the library itself holds it";
}
