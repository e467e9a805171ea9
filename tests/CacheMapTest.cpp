#include "support/CacheFixtures.hpp"

using namespace cachetest;

namespace {

// A map of either kind under a limit.
template <class Map>
struct Limited : CacheBase {
  explicit Limited(memsize_t limit) : CacheBase("limited"), bytes(limit) {}
  memsize_t totalCost(bool all) const override { return map.memsize(all); }
  memsize_t limit() const override { return bytes; }

  memsize_t bytes;
  Map map;
};

std::string name(const std::type_info& type) {
  return Typename(type);
}

template <int Domain>
std::string order(const CacheMap& map) {
  const CacheMultiQueue* queues = map.domain(typeid(DataOf<Domain>));
  return queues ? cachetest::order(*queues) : "";
}

template <int Domain, int Creator>
std::string order(const CreatorCacheMap& map) {
  const StrongPtr<CacheMap> domain = map.creatorDomain(typeid(MakerOf<Creator>));
  return domain ? order<Domain>(*domain) : "";
}

} // namespace

TEST(CacheMap, FilesByDomain) {
  Population all;
  CacheMap map;
  EXPECT_TRUE(map.insert(all.add<1>('a', 10), false));
  EXPECT_TRUE(map.insert(all.add<1>('b', 20), false));
  EXPECT_TRUE(map.insert(all.add<1>('c', 30), true));
  EXPECT_TRUE(map.insert(all.add<2, 5>('d', 40), true));
  EXPECT_FALSE(map.insert(nullptr, true));
  EXPECT_EQ(order<1>(map), "bac|-|-");
  EXPECT_EQ(order<2>(map), "d|-|-") << "whoever made it";
  EXPECT_EQ(order<3>(map), "");
  EXPECT_EQ(map.nEntries(), 4u);
  EXPECT_EQ(map.memsize(false), 100u);
  EXPECT_TRUE(map.isAlreadyIncluded(all['d']));
  EXPECT_FALSE(map.isAlreadyIncluded(all.add<1>('e', 1)));
  EXPECT_FALSE(map.isAlreadyIncluded(all.add<3>('f', 1)));
  EXPECT_FALSE(map.isAlreadyIncluded(nullptr));
  EXPECT_TRUE(map.insert(all['a'], false)) << "what stands there is moved";
  EXPECT_EQ(order<1>(map), "abc|-|-");
  EXPECT_EQ(map.nEntries(), 4u);
  EXPECT_EQ(map.purge(), 100u);
  EXPECT_EQ(map.nEntries(), 0u);
}

TEST(CacheMap, TouchTellsWhatItMisses) {
  Population all;
  CacheMap map;
  all.add<1>('a', 1);
  const auto touch = [&](bool expected) {
    return printed([&] { EXPECT_EQ(map.touch(all['a']), expected); });
  };
  EXPECT_EQ(touch(false), "CacheMap::touch(const WeakPtr<Cacheable>&Ca): No Cacheable Domain "
                          "found! Nothing touched.\n");
  EXPECT_FALSE(map.domain(typeid(DataOf<1>))) << "touching makes no domain";
  map.insert_zombie(all['a']); // this does
  EXPECT_EQ(touch(false), "CacheMap::touch(const WeakPtr<Cacheable>&Ca): No Primary Queue found! "
                          "Nothing touched.\n");
  map.insert(all.add<1>('b', 1), false);
  EXPECT_EQ(touch(true), "") << "an object that was never inserted is taken in";
  EXPECT_EQ(order<1>(map), "ab|-|-");
  map.purge_Hades();
  all.drop('a');
  EXPECT_EQ(touch(false), "");
  map.insert_zombie(nullptr);
}

TEST(CacheMap, KeptDataDoNotCount) {
  Population all;
  Limited<CacheMap> cache(0);
  cache.map.insert(all.add<1>('a', 10, 0), false);
  cache.map.insert(all.add<2>('b', 20, 0), false);
  EXPECT_TRUE(cache.map.adjust(typeid(DataOf<1>), cache, 0)) << "by the queue that ran empty";
  EXPECT_EQ(cache.map.memsize(false), 20u);
  EXPECT_TRUE(cache.map.adjust(typeid(DataOf<2>), cache, 0));
  EXPECT_EQ(cache.map.memsize(false), 0u);
  EXPECT_EQ(cache.map.memsize(true), 30u);
}

// The domain of its own first, then all in the order in which they were first used.
TEST(CacheMap, FallsBackToOtherDomains) {
  const struct {
    const char* about;
    int domain;
    memsize_t limit, cost;
    const char* answers; // of a in domain 1, b in 2, c in 3, each of 10 bytes
    bool room;
    const char *alive, *asked;
  } cases[] = {
      {"its own is enough", 2, 30, 10, "222", true, "ac", "b"},
      {"drained, it fails; in the walk the empty queue answers yes", 2, 30, 21, "222", true, "c",
       "ab"},
      {"a keeper makes room as well", 2, 30, 10, "202", true, "abc", "b"},
      {"an unknown domain falls through to the first", 9, 30, 10, "222", true, "bc", "a"},
      {"temporaries are asked again in the walk, until a domain has room", 2, 30, 10, "112", true,
       "ab", "abbc"},
      {"nobody can go", 2, 30, 10, "111", false, "abc", "abbc"},
      {"without a cost, there is room at equality", 9, 30, 0, "111", true, "abc", ""},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.about);
    Population all;
    Limited<CacheMap> cache(test.limit);
    cache.map.insert(all.add<1>('a', 10, test.answers[0] - '0'), false);
    cache.map.insert(all.add<2>('b', 10, test.answers[1] - '0'), false);
    cache.map.insert(all.add<3>('c', 10, test.answers[2] - '0'), false);
    const std::type_info* const domains[] = {&typeid(DataOf<1>), &typeid(DataOf<2>),
                                             &typeid(DataOf<3>)};
    const std::type_info& domain = test.domain > 3 ? typeid(int) : *domains[test.domain - 1];
    Messages messages;
    EXPECT_EQ(cache.map.adjust(domain, cache, test.cost), test.room);
    EXPECT_EQ(all.alive(), test.alive);
    EXPECT_EQ(all.asked(), test.asked);
    EXPECT_EQ(messages.contain("CacheMap::adjust(): no data domain can make room for 0KiB"),
              !test.room);
  }
  Population all;
  Limited<CacheMap> cache(100);
  EXPECT_FALSE(cache.map.adjust(typeid(int), cache, 0)) << "no domain, no room";
}

TEST(CacheMap, ForgetsADomain) {
  Population all;
  CacheMap map;
  for (const char name : {'a', 'b'})
    map.insert(all.add<1>(name, 10, name == 'a' ? 1 : 2), false);
  map.insert(all.add<2>('c', 10), false);
  map.insert_zombie(all.add<1>('z', 10));
  all.drop('z');
  EXPECT_EQ(map.forget(typeid(DataOf<1>)), 10u);
  EXPECT_EQ(map.domain(typeid(DataOf<1>)), nullptr);
  EXPECT_EQ(all.alive(), "ac");
  EXPECT_EQ(all['a']->NumberOfListEntries(), 0u);
  EXPECT_EQ(map.memsize(true), 10u);
  EXPECT_EQ(map.nEntries(), 1u);
  EXPECT_EQ(map.forget(typeid(DataOf<1>)), 0u);
  EXPECT_TRUE(map.insert(all['a'], false)) << "the domain can begin again";
  EXPECT_EQ(order<1>(map), "a|-|-");
}

TEST(CreatorCacheMap, FilesByCreatorAndDomain) {
  Population all;
  CreatorCacheMap map;
  EXPECT_TRUE(map.insert(all.add<1, 1>('a', 10), false));
  EXPECT_TRUE(map.insert(all.add<1, 2>('b', 20), false));
  EXPECT_TRUE(map.insert(all.add<2, 1>('c', 30), false));
  EXPECT_TRUE(map.insert(all.add<1, 1>('d', 40), true));
  EXPECT_FALSE(map.insert(nullptr, false));
  EXPECT_EQ((order<1, 1>(map)), "ad|-|-");
  EXPECT_EQ((order<1, 2>(map)), "b|-|-");
  EXPECT_EQ((order<2, 1>(map)), "c|-|-");
  EXPECT_EQ((order<2, 2>(map)), "");
  EXPECT_EQ(map.nEntries(), 4u);
  EXPECT_EQ(map.memsize(false), 100u);
  EXPECT_TRUE(map.touch(all['d']));
  EXPECT_EQ((order<1, 1>(map)), "da|-|-");
  all.maker('c').answer = 1;
  EXPECT_EQ(map.purge(), 70u);
  EXPECT_EQ(all.alive(), "c");
  EXPECT_EQ(map.memsize(true), 30u);
}

TEST(CreatorCacheMap, TouchTellsWhatItMisses) {
  Population all;
  CreatorCacheMap map;
  all.add<1, 2>('a', 1);
  const auto touch = [&] { return printed([&] { EXPECT_FALSE(map.touch(all['a'])); }); };
  const std::string data = name(typeid(DataOf<1>)), maker = name(typeid(MakerOf<2>));
  EXPECT_EQ(touch(), "CreatorCacheMap::touch(const WeakPtr<Cacheable>&[" + data +
                         "]): No Cacheable Creator Domain [" + maker +
                         "] found! Nothing touched.\n");
  map.insert(all.add<2, 2>('b', 1), false);
  EXPECT_EQ(touch(), "CacheMap::touch(const WeakPtr<Cacheable>&Ca): No Cacheable Domain found! "
                     "Nothing touched.\n");
  EXPECT_EQ(map.nEntries(), 1u);
  const StrongPtr<Cacheable> held = all['a'].lock();
  all.drop('a');
  EXPECT_EQ(touch(), "CreatorCacheMap::touch(const WeakPtr<Cacheable>&[" + data +
                         "]): No Cacheable Creator Domain [" + name(typeid(void)) +
                         "] found! Nothing touched.\n");
  EXPECT_EQ(printed([&] { EXPECT_FALSE(map.touch(nullptr)); }), "");
}

TEST(CreatorCacheMap, FallsBackToOtherCreators) {
  const struct {
    const char* about;
    memsize_t cost;
    const char* answers; // of a and b made by 1, of c and d made by 2; a, c of domain 1
    bool room;
    const char *alive, *asked;
  } cases[] = {
      {"its own domain", 10, "2222", true, "abd", "c"},
      {"its own creator", 10, "2212", true, "abc", "ccd"},
      {"the other creator, its domain first", 10, "2211", true, "bcd", "accd"},
      {"the other creator, other domain", 10, "1211", true, "acd", "aabccd"},
      {"nobody", 10, "1111", false, "abcd", "aabccccdd"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.about);
    Population all;
    Limited<CreatorCacheMap> cache(40);
    cache.map.insert(all.add<1, 1>('a', 10, test.answers[0] - '0'), false);
    cache.map.insert(all.add<2, 1>('b', 10, test.answers[1] - '0'), false);
    cache.map.insert(all.add<1, 2>('c', 10, test.answers[2] - '0'), false);
    cache.map.insert(all.add<2, 2>('d', 10, test.answers[3] - '0'), false);
    Messages messages;
    EXPECT_EQ(cache.map.adjust(typeid(MakerOf<2>), typeid(DataOf<1>), cache, test.cost), test.room);
    EXPECT_EQ(all.alive(), test.alive);
    EXPECT_EQ(all.asked(), test.asked);
    EXPECT_EQ(messages.contain("CreatorCacheMap::adjust(): no domain can make room for 0KiB"),
              !test.room);
  }
  Population all;
  Limited<CreatorCacheMap> empty(100);
  EXPECT_FALSE(empty.map.adjust(typeid(MakerOf<1>), typeid(DataOf<1>), empty, 0));
  empty.map.insert(all.add<2, 2>('a', 1, 1), false);
  EXPECT_TRUE(empty.map.adjust(typeid(MakerOf<1>), typeid(DataOf<1>), empty, 5))
      << "a domain that was never used falls through";
}

TEST(CreatorCacheMap, Listings) {
  Population all;
  Limited<CreatorCacheMap> cache((5 << 20) / 2);
  cache.map.insert(all.add<1, 1>('a', 1 << 20, 0), false);
  cache.map.insert(all.add<1, 1>('b', 1 << 20, 2), false);
  cache.map.insert(all.add<2, 2>('c', 3 << 18, 2), false);
  EXPECT_TRUE(cache.map.adjust(typeid(MakerOf<1>), typeid(DataOf<1>), cache, 0));
  ASSERT_EQ((order<1, 1>(cache.map)), "b||a");

  const std::string maker1 = name(typeid(MakerOf<1>)), maker2 = name(typeid(MakerOf<2>)),
                    data1 = name(typeid(DataOf<1>)), data2 = name(typeid(DataOf<2>)),
                    figures1 =
                        "   Have 2 entries using 2097152 (2M, 1M freeable, 1M unfreeable) here. \n",
                    figures2 = "   Have 1 entries using 786432 (0.75M, 0.75M freeable, 0M "
                               "unfreeable) here. \n",
                    nothing = "   Have 0 entries using 0 (0M, 0M freeable, 0M unfreeable) here. \n";
  const auto positions = [](const std::string& text, const std::vector<std::string>& pieces) {
    std::size_t at = 0;
    for (const std::string& piece : pieces) {
      at = text.find(piece, at);
      EXPECT_NE(at, std::string::npos) << piece << " is missing, or too early, in\n" << text;
    }
  };
  positions(printed([&] { cache.map.list_info(); }),
            {" CreatorCacheMap for listed Domain [" + maker1 + "]:" + figures1,
             "  CacheMap for [" + data1, "{b} ", "{a} ",
             " CreatorCacheMap for listed Domain [" + maker2 + "]:" + figures2,
             "  CacheMap for [" + data2, "{c} "});
  const std::string one = printed([&] { cache.map.list_info(typeid(MakerOf<2>)); });
  positions(one, {" CreatorCacheMap for specific Domain [" + maker2 + "]:" + figures2,
                  "  CacheMap for [" + data2, "{c} "});
  EXPECT_EQ(one.find(maker1), std::string::npos);
  EXPECT_EQ(printed([&] { cache.map.list_info(typeid(int)); }),
            " CreatorCacheMap for Domain [" + name(typeid(int)) +
                "]:  No such domain found, not that the domain must refer to the typeid of the "
                "Cacheable objects!\n");
  const std::string both = "] for Cacheable Domain [";
  positions(printed([&] { cache.map.list_info(typeid(MakerOf<1>), typeid(DataOf<1>)); }),
            {" CreatorCacheMap for Creator Domain [" + maker1 + both + data1 + "]:" + figures1,
             "{b} ", "{a} "});
  EXPECT_EQ(printed([&] { cache.map.list_info(typeid(MakerOf<1>), typeid(DataOf<2>)); }),
            " CreatorCacheMap for Creator Domain [" + maker1 + both + data2 + "]:" + nothing);
}

TEST(CreatorCacheMap, ForgetsATypeAsCreatorAndAsData) {
  Population all;
  CreatorCacheMap map;
  map.insert(all.add<1, 1>('a', 10), false);
  map.insert(all.add<2, 1>('b', 10, 0), false);
  map.insert(all.add<1, 2>('c', 10, 1), false);
  map.insert(all.add<2, 2>('d', 10), false);
  EXPECT_EQ(map.forget(typeid(DataOf<1>)), 10u);
  EXPECT_EQ((order<1, 1>(map)), "");
  EXPECT_EQ((order<2, 1>(map)), "b|-|-");
  EXPECT_EQ((order<1, 2>(map)), "");
  EXPECT_EQ((order<2, 2>(map)), "d|-|-");
  EXPECT_EQ(all.alive(), "bcd");
  EXPECT_EQ(map.memsize(true), 20u) << "c lives and counts no longer";
  EXPECT_EQ(map.forget(typeid(MakerOf<1>)), 0u);
  EXPECT_FALSE(map.creatorDomain(typeid(MakerOf<1>)));
  EXPECT_EQ(all['b']->NumberOfListEntries(), 0u);
  EXPECT_EQ(map.memsize(true), 10u);
  EXPECT_EQ(map.nEntries(), 1u);
  EXPECT_EQ(map.forget(typeid(int)), 0u);
}
