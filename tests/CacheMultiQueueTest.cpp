#include "support/CacheFixtures.hpp"

using namespace cachetest;

namespace {

// The queues of one domain under a budget of their own.
struct Domain : CacheBase {
  explicit Domain(memsize_t limit) : CacheBase("domain"), bytes(limit) {}
  memsize_t totalCost(bool all) const override { return queues.memsize(all); }
  memsize_t limit() const override { return bytes; }
  bool adjust(memsize_t newCost) { return queues.adjust(*this, newCost); }

  memsize_t bytes;
  CacheMultiQueue queues;
};

} // namespace

TEST(CacheMultiQueue, BeforeTheFirstInsertion) {
  Population all;
  all.add('a', 10);
  Domain domain(100);
  EXPECT_FALSE(domain.adjust(0)) << "no room in what does not exist";
  EXPECT_EQ(order(domain.queues), "-|-|-");
  EXPECT_EQ(domain.queues.purge(), 0u);
  EXPECT_FALSE(domain.queues.isAlreadyIncluded(all['a']));
  EXPECT_EQ(printed([&] { EXPECT_FALSE(domain.queues.touch(all['a'])); }),
            "CacheMap::touch(const WeakPtr<Cacheable>&Ca): No Primary Queue found! Nothing "
            "touched.\n");
  EXPECT_EQ(printed([&] { EXPECT_FALSE(domain.queues.touch(nullptr)); }), "");
  EXPECT_FALSE(domain.queues.push_front(nullptr));
  EXPECT_FALSE(domain.queues.push_back(nullptr));
  EXPECT_EQ(order(domain.queues), "-|-|-") << "what is gone makes no queue";
  EXPECT_EQ(printed([&] { domain.queues.list_info(); }), "");

  EXPECT_TRUE(domain.queues.push_back(all['a']));
  EXPECT_EQ(order(domain.queues), "a|-|-");
  all.drop('a');
  EXPECT_TRUE(domain.adjust(1000)) << "an empty queue has room for everything";
  EXPECT_EQ(order(domain.queues), "||");
}

TEST(CacheMultiQueue, AnObjectWandersBetweenTheQueues) {
  Population all;
  Domain domain(30);
  for (const char name : {'a', 'b', 'c', 'd'})
    domain.queues.push_front(all.add(name, 10, name == 'a' ? 1 : name == 'b' ? 0 : 2));
  EXPECT_EQ(domain.queues.memsize(true), 40u);
  EXPECT_TRUE(domain.adjust(0)); // a stays counted, b does not
  EXPECT_EQ(order(domain.queues), "dc|a|b");
  EXPECT_EQ(domain.queues.memsize(false), 30u);
  EXPECT_EQ(domain.queues.memsize(true), 40u);
  EXPECT_EQ(domain.queues.nEntries(), 4u);
  for (const char name : {'a', 'b', 'c', 'd'})
    EXPECT_TRUE(domain.queues.isAlreadyIncluded(all[name]));

  // Marking stays in the queue, touching leads back.
  EXPECT_TRUE(all['a']->markAsUsed());
  EXPECT_TRUE(all['b']->markAsUsed());
  EXPECT_EQ(order(domain.queues), "dc|a|b");
  EXPECT_TRUE(domain.queues.touch(all['b']));
  EXPECT_EQ(order(domain.queues), "bdc|a|");
  EXPECT_TRUE(domain.queues.touch(all['a']));
  EXPECT_EQ(order(domain.queues), "abdc||");
  EXPECT_EQ(domain.queues.memsize(false), 40u);

  // push_back and push_front find an object in any of the queues as well.
  EXPECT_TRUE(domain.adjust(0));
  EXPECT_TRUE(domain.queues.push_back(all['a']));
  EXPECT_EQ(order(domain.queues), "bda||");
  const Domain other(0);
  EXPECT_FALSE(other.queues.isAlreadyIncluded(all['a']));
}

TEST(CacheMultiQueue, TemporariesComeBackOneByOneOldestFirst) {
  Population all;
  Domain domain(30);
  for (const char name : {'a', 'b', 'c'})
    domain.queues.push_front(all.add(name, 10, 1));
  EXPECT_FALSE(domain.adjust(1));
  EXPECT_EQ(order(domain.queues), "|cba|");
  const char* const orders[] = {"a|cb|", "ab|c|", "abc||", "abc||"};
  for (const char* const expected : orders) {
    const char oldest = order(domain.queues.temporaries()).empty()
                            ? '\0'
                            : order(domain.queues.temporaries()).back();
    Messages messages;
    EXPECT_TRUE(domain.adjust(0));
    EXPECT_EQ(order(domain.queues), expected);
    if (oldest) {
      EXPECT_TRUE(messages.contain(std::string("  MOVING Temporary Item [") + oldest +
                                   "] to Release Candidates."));
    }
  }
  EXPECT_EQ(all.asked(), "abc") << "there was room";

  // Those that will not go are asked once an adjustment, and end among the temporaries again.
  EXPECT_FALSE(domain.adjust(1));
  EXPECT_EQ(order(domain.queues), "|abc|") << "asked from the oldest: c, b, a";
  EXPECT_EQ(all.asked(), "abc");
}

TEST(CacheMultiQueue, KeepersNeverCountAgain) {
  Population all;
  Domain domain(0);
  for (const char name : {'a', 'b', 'c'})
    domain.queues.push_front(all.add(name, 10, 0));
  EXPECT_TRUE(domain.adjust(0));
  EXPECT_EQ(order(domain.queues), "||cba");
  EXPECT_EQ(domain.queues.memsize(false), 0u);
  EXPECT_EQ(domain.queues.memsize(true), 30u);
  EXPECT_TRUE(domain.adjust(1000)) << "the primary queue is empty";
  EXPECT_EQ(all.asked(), "abc");
}

TEST(CacheMultiQueue, ZombiesLiveUntilTheNextOccasion) {
  const struct {
    const char* occasion;
    std::function<void(Domain&)> happens;
  } cases[] = {
      {"purge_Hades", [](Domain& domain) { domain.queues.purge_Hades(); }},
      {"adjust", [](Domain& domain) { domain.adjust(0); }},
      {"purge", [](Domain& domain) { domain.queues.purge(); }},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.occasion);
    Population all;
    Domain domain(100);
    domain.queues.push_front(all.add('a', 10));
    domain.queues.push_front(all.add('b', 10, 1));
    all.add('c', 10);
    for (const char name : {'a', 'c', 'c'})
      domain.queues.insert_zombie(all[name]);
    domain.queues.insert_zombie(nullptr);
    all.drop('a');
    all.drop('c');
    EXPECT_EQ(all.alive(), "abc");
    EXPECT_EQ(order(domain.queues), "ba|-|-") << "a zombie stays where it stands";
    test.happens(domain);
    EXPECT_EQ(all.alive(), "b");
    EXPECT_EQ(domain.queues.nEntries(), 1u);
    EXPECT_EQ(domain.queues.memsize(true), 10u);
  }
  Population all;
  all.add('a', 10);
  {
    Domain domain(100);
    domain.queues.insert_zombie(all['a']);
    all.drop('a');
    EXPECT_EQ(all.alive(), "a");
  }
  EXPECT_EQ(all.alive(), "");
}

// The end of a zombie may make another one, which waits for the next occasion.
TEST(CacheMultiQueue, AZombieMayLeaveAnother) {
  Population all;
  Domain domain(100);
  domain.queues.insert_zombie(all.add('a', 1));
  all.add('b', 1);
  all.data('a').onDeath = [&] { domain.queues.insert_zombie(all['b']); };
  all.drop('a');
  domain.queues.purge_Hades();
  all.drop('b');
  EXPECT_EQ(all.alive(), "b");
  domain.queues.purge_Hades();
  EXPECT_EQ(all.alive(), "");
}

TEST(CacheMultiQueue, PurgeAsksAllThreeQueues) {
  Population all;
  Domain domain(20);
  for (const char name : {'a', 'b', 'c', 'd'})
    domain.queues.push_front(all.add(name, 10, name == 'a' ? 1 : name == 'b' ? 0 : 2));
  EXPECT_TRUE(domain.adjust(0));
  EXPECT_EQ(order(domain.queues), "d|a|b");
  all.asked();
  for (const char name : {'a', 'b'})
    all.maker(name).answer = 2;
  EXPECT_EQ(domain.queues.purge(), 30u);
  EXPECT_EQ(order(domain.queues), "||");
  EXPECT_EQ(all.asked(), "abd");
  EXPECT_EQ(all.alive(), "");
}

TEST(CacheMultiQueue, ListsItsQueuesInOrder) {
  Population all;
  Domain domain(0);
  for (const char name : {'a', 'b', 'c'})
    domain.queues.push_front(all.add(name, 10, name - 'a' == 2 ? 7 : name - 'a'));
  EXPECT_FALSE(domain.adjust(0)); // c answers nothing that is known
  EXPECT_EQ(order(domain.queues), "c|b|a");
  const std::string text = printed([&] { domain.queues.list_info(); });
  const auto at = [&](char name) { return text.find(std::string("{") + name + "} "); };
  EXPECT_LT(at('c'), at('b'));
  EXPECT_LT(at('b'), at('a'));
  EXPECT_NE(at('a'), std::string::npos);
  EXPECT_NE(text.find(", creator " + Typename(typeid(MakerOf<0>)) + ", 1 strong\n"),
            std::string::npos)
      << text;
}
