#include "support/CacheFixtures.hpp"

using namespace cachetest;

namespace {

// The objects of a cache with a limit.
struct Limited : CacheBase {
  explicit Limited(memsize_t limit) : CacheBase("limited"), bytes(limit) {}
  memsize_t totalCost(bool all) const override { return map.memsize(all); }
  memsize_t limit() const override { return bytes; }

  const memsize_t bytes;
  CreatorCacheMap map;
};

const std::string touching = "CacheMap::touch(const WeakPtr<Cacheable>&Ca): ",
                  noDomain = touching + "No Cacheable Domain found! Nothing touched.\n",
                  noPrimary = touching + "No Primary Queue found! Nothing touched.\n";

} // namespace

TEST(CacheMap, TouchTellsWhatItMisses) {
  Population all;
  CreatorCacheMap map;
  all.add<1, 2>('a', 1);
  const auto touch = [&](bool expected) {
    return printed([&] { EXPECT_EQ(map.touch(all['a']), expected); });
  };
  const auto noCreator = [](const std::type_info& type) {
    return "CreatorCacheMap::touch(const WeakPtr<Cacheable>&[" + Typename(typeid(DataOf<1>)) +
           "]): No Cacheable Creator Domain [" + Typename(type) + "] found! Nothing touched.\n";
  };
  EXPECT_EQ(touch(false), noCreator(typeid(MakerOf<2>)));
  map.insert(all.add<2, 2>('b', 1), false);
  EXPECT_EQ(touch(false), noDomain);
  EXPECT_EQ(map.creatorDomain(typeid(MakerOf<2>))->domain(typeid(DataOf<1>)), nullptr);
  map.insert_zombie(all['a']); // this makes the domain
  EXPECT_EQ(touch(false), noPrimary);
  map.insert(all.add<1, 2>('c', 1), false);
  EXPECT_EQ(touch(true), "") << "an object that was never inserted is taken in";
  EXPECT_EQ((order<1, 2>(map)), "ac|-|-");
  const StrongPtr<CacheMap> domains = map.creatorDomain(typeid(MakerOf<2>));
  EXPECT_TRUE(domains->isAlreadyIncluded(all['a']) &&
              !domains->isAlreadyIncluded(all.add<1, 2>('d', 1)) &&
              !domains->isAlreadyIncluded(all.add<3, 2>('e', 1)));
  const StrongPtr<Cacheable> held = all['a'].lock();
  all.drop('a');
  EXPECT_EQ(touch(false), noCreator(typeid(void)));
  EXPECT_EQ(printed([&] { EXPECT_FALSE(map.touch(nullptr)); }), "");
  held->leaveQueue();
}

// The domain of its own first, then all of its creator, then all, as they were first used.
TEST(CreatorCacheMap, TellsThatNoDomainMakesRoom) {
  Population all;
  Limited cache(40);
  EXPECT_FALSE(cache.map.adjust(typeid(int), typeid(int), cache, 0)) << "no domain, no room";
  cache.map.insert(all.add<1, 1>('a', 10, 1), false);
  cache.map.insert(all.add<2, 1>('b', 10, 1), false);
  cache.map.insert(all.add<1, 2>('c', 10, 1), false);
  cache.map.insert(all.add<2, 2>('d', 10, 1), false);
  Messages messages;
  EXPECT_FALSE(cache.map.adjust(typeid(MakerOf<2>), typeid(DataOf<1>), cache, 10));
  EXPECT_EQ(all.asked(), "aabccccdd");
  for (const char* text : {"CreatorCacheMap::adjust(): no domain can make room for 0KiB",
                           "CacheMap::adjust(): no data domain can make room for 0KiB"})
    EXPECT_TRUE(messages.contain(text)) << text;
}

// The end of a zombie may make another one, which waits for the next occasion.
TEST(CacheMultiQueue, AZombieMayLeaveAnother) {
  Population all;
  CacheMultiQueue queues;
  queues.insert_zombie(nullptr);
  queues.insert_zombie(all.add('a', 1));
  all.add('b', 1);
  all.data('a').onDeath = [&] { queues.insert_zombie(all['b']); };
  all.drop('a');
  EXPECT_EQ(all.alive(), "ab");
  queues.purge_Hades();
  EXPECT_TRUE(queues.push_front(all['b']));
  all.drop('b');
  EXPECT_EQ(all.alive() + order(&queues), "bb|-|-");
  queues.purge_Hades();
  EXPECT_EQ(all.alive(), "");

  // What comes in only now makes room as well.
  CacheMultiQueue others;
  Limited cache(15);
  others.insert_zombie(all.add('c', 10));
  all.add('d', 10);
  all.data('c').onDeath = [&] { others.push_front(all['d']); };
  all.drop('c');
  EXPECT_TRUE(others.adjust(cache, 10));
  EXPECT_EQ(all.alive() + order(&others), "dd||");
}

TEST(CreatorCacheMap, Listings) {
  Population all;
  Limited cache((5 << 20) / 2);
  cache.map.insert(all.add<1, 1>('a', 1 << 20, 0), false);
  cache.map.insert(all.add<1, 1>('b', 1 << 20, 2), false);
  cache.map.insert(all.add<2, 2>('c', 3 << 18, 2), false);
  EXPECT_TRUE(cache.map.adjust(typeid(MakerOf<1>), typeid(DataOf<1>), cache, 0));
  ASSERT_EQ((order<1, 1>(cache.map)), "b||a");

  const std::string maker1 = Typename(typeid(MakerOf<1>)), maker2 = Typename(typeid(MakerOf<2>)),
                    data1 = Typename(typeid(DataOf<1>)), data2 = Typename(typeid(DataOf<2>)),
                    both = "] for Cacheable Domain [",
                    figures1 =
                        "   Have 2 entries using 2097152 (2M, 1M freeable, 1M unfreeable) here. \n",
                    figures2 = "   Have 1 entries using 786432 (0.75M, 0.75M freeable, 0M "
                               "unfreeable) here. \n",
                    nothing = "   Have 0 entries using 0 (0M, 0M freeable, 0M unfreeable) here. \n";
  const auto expectInOrder = [](const std::string& text, const std::vector<std::string>& pieces) {
    std::size_t at = 0;
    for (const std::string& piece : pieces) {
      at = text.find(piece, at);
      EXPECT_NE(at, std::string::npos) << piece << " is missing, or too early, in\n" << text;
    }
  };
  expectInOrder(printed([&] { cache.map.list_info(); }),
                {" CreatorCacheMap for listed Domain [" + maker1 + "]:" + figures1,
                 "  CacheMap for [" + data1, "{b} ", "{a} ",
                 " CreatorCacheMap for listed Domain [" + maker2 + "]:" + figures2, "{c} "});
  const std::string one = printed([&] { cache.map.list_info(typeid(MakerOf<2>)); });
  expectInOrder(one, {" CreatorCacheMap for specific Domain [" + maker2 + "]:" + figures2,
                      "  CacheMap for [" + data2, "{c} "});
  EXPECT_EQ(one.find(maker1), std::string::npos);
  EXPECT_EQ(printed([&] { cache.map.list_info(typeid(int)); }),
            " CreatorCacheMap for Domain [" + Typename(typeid(int)) +
                "]:  No such domain found, not that the domain must refer to the typeid of the "
                "Cacheable objects!\n");
  expectInOrder(printed([&] { cache.map.list_info(typeid(MakerOf<1>), typeid(DataOf<1>)); }),
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
  map.insert_zombie(all.add<1, 1>('z', 10));
  all.drop('z');
  EXPECT_EQ(map.forget(typeid(DataOf<1>)), 10u);
  EXPECT_EQ((order<1, 1>(map) + order<2, 1>(map) + order<1, 2>(map)), "b|-|-");
  EXPECT_EQ(all.alive(), "bc");
  EXPECT_EQ(map.memsize(true), 10u) << "c lives and counts no longer";
  EXPECT_EQ(map.forget(typeid(MakerOf<1>)), 0u);
  EXPECT_FALSE(map.creatorDomain(typeid(MakerOf<1>)) || map.nEntries() > 0);
  EXPECT_TRUE(map.insert(all['c'], false)) << "the domain can begin again";
}
