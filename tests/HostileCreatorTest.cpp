// Creators that do in their release what no reasonable creator does. Nothing of it may hang, crash,
// break a ring, or leave a queue locked.

#include "support/CacheFixtures.hpp"

#include <future>
#include <stdexcept>
#include <system_error>

using namespace cachetest;

namespace {

using CachePtr = StrongPtr<Cache, CacheBase>;

constexpr const char *firstDomain = "abcd", *secondDomain = "pqrs";

// A cache of 85 bytes with two data domains of four objects each, of 10 bytes, all made by creators
// of one type.
class HostileCreator : public testing::Test {
protected:
  HostileCreator() { fill(); }

  void fill() {
    for (const char* name = firstDomain; *name; ++name)
      EXPECT_TRUE(cache->insert(all.add<0>(*name, 10), false));
    for (const char* name = secondDomain; *name; ++name)
      EXPECT_TRUE(cache->insert(all.add<1>(*name, 10), false));
  }

  // Makes room in the first domain, by default by the release of one object.
  bool adjust(memsize_t cost = 10) {
    return cache->adjust(typeid(MakerOf<0>), typeid(DataOf<0>), cost);
  }

  // The sums are right, and another thread finds no queue locked.
  void expectWhole() {
    memsize_t sum = 0;
    std::uint32_t entries = 0;
    for (const char name : all.alive())
      if (all[name]->NumberOfListEntries() > 0) {
        sum += all[name]->memsize();
        ++entries;
      }
    EXPECT_EQ(cache->totalCost(true), sum);
    EXPECT_EQ(cache->nEntries(), entries);
    std::async(std::launch::async, [this] {
      for (const char name : all.alive())
        all[name]->markAsUsed();
    }).get();
  }

  template <class Action>
  void expectDeadlockError(const Action& action) {
    try {
      action();
      ADD_FAILURE() << "no exception";
    } catch (const std::system_error& e) {
      EXPECT_EQ(e.code(), std::errc::resource_deadlock_would_occur);
    }
  }

  const Watchdog watchdog;
  CachePtr cache = new Cache(85, "cache");
  Population all{cache};
};

} // namespace

TEST_F(HostileCreator, DestroysOthers) {
  const struct {
    const char* destroys;
    int answer;
    const char *order, *other, *alive;
  } cases[] = {
      {"b", 2, "dc||", "srqp|-|-", "cdpqrs"},
      {"d", 2, "cb||", "srqp|-|-", "bcpqrs"},
      {"bcd", 2, "||", "srqp|-|-", "pqrs"},
      {"pqrs", 2, "dcb||", "|-|-", "bcd"},
      {"bcdpqrs", 2, "||", "|-|-", ""},
      {"bp", 1, "dc|a|", "srq|-|-", "acdqrs"}, // the destroyed ones made the room
      {"bp", 0, "dc||a", "srq|-|-", "acdqrs"},
      {"bcdpqrs", 1, "|a|", "|-|-", "a"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.destroys);
    cache->forget(typeid(MakerOf<0>));
    fill();
    Maker& maker = all.maker('a');
    maker.onRelease = [&] {
      if (test.answer == 2)
        maker.data = nullptr;
      for (const char* name = test.destroys; *name; ++name)
        all.drop(*name);
      return test.answer;
    };
    EXPECT_TRUE(adjust());
    EXPECT_EQ(order(*cache), test.order);
    EXPECT_EQ(order<1>(*cache), test.other);
    EXPECT_EQ(all.alive(), test.alive);
    expectWhole();
    maker.onRelease = nullptr;
  }
}

TEST_F(HostileCreator, DestroysItself) {
  for (const int answer : {2, 1, 0, 7}) {
    SCOPED_TRACE(answer);
    cache->forget(typeid(MakerOf<0>));
    fill();
    const WeakPtr<Creature> creator = all.maker('a').self();
    all.maker('a').onRelease = [this, answer] {
      const int result = answer;
      all.drop('a');
      return result;
    };
    const Reports reports;
    EXPECT_TRUE(adjust());
    EXPECT_FALSE(creator);
    EXPECT_EQ(all.alive(), "bcdpqrs");
    EXPECT_EQ(order(*cache), "dcb||");
    EXPECT_EQ(reports.count(), answer == 2)
        << "the data go only with the creator, after its answer";
    expectWhole();
  }
}

TEST_F(HostileCreator, DestroysTheCache) {
  const auto insertNew = [](Cache& c, Maker* maker, Data* data) {
    const MakerPtr held = made(maker, data);
    EXPECT_TRUE(c.insert(held->data, false));
  };
  const std::pair<const char*, std::function<void(Cache&)>> operations[] = {
      {"adjust",
       [](Cache& c) { EXPECT_TRUE(c.adjust(typeid(MakerOf<0>), typeid(DataOf<0>), 20)); }},
      {"purge", [](Cache& c) { EXPECT_EQ(c.purge(), 20u); }},
      {"forget", [](Cache& c) { EXPECT_EQ(c.forget(typeid(DataOf<0>)), 20u); }},
      {"insert", [&](Cache& c) { insertNew(c, new MakerOf<0>, new DataOf<0>(20)); }},
      {"insert elsewhere", [&](Cache& c) { insertNew(c, new MakerOf<3>, new DataOf<3>(20)); }},
  };
  for (const auto& [name, operation] : operations) {
    SCOPED_TRACE(name);
    CachePtr own = new Cache(30, "own");
    const WeakPtr<Cache, CacheBase> watched = own;
    for (const char object : {'a', 'b'}) {
      EXPECT_TRUE(own->insert(all.add<0>(object, 10), false));
      all.maker(object).onRelease = [&, object] {
        own = nullptr;
        all.maker(object).data = nullptr;
        return 2;
      };
    }
    EXPECT_TRUE(own->insert(all.add<1>('k', 5, 1), false));
    operation(*own);
    EXPECT_FALSE(watched) << "gone with the last that was in it";
    EXPECT_EQ(all['k']->NumberOfListEntries(), 0u);
    for (const char object : {'a', 'b'})
      all.maker(object).onRelease = nullptr;
  }
}

TEST_F(HostileCreator, ForgetsTheDomainThatAsks) {
  const struct {
    const char* about;
    bool byPurge;
    const std::type_info& type;
    const char* alive;
    memsize_t total;
  } cases[] = {
      {"its data", false, typeid(DataOf<0>), "kp", 10},
      {"its creators", false, typeid(MakerOf<0>), "kz", 10},
      {"its creators, by a purge", true, typeid(MakerOf<0>), "k", 0},
      {"data that the walk has not come to", true, typeid(DataOf<1>), "k", 10},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.about);
    const CachePtr own = new Cache(55, "own");
    Population objects(own);
    EXPECT_TRUE(own->insert(objects.add<0, 0>('a', 10), false));
    EXPECT_TRUE(own->insert(objects.add<0, 0>('b', 10), false));
    EXPECT_TRUE(own->insert(objects.add<0, 0>('k', 10, 1), false)); // stays whatever happens
    EXPECT_TRUE(own->insert(objects.add<1, 0>('p', 10), false));
    EXPECT_TRUE(own->insert(objects.add<0, 1>('z', 10), false));
    bool forgotten = false;
    for (const char name : {'a', 'b'})
      objects.maker(name).onRelease = [&, name] {
        if (!std::exchange(forgotten, true))
          own->forget(test.type);
        objects.maker(name).data = nullptr;
        return 2;
      };
    if (test.byPurge)
      own->purge();
    else
      EXPECT_TRUE(own->adjust(typeid(MakerOf<0>), typeid(DataOf<0>), 10));
    EXPECT_EQ(objects.alive(), test.alive);
    EXPECT_EQ(own->totalCost(true), test.total);
    EXPECT_EQ(own->nEntries(), test.total / 10);
    EXPECT_TRUE(own->insert(objects['k'], false)) << "and begins again";
    for (const char name : {'a', 'b'})
      objects.maker(name).onRelease = nullptr;
  }
}

// There is no room, so the walk over the domains comes by. It skips the one that asks, and does not
// even bring back its temporaries.
TEST_F(HostileCreator, InsertsWithoutRoom) {
  all.maker('a').answer = 1;
  EXPECT_TRUE(adjust());
  EXPECT_EQ(order(*cache), "dc|a|");
  for (const char* name = secondDomain; *name; ++name)
    all.maker(*name).answer = 1;
  all.add<0>('x', 20);
  all.add<1>('y', 20);
  all.add<2, 2>('z', 20);
  int attempts = 0;
  all.maker('c').onRelease = [&] {
    for (const char name : {'x', 'y', 'z'}) {
      EXPECT_FALSE(cache->insert(all[name], false)) << name;
      EXPECT_EQ(order(*cache), "dc|a|");
      ++attempts;
    }
    all.maker('c').data = nullptr;
    return 2;
  };
  EXPECT_TRUE(adjust(20)); // asks a, who came back, and c
  EXPECT_EQ(attempts, 3);
  EXPECT_EQ(order(*cache), "d|a|");
  expectWhole();
}

TEST_F(HostileCreator, InsertsIntoOtherDomainsAndAddsSome) {
  all.add<1>('y', 2);
  all.add<2, 2>('z', 1);
  all.maker('a').onRelease = [&] {
    all.maker('a').data = nullptr;
    EXPECT_TRUE(cache->insert(all['y'], true));
    EXPECT_TRUE(cache->insert(all['z'], false));
    EXPECT_TRUE(cache->touch(all['p']));
    EXPECT_TRUE(all['r']->markAsUsed());
    return 2;
  };
  EXPECT_TRUE(adjust());
  EXPECT_EQ(order(*cache), "dcb||");
  EXPECT_EQ(order<1>(*cache), "rpsqy|-|-");
  EXPECT_EQ((order<2, 2>(*cache)), "z|-|-");
  expectWhole();

  // The walks of a purge survive it as well.
  all.maker('d').onRelease = [&] {
    EXPECT_TRUE(cache->insert(all.add<3, 3>('u', 1), false));
    EXPECT_TRUE(cache->insert(all.add<4>('v', 1), false));
    all.maker('d').data = nullptr;
    return 2;
  };
  cache->purge();
  EXPECT_EQ((order<3, 3>(*cache)), "u|-|-");
  EXPECT_EQ(all.alive(), "uv") << "what was made after the purge began";
  expectWhole();
}

TEST_F(HostileCreator, PushesIntoTheQueueThatAsks) {
  all.add<0>('x', 1);
  const std::pair<const char*, std::function<void()>> pushes[] = {
      {"touch", [&] { cache->touch(all['d']); }},
      {"mark", [&] { all['d']->markAsUsed(); }},
      {"insert what is there", [&] { cache->insert(all['d'], false); }},
      {"insert something new", [&] { cache->insert(all['x'], true); }},
  };
  for (const auto& [name, action] : pushes) {
    SCOPED_TRACE(name);
    const std::function<void()>& push = action;
    all.maker('a').onRelease = [&] {
      all.maker('a').data = nullptr; // so that there is room
      push();
      return 2;
    };
    expectDeadlockError([&] { adjust(); });
    EXPECT_EQ(order(*cache).substr(0, 3), "dcb");
    EXPECT_EQ(order<1>(*cache), "srqp|-|-");
    expectWhole();
    all.maker('a').onRelease = nullptr;
    EXPECT_TRUE(cache->insert(all.add<0>('a', 10), true));
  }
  // Out of the queue that asks is not into it.
  const CachePtr other = new Cache(1000, "other");
  all.maker('a').onRelease = [&] {
    EXPECT_TRUE(other->insert(all['d'], false));
    return 1;
  };
  EXPECT_TRUE(adjust());
  EXPECT_EQ(order(*other), "d|-|-");
  EXPECT_EQ(order(*cache), "cb|a|");
}

TEST_F(HostileCreator, ThrowsOutOfEveryRoad) {
  all.maker('a').onRelease = []() -> int { throw std::runtime_error("no"); };
  EXPECT_THROW(adjust(), std::runtime_error);
  EXPECT_THROW(cache->insert(all.add<0>('x', 10), false), std::runtime_error);
  EXPECT_THROW(cache->insert(all.add<5>('y', 10), false), std::runtime_error);
  EXPECT_THROW(cache->insert(all.add<5, 5>('z', 10), false), std::runtime_error);
  expectWhole();
  EXPECT_THROW(cache->purge(), std::runtime_error);
  EXPECT_EQ(all.alive(), "apqrsxyz");
  expectWhole();
  const Reports reports;
  cache = nullptr;
  EXPECT_EQ(reports.count(), 1);
  EXPECT_EQ(all.alive(), "axyz");
}

TEST_F(HostileCreator, SizesThrowAndPush) {
  const auto throws = [] { throw std::runtime_error("no size"); };
  all.data('d').onMemsize = throws;
  EXPECT_THROW(cache->insert(all['d'], false), std::runtime_error);
  EXPECT_TRUE(cache->touch(all['d'])); // within its queue an object is not asked for its size
  all.data('d').onMemsize = nullptr;
  all.data('a').onMemsize = throws;
  EXPECT_THROW(adjust(), std::runtime_error);
  all.data('a').onMemsize = [&] { cache->touch(all['b']); };
  expectDeadlockError([&] { cache->insert(all['a'], false); });
  all.data('a').onMemsize = nullptr;
  EXPECT_EQ(order(*cache), "bdca||");
  expectWhole();
}

TEST_F(HostileCreator, AnswersForEver) {
  const struct {
    int answer, reports;
    std::size_t asked;
    const char* order;
  } cases[] = {
      {1, 0, 7, "|cbad|"}, // each of three further visits brings one back
      {7, 4, 400, "dcba||"},
      {-2147483647, 4, 400, "dcba||"},
      {2, 404, 400, "dcba||"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.answer);
    const CachePtr own = new Cache(40, "own");
    Population objects(own);
    for (const char* name = firstDomain; *name; ++name) {
      EXPECT_TRUE(own->insert(objects.add<0>(*name, 10), false));
      objects.maker(*name).onRelease = [&] { return test.answer; };
    }
    const Reports reports;
    EXPECT_FALSE(own->insert(objects.add<0>('x', 10), false));
    EXPECT_EQ(objects.asked().size(), test.asked);
    EXPECT_EQ(reports.count(), test.reports);
    EXPECT_EQ(order(*own), test.order);
    EXPECT_EQ(own->totalCost(true), 40u);
    for (const char* name = firstDomain; *name; ++name)
      objects.maker(*name).onRelease = nullptr;
  }
}

// The sums are what the sizes said at each step, and the walks end all the same.
TEST_F(HostileCreator, SizesChangeWithEveryLook) {
  const memsize_t sizes[] = {0, memsize_t{1} << 63, 3, ~memsize_t{0}, 17};
  std::size_t next = 0;
  const auto change = [&](char name) {
    Data& data = all.data(name);
    data.onMemsize = [&data, &next, &sizes] { data.size = sizes[next++ % std::size(sizes)]; };
  };
  for (const char* name = firstDomain; *name; ++name)
    change(*name);
  for (int i = 0; i < 200; ++i) {
    const char name = firstDomain[i % 4];
    if (!all[name]) {
      all.add<0>(name, 10);
      change(name);
    }
    cache->insert(all[name], i % 3 == 0);
    if (all[name]) {
      cache->touch(all[name]);
    }
    adjust(static_cast<memsize_t>(i));
    EXPECT_LE(cache->nEntries(), all.alive().size());
  }
  for (const char* name = firstDomain; *name; ++name)
    all.drop(*name);
  EXPECT_EQ(order(*cache), "||");
  EXPECT_EQ(cache->nEntries(), all.alive().size());
}

TEST_F(HostileCreator, ComesBackInThroughEveryDoor) {
  const std::pair<const char*, std::function<void()>> doors[] = {
      {"purge", [&] { cache->purge(); }},
      {"adjust", [&] { EXPECT_TRUE(adjust()) << "the other domain has room"; }},
      {"adjust another domain",
       [&] { EXPECT_TRUE(cache->adjust(typeid(MakerOf<0>), typeid(DataOf<1>), 10)); }},
      {"zombies",
       [&] {
         cache->insert_zombie(all['b']);
         all.drop('b');
         cache->purge_Hades();
         EXPECT_FALSE(all['b']);
       }},
      {"listing", [&] { EXPECT_NE(printed([&] { cache->list_info(); }), ""); }},
      {"another cache",
       [&] {
         const CachePtr other = new Cache(10, "other");
         EXPECT_TRUE(other->insert(all.add<0>('x', 5), false));
         EXPECT_TRUE(other->insert(all.add<0>('y', 6), false));
         EXPECT_FALSE(all['x']);
       }},
  };
  for (const auto& [name, action] : doors) {
    SCOPED_TRACE(name);
    const std::function<void()>& door = action;
    cache->forget(typeid(MakerOf<0>));
    fill();
    int depth = 0;
    all.maker('a').onRelease = [&] {
      if (depth++ == 0)
        door();
      --depth;
      return 1;
    };
    EXPECT_TRUE(adjust());
    expectWhole();
    all.maker('a').onRelease = nullptr;
  }
}

// A creator has no strong pointer any more while it is destroyed, and its data are still there.
TEST_F(HostileCreator, MakesRoomWhileItDies) {
  struct Dying : Maker {
    explicit Dying(std::function<void()> action) : last(std::move(action)) {}
    ~Dying() override { last(); }
    std::function<void()> last;
  };
  const std::pair<std::function<void()>, const char*> actions[] = {
      {[&] { EXPECT_TRUE(adjust()); }, "dcb|x|"},
      {[&] { EXPECT_EQ(cache->purge(), 80u); }, "x||"},
  };
  for (const auto& [action, expected] : actions) {
    cache->forget(typeid(MakerOf<0>));
    fill();
    const std::string after = expected;
    EXPECT_TRUE(cache->adjust(typeid(MakerOf<0>), typeid(DataOf<0>), 0)); // makes the side queues
    MakerPtr maker = made(new Dying([&action = action, after, this] {
                            action();
                            // Whether the side queues are there already does not matter here.
                            std::string queues = order(*cache);
                            std::erase(queues, '-');
                            EXPECT_EQ(queues, after);
                          }),
                          new DataOf<0>(0, "x"));
    const CacheMultiQueue* queues =
        cache->objects().creatorDomain(typeid(MakerOf<0>))->domain(typeid(DataOf<0>));
    EXPECT_TRUE(maker->data->push_back(const_cast<CacheQueue&>(*queues->primary())));
    maker = nullptr;
    expectWhole();
  }
}

// Two threads, each asked by the queue that the other one wants to push into.
TEST_F(HostileCreator, InsertsCrosswise) {
  all.add<0>('x', 1);
  all.add<1>('y', 1);
  all.add<0>('u', 30);
  all.add<1>('v', 30);
  std::atomic<int> arrived{0};
  const auto meet = [&arrived](int count) {
    for (++arrived; arrived < count;)
      std::this_thread::yield();
  };
  const auto cross = [&](char oldest, const char* others) {
    all.maker(oldest).onRelease = [&, oldest, others] {
      meet(2); // both are inside now, and until both are done
      EXPECT_FALSE(cache->touch(all[others[0]]));
      EXPECT_FALSE(all[others[0]]->markAsUsed());
      EXPECT_FALSE(cache->insert(all[others[1]], false)) << "where there is room";
      EXPECT_FALSE(cache->insert(all[others[2]], true)) << "and where there is none";
      meet(4);
      all.maker(oldest).data = nullptr;
      return 2;
    };
  };
  cross('a', "qyv");
  cross('p', "bxu");
  auto other = std::async(std::launch::async,
                          [&] { return cache->adjust(typeid(MakerOf<0>), typeid(DataOf<1>), 10); });
  EXPECT_TRUE(adjust());
  EXPECT_TRUE(other.get());
  EXPECT_EQ(order(*cache), "dcb||");
  EXPECT_EQ(order<1>(*cache), "srq||");
  expectWhole();
}
