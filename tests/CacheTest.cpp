#include "support/CacheFixtures.hpp"

using namespace cachetest;

TEST(Cache, AdmitsOnlyWhatIsHeldAndMade) {
  const CachePtr cache = new Cache(1000, "cache");
  const MakerPtr maker = new Maker;
  Data onTheStack(10);
  Maker stackMaker;
  onTheStack.setCreator(maker->self());
  StrongPtr<Cacheable> orphan = new Data(10), bastard = new Data(10), posthumous = new Data(10);
  bastard->setCreator(stackMaker.self());
  posthumous->setCreator(MakerPtr(new Maker)->self());
  StrongPtr<Cacheable> late = new Data(10);
  late->setCreator(maker->self());
  const WeakPtr<Cacheable> gone = late;
  EXPECT_TRUE(cache->insert(gone, false));
  late = nullptr;
  for (const WeakPtr<Cacheable>& object :
       {WeakPtr<Cacheable>(), WeakPtr<Cacheable>(&onTheStack), WeakPtr<Cacheable>(orphan),
        WeakPtr<Cacheable>(bastard), WeakPtr<Cacheable>(posthumous), gone})
    EXPECT_FALSE(cache->insert(object, false));
  EXPECT_FALSE(cache->touch(gone) || cache->nEntries() > 0);
}

// Objects of one domain are inserted one after another, each as a letter, its creator's answer and
// its size in tens of bytes.
TEST(Cache, Survivors) {
  const struct {
    const char* insertions;
    memsize_t limit;
    const char *refused, *order, *asked;
  } cases[] = {
      {"a21b21c21", 30, "", "cba||", ""},
      {"a21b21c22", 30, "", "cb||", "a"},
      // Larger than the limit: a new creator type has no queue that could say yes, and a queue
      // that was drained for it says no; in the walk that follows, the empty queue says yes.
      {"a24", 30, "a", "", ""},
      {"a21b24", 30, "", "b||", "a"},
      // Keepers do not count.
      {"a01b01c01d01", 20, "", "dc||ba", "ab"},
      // Temporaries count. One comes back, and is asked again, with each of the four visits of a
      // domain: by its data and creator map, each in the domain itself and in the walk.
      {"a11b21c21", 20, "", "c|a|", "ab"},
      {"a11b11c11", 20, "c", "|ab|", "aaabb"},
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
    EXPECT_TRUE(now.total.asked == std::string(test.asked).size() &&
                now.total.released + now.total.temporary + now.total.kept == now.total.asked &&
                now.total.refused == refused.size() && now.total.evicted == now.total.released &&
                now.total.inserted == std::string(test.insertions).size() / 3 - refused.size() &&
                now.total.entries == now.total.inserted - now.total.evicted &&
                now.total.bytes == cache->totalCost(true))
        << now.total.str();
    EXPECT_GE(now.peak, now.freeable);
  }
  // Costs that do not fit 64 bits beside an object of 10 bytes, which goes or stays.
  const std::tuple<memsize_t, memsize_t, const char*> wraps[] = {
      {100, largest, "b||"},           // drained, then the empty queue says yes
      {largest, largest - 10, "ba||"}, // exactly at the limit
      {largest, largest - 9, "b||"},   // the sum is 2^64
      {memsize_t{1} << 63, memsize_t{1} << 63, "b||"}};
  for (const auto& [limit, cost, orderAfter] : wraps) {
    const CachePtr cache = new Cache(limit, "cache");
    Population all;
    EXPECT_TRUE(cache->insert(all.add('a', 10), false) &&
                cache->insert(WeakPtr<Cacheable>(all.add('b', cost)), false));
    EXPECT_EQ(order(*cache), orderAfter) << cost;
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
  EXPECT_TRUE(now.domains[0].data == TypeInfo(typeid(DataOf<0>)) && now.peak == 100);
  EXPECT_EQ(starved.str(), "12 inserted, 0 touched, 11 asked (11 released, 0 temporary, 0 kept, 0 "
                           "unusual), 11 evicted with 110 bytes, 0 refused");
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

TEST(Cache, NamesWhatComesInWhetherOrNotSomethingGoes) {
  const CachePtr cache = new Cache(15, "cache");
  Population all;
  for (const char name : {'a', 'b'}) {
    all.add(name, 10);
    const Messages messages;
    EXPECT_TRUE(cache->insert(all[name], false));
    EXPECT_EQ(messages.texts, std::vector<std::string>{
                                  "CacheQueue::push_front(type=" + Typename(typeid(DataOf<0>)) +
                                  " creator=" + Typename(typeid(MakerOf<0>)) + ")"});
  }
  EXPECT_EQ(order(*cache), "b||");
}

TEST(Cache, ZombiesGoBeforeAnInsertion) {
  const CachePtr cache = new Cache(30, "cache");
  Population all;
  EXPECT_TRUE(cache->insert(all.add('k', 29), false));
  const MakerPtr maker = made(new Maker, new Data(2));
  const WeakPtr<Cacheable> last = maker->data;
  cache->insert_zombie(last);
  maker->data = nullptr;
  EXPECT_FALSE(cache->insert(last, false)) << "a zombie of its own that goes first";
  EXPECT_FALSE(last);
  EXPECT_EQ(all.alive(), "k") << "nothing had to make room for it";

  // A zombie whose end gives the object another creator and lets go of the first, which looks at
  // the object in its own end.
  struct Leaving : Maker {
    void unction() override { data->leaveQueue(); }
  };
  const StrongPtr<Cacheable> brick = new Data(2);
  MakerPtr first = made(new Leaving, brick.get());
  const MakerPtr second = new Maker;
  StrongPtr<Data, Cacheable> zombie = new Data(1);
  zombie->onDeath = [&] {
    brick->setCreator(second->self());
    first = nullptr;
  };
  zombie->setCreator(second->self());
  cache->insert_zombie(zombie);
  zombie = nullptr;
  EXPECT_TRUE(cache->insert(brick, false));
  EXPECT_TRUE(!first && brick->creator() == second);
}

TEST(Cache, AnInsertionMayLetItsObjectGo) {
  const CachePtr cache = new Cache(25, "cache");
  Population all;
  EXPECT_TRUE(cache->insert(all.add('a', 10), false) && cache->insert(all.add('b', 10), false));
  EXPECT_FALSE(cache->insert(all['a']->self(), false)) << "it was the one to make room";
  EXPECT_EQ(order(*cache) + all.asked(), "b||a");
  EXPECT_EQ(cache->statistics().total.refused, 0u);
}

TEST(Cache, OutOfMemoryTexts) {
  const StrongPtr<Cacheable> object = new DataOf<1>(5);
  try {
    CachePtr(new Cache(1, "cache"))->handleOutOfMemory(object, nullptr);
    ADD_FAILURE() << "no exception";
  } catch (const Exception& e) {
    const std::string text = "Not enough memory to handle " + Typename(typeid(DataOf<1>));
    EXPECT_EQ(e.what(), text);
    EXPECT_EQ(Cache::OutOfMemory(dynamic_cast<const Cache::OutOfMemory&>(e)).what(), text);
    EXPECT_EQ(object.strongCount(), 2) << "the exception holds the object";
  }
  EXPECT_STREQ(Cache::OutOfMemory(nullptr, nullptr, nullptr).what(),
               "Not enough memory to handle Unknown object");
  struct Base : CacheBase {
    using CacheBase::CacheBase;
    memsize_t limit() const override { return 5; }
  } base("base");
  EXPECT_FALSE(base.handleOutOfMemory(object, nullptr));
}
