#include "support/CacheFixtures.hpp"

using namespace cachetest;

TEST(Cache, AdmitsOnlyWhatIsHeldAndMade) {
  const CachePtr cache = new Cache(1000, "cache");
  const auto refused = [&](const WeakPtr<Cacheable>& object) {
    return !cache->insert(object, false) && cache->nEntries() == 0;
  };
  const MakerPtr maker = new Maker;
  Data onTheStack(10);
  onTheStack.setCreator(maker->self());
  Maker stackMaker;
  StrongPtr<Cacheable> orphan = new Data(10);
  EXPECT_TRUE(refused(nullptr));
  EXPECT_TRUE(refused(&onTheStack)) << "nobody holds the object";
  EXPECT_TRUE(refused(orphan)) << "no creator";
  orphan->setCreator(stackMaker.self());
  EXPECT_TRUE(refused(orphan)) << "nobody holds the creator";
  orphan->setCreator(MakerPtr(new Maker)->self());
  EXPECT_TRUE(refused(orphan)) << "the creator is dead";
  orphan->setCreator(maker->self());
  const WeakPtr<Cacheable> gone = orphan;
  EXPECT_FALSE(refused(gone));
  orphan = nullptr;
  EXPECT_TRUE(refused(gone));
  EXPECT_FALSE(cache->touch(gone));
}

// Objects of one domain are inserted one after another, each as a letter, its creator's answer and
// its size in tens of bytes.
TEST(Cache, Survivors) {
  const struct {
    const char* insertions;
    memsize_t limit;
    const char *refused, *order, *asked;
  } cases[] = {
      // Strictly below the limit, at it, and one byte above it.
      {"a21b21c21", 31, "", "cba|-|-", ""},
      {"a21b21c21", 30, "", "cba||", ""},
      {"a21b21c21", 29, "", "cb||", "a"},
      {"a21b21c22", 30, "", "cb||", "a"},
      {"a21b21c23", 30, "", "c||", "ab"},
      // Larger than the limit: a new creator type has no queue that could say yes, and a queue
      // that was drained for it says no; in the walk that follows, the empty queue says yes.
      {"a24", 30, "a", "", ""},
      {"a22", 30, "", "a|-|-", ""},
      {"a21b24", 30, "", "b||", "a"},
      {"a21b24c21", 30, "", "c||", "ab"},
      // Keepers do not count.
      {"a01b01c01d01", 20, "", "dc||ba", "ab"},
      {"a01b04", 30, "", "b||a", "a"},
      // Temporaries count. One comes back, and is asked again, with each of the four visits of a
      // domain: by its data and creator map, each in the domain itself and in the walk.
      {"a11b21c21", 20, "", "c|a|", "ab"},
      {"a11b11c11", 20, "c", "|ab|", "aaabb"},
      {"a11b11c11d11", 20, "cd", "|ab|", "aaaaabbbb"},
      {"a11b13", 30, "b", "|a|", "aaaa"},
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
    EXPECT_EQ(all.asked(), test.asked);
    const CacheStatistics now = cache->statistics();
    EXPECT_EQ(now.total.asked, std::string(test.asked).size());
    EXPECT_EQ(now.total.released + now.total.temporary + now.total.kept, now.total.asked);
    EXPECT_EQ(now.total.refused, refused.size());
    EXPECT_EQ(now.total.inserted, std::string(test.insertions).size() / 3 - refused.size());
    EXPECT_EQ(now.total.evicted, now.total.released);
    EXPECT_EQ(now.total.entries, now.total.inserted - now.total.evicted);
    EXPECT_EQ(now.total.bytes, cache->totalCost(true));
    EXPECT_GE(now.peak, now.freeable);
  }
  // Costs that do not fit 64 bits beside an object of 10 bytes, which goes or stays.
  const struct {
    memsize_t limit, cost;
    const char* order;
  } wraps[] = {
      {100, largest, "b||"},           // drained, then the empty queue says yes
      {largest, largest - 10, "ba||"}, // exactly at the limit
      {largest, largest - 9, "b||"},   // the sum is 2^64
      {largest, largest, "b||"},       {memsize_t{1} << 63, memsize_t{1} << 63, "b||"},
  };
  for (const auto& test : wraps) {
    SCOPED_TRACE(test.cost);
    const CachePtr cache = new Cache(test.limit, "cache");
    Population all;
    EXPECT_TRUE(cache->insert(all.add('a', 10), false));
    EXPECT_TRUE(cache->insert(WeakPtr<Cacheable>(all.add('b', test.cost)), false));
    EXPECT_EQ(order(*cache), test.order);
  }
}

// The own domain is asked first: one that is full of what nobody uses leaves the other, which
// cycles three objects through a single place, no hit at all. The figures say so.
TEST(Cache, StatisticsShowADomainThatStarves) {
  const CachePtr cache = new Cache(100, "cache");
  Population all;
  for (const char name : std::string("abcdefghi"))
    EXPECT_TRUE(cache->insert(all.add<0>(name, 10), false));
  for (int round = 0; round < 12; ++round) {
    const char name = "xyz"[round % 3];
    EXPECT_TRUE((round >= 3 && cache->touch(all[name])) ||
                cache->insert(all.add<1>(name, 10), false));
  }
  const CacheStatistics now = cache->statistics();
  ASSERT_EQ(now.domains.size(), 2u);
  const CacheCounts unused = now.domains[0].total(), starved = now.domains[1].total();
  EXPECT_TRUE(now.domains[0].data == TypeInfo(typeid(DataOf<0>)) &&
              now.domains[1].creator == TypeInfo(typeid(MakerOf<0>)));
  EXPECT_EQ(unused.str(), "9 inserted, 0 touched, 0 asked (0 released, 0 temporary, 0 kept, 0 "
                          "unusual), 0 evicted with 0 bytes, 0 refused");
  EXPECT_EQ(starved.str(), "12 inserted, 0 touched, 11 asked (11 released, 0 temporary, 0 kept, 0 "
                           "unusual), 11 evicted with 110 bytes, 0 refused");
  EXPECT_EQ(now.peak, 100u);
  const std::string listing = printed([&] { cache->list_info(); });
  EXPECT_EQ(
      listing.find("** Cache<cache> with 10 entries using 100 bytes, 100 of them freeable (max "
                   "allowed 100) **\n CreatorCacheMap for listed Domain ["),
      0u)
      << listing;
  for (const std::string& line : {unused.str(), starved.str(), now.total.str()})
    EXPECT_NE(listing.find(line), std::string::npos) << listing;
  EXPECT_TRUE(cache->touch(all['a']) && all['b']->markAsUsed());
  EXPECT_EQ(cache->statistics().domains[0].primary.touched, 2u);
}

TEST(Cache, FilesWhatStandsInAnother) {
  const CachePtr cache = new Cache(30, "cache"), other = new Cache(100, "other");
  Population all;
  for (const WeakPtr<Cacheable>& object : {all.add('a', 10), all.add('b', 10), all['a']})
    EXPECT_TRUE(cache->insert(object, false));
  EXPECT_TRUE(other->insert(all['a'], false));
  EXPECT_EQ(order(*cache) + order(*other), "b||a|-|-");
  EXPECT_EQ(cache->totalCost(true) + other->totalCost(true), 20u);
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
    EXPECT_EQ(Cache::OutOfMemory(outOfMemory).what(), text);
    EXPECT_EQ(object.strongCount(), 2) << "the exception holds the object";
  }
  EXPECT_EQ(object.strongCount(), 1);
  const Cache::OutOfMemory unknown(nullptr, nullptr, nullptr);
  EXPECT_STREQ(unknown.what(), "Not enough memory to handle Unknown object");

  struct Base : CacheBase {
    using CacheBase::CacheBase;
    memsize_t limit() const override { return 5; }
  };
  Base base("base");
  EXPECT_FALSE(base.handleOutOfMemory(object, maker->self()));
}

TEST(Cache, DiesBeforeAndAfterItsObjects) {
  Population all;
  CachePtr cache = new Cache(20, "cache");
  all.add('a', 10, 1);
  all.add('b', 10, 0);
  for (const char name : {'a', 'b'}) {
    all.maker(name).setCacheManager(cache);
    EXPECT_TRUE(cache->insert(all[name], false));
  }
  cache->insert_zombie(all['b']);
  cache = nullptr;
  EXPECT_EQ(all.alive(), "ab");
  const CachePtr next = new Cache(100, "next");
  for (const char name : {'a', 'b'}) {
    EXPECT_FALSE(all[name]->NumberOfListEntries() > 0 || all[name]->markAsUsed() ||
                 all[name]->myCache());
    EXPECT_TRUE(next->insert(all[name], false));
    all.drop(name);
  }
  EXPECT_EQ(next->nEntries(), 0u);
}

TEST(Cache, ADefaultCacheIsShared) {
  const WeakPtr<Cache, CacheBase> cache = Cache::MemCache();
  EXPECT_EQ(cache->name(), "MemCache Objects");
  EXPECT_EQ(cache, Cache::MemCache());
  const StrongPtr<Cache, CacheBase> held = cache.lock();
  EXPECT_EQ(held.strongCount(), 2) << "the library itself holds it";
}
