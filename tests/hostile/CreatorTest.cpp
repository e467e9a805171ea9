// Creators that do in their release what no reasonable creator does. Nothing of it may hang, crash,
// break a ring, or leave a queue locked.

#include "support/CacheFixtures.hpp"

#include <future>
#include <stdexcept>
#include <system_error>

using namespace cachetest;

namespace {

const std::string firstDomain = "abcd", secondDomain = "pqrs";

// A cache of 85 bytes with two data domains of four objects each, of 10 bytes, all made by creators
// of one type.
class HostileCreator : public testing::Test {
protected:
  HostileCreator() { fill(); }

  void fill() {
    cache->forget(typeid(MakerOf<0>));
    for (const char name : firstDomain)
      EXPECT_TRUE(cache->insert(all.add<0>(name, 10), false));
    for (const char name : secondDomain)
      EXPECT_TRUE(cache->insert(all.add<1>(name, 10), false));
  }
  int letGo(char name) {
    all.maker(name).data = nullptr;
    return 2;
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

TEST_F(HostileCreator, DestroysOthersOrItself) {
  const struct {
    const char* destroys;
    int answer;
    const char *order, *other;
    int reports;
  } cases[] = {
      {"b", 2, "dc||", "srqp|-|-", 0},  {"d", 2, "cb||", "srqp|-|-", 0},
      {"bcd", 2, "||", "srqp|-|-", 0},  {"bcdpqrs", 2, "||", "|-|-", 0},
      {"bp", 1, "dc|a|", "srq|-|-", 0}, // the destroyed ones made the room
      {"bp", 0, "dc||a", "srq|-|-", 0}, {"bcdpqrs", 1, "|a|", "|-|-", 0},
      {"a", 2, "dcb||", "srqp|-|-", 1}, // the data go only with the creator, after its answer
      {"a", 1, "dcb||", "srqp|-|-", 0}, {"a", 0, "dcb||", "srqp|-|-", 0},
      {"a", 7, "dcb||", "srqp|-|-", 0},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.destroys + std::to_string(test.answer));
    fill();
    all.maker('a').onRelease = [this, names = std::string(test.destroys), answer = test.answer] {
      const int result = answer; // which goes with the creator
      if (answer == 2 && names != "a")
        letGo('a');
      for (const char name : std::string(names))
        all.drop(name);
      return result;
    };
    const Reports reports;
    EXPECT_TRUE(adjust());
    EXPECT_EQ(order(*cache), test.order);
    EXPECT_EQ(order<1>(*cache), test.other);
    EXPECT_EQ(reports.count(), test.reports);
    EXPECT_EQ(all.alive().size(), cache->nEntries());
    expectWhole();
  }
}

TEST_F(HostileCreator, DestroysTheCache) {
  const auto insertNew = [](Cache& c, Maker* maker, Data* data) {
    const MakerPtr held = made(maker, data);
    return c.insert(held->data, false);
  };
  const std::pair<const char*, std::function<bool(Cache&)>> operations[] = {
      {"adjust", [](Cache& c) { return c.adjust(typeid(MakerOf<0>), typeid(DataOf<0>), 20); }},
      {"purge", [](Cache& c) { return c.purge() == 20; }},
      {"forget", [](Cache& c) { return c.forget(typeid(DataOf<0>)) == 20; }},
      {"insert", [&](Cache& c) { return insertNew(c, new MakerOf<0>, new DataOf<0>(20)); }},
      {"insert new", [&](Cache& c) { return insertNew(c, new MakerOf<3>, new DataOf<3>(20)); }},
  };
  for (const auto& [name, operation] : operations) {
    SCOPED_TRACE(name);
    CachePtr own = new Cache(30, "own");
    const WeakCachePtr watched = own;
    for (const char object : {'a', 'b'}) {
      EXPECT_TRUE(own->insert(all.add<0>(object, 10), false));
      all.maker(object).onRelease = [&, object] {
        own = nullptr;
        return letGo(object);
      };
    }
    EXPECT_TRUE(own->insert(all.add<1>('k', 5, 1), false));
    EXPECT_TRUE(operation(*own));
    EXPECT_FALSE(watched) << "gone with the last that was in it";
    EXPECT_EQ(all['k']->NumberOfListEntries(), 0u);
    all.calm();
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
  for (const char name : all.alive())
    all.drop(name);
  for (const auto& test : cases) {
    SCOPED_TRACE(test.about);
    cache = new Cache(55, "own");
    bool forgotten = false;
    for (const auto& object : {all.add('a', 10), all.add('b', 10), all.add('k', 10, 1),
                               all.add<1, 0>('p', 10), all.add<0, 1>('z', 10)})
      EXPECT_TRUE(cache->insert(object, false));
    for (const char name : {'a', 'b'})
      all.maker(name).onRelease = [&, name] {
        if (!std::exchange(forgotten, true))
          cache->forget(test.type);
        return letGo(name);
      };
    EXPECT_TRUE(test.byPurge ? cache->purge() > 0 : adjust());
    EXPECT_EQ(all.alive(), test.alive);
    EXPECT_EQ(cache->totalCost(true), test.total);
    EXPECT_TRUE(cache->insert(all['k'], false)) << "and begins again";
    expectWhole();
    all.calm();
  }
}

// There is no room, so the walk over the domains comes by. It skips the one that asks, and does not
// even bring back its temporaries.
TEST_F(HostileCreator, InsertsWithoutRoom) {
  for (const char name : "a" + secondDomain)
    all.maker(name).answer = 1;
  EXPECT_TRUE(adjust());
  EXPECT_EQ(order(*cache), "dc|a|");
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
    return letGo('c');
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
    letGo('a');
    EXPECT_TRUE(cache->insert(all['y'], true) && cache->insert(all['z'], false));
    EXPECT_TRUE(cache->touch(all['p']) && all['r']->markAsUsed());
    return 2;
  };
  EXPECT_TRUE(adjust());
  EXPECT_EQ(order(*cache) + ' ' + order<1>(*cache), "dcb|| rpsqy|-|-");
  EXPECT_EQ((order<2, 2>(*cache)), "z|-|-");
  expectWhole();

  // The walks of a purge survive it as well.
  all.maker('d').onRelease = [&] {
    EXPECT_TRUE(cache->insert(all.add<3, 3>('u', 1), false));
    EXPECT_TRUE(cache->insert(all.add<4>('v', 1), false));
    return letGo('d');
  };
  cache->purge();
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
  for (const auto& [name, push] : pushes) {
    SCOPED_TRACE(name);
    all.maker('a').onRelease = [this, action = push] {
      letGo('a'); // so that there is room
      action();
      return 2;
    };
    expectDeadlockError([&] { adjust(); });
    EXPECT_EQ(order(*cache).substr(0, 3) + order<1>(*cache), "dcbsrqp|-|-");
    expectWhole();
    EXPECT_TRUE(cache->insert(all.add<0>('a', 10), true));
  }
  // Out of the queue that asks is not into it.
  const CachePtr other = new Cache(1000, "other");
  all.maker('a').onRelease = [&] {
    EXPECT_TRUE(other->insert(all['d'], false));
    return 1;
  };
  EXPECT_TRUE(adjust());
  EXPECT_EQ(order(*other) + ' ' + order(*cache), "d|-|- cb|a|");
  const Reports reports;
  all.maker('b').onRelease = [&] { return other->insert(all['b'], false) ? 2 : 1; };
  EXPECT_TRUE(adjust(30));
  EXPECT_EQ(order(*other), "bd|-|-") << "released, and alive elsewhere";
  EXPECT_EQ(reports.count(), 0);
}

TEST_F(HostileCreator, ThrowsOutOfEveryRoad) {
  all.maker('a').onRelease = []() -> int { throw std::runtime_error("no"); };
  EXPECT_THROW(adjust(), std::runtime_error);
  for (const auto& object : {all.add<0>('x', 10), all.add<5>('y', 10), all.add<5, 5>('z', 10)})
    EXPECT_THROW(cache->insert(object, false), std::runtime_error);
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

// The sums are what the sizes said at each step, and the walks end all the same.
TEST_F(HostileCreator, SizesChangeWithEveryLook) {
  const memsize_t sizes[] = {0, memsize_t{1} << 63, 3, largest, 17};
  std::size_t next = 0;
  for (std::size_t i = 0; i < 200; ++i) {
    const char name = firstDomain[i % 4];
    if (i < 4 || !all[name]) {
      all.add<0>(name, 10);
      all.data(name).onMemsize = [&, &data = all.data(name)] {
        data.size = sizes[next++ % std::size(sizes)];
      };
    }
    cache->insert(all[name], i % 3 == 0);
    if (all[name])
      cache->touch(all[name]);
    adjust(i);
    EXPECT_LE(cache->nEntries(), all.alive().size());
  }
  for (const char name : firstDomain)
    all.drop(name);
  EXPECT_EQ(order(*cache), "||");
  EXPECT_EQ(cache->nEntries(), all.alive().size());
}

TEST_F(HostileCreator, ComesBackInThroughEveryDoor) {
  const std::type_info &maker = typeid(MakerOf<0>), &second = typeid(DataOf<1>);
  const std::pair<const char*, std::function<void()>> doors[] = {
      {"purge", [&] { cache->purge(); }},
      {"adjust", [&] { EXPECT_TRUE(adjust()) << "the other domain has room"; }},
      {"adjust another domain", [&] { EXPECT_TRUE(cache->adjust(maker, second, 10)); }},
      {"listing", [&] { EXPECT_NE(printed([&] { cache->list_info(); }), ""); }},
      {"zombies",
       [&] {
         cache->insert_zombie(all['b']);
         all.drop('b');
         cache->purge_Hades();
         EXPECT_FALSE(all['b']);
       }},
      {"another cache",
       [&] {
         const CachePtr other = new Cache(10, "other");
         EXPECT_TRUE(other->insert(all.add<0>('x', 5), false));
         EXPECT_TRUE(other->insert(all.add<0>('y', 6), false));
         EXPECT_FALSE(all['x']);
       }},
  };
  for (const auto& [name, door] : doors) {
    SCOPED_TRACE(name);
    fill();
    all.maker('a').onRelease = [depth = 0, action = door]() mutable {
      if (depth++ == 0)
        action();
      --depth;
      return 1;
    };
    EXPECT_TRUE(adjust());
    expectWhole();
    all.calm();
  }
}

// A creator has no strong pointer any more while it is destroyed, and its data are still there.
TEST_F(HostileCreator, MakesRoomWhileItDies) {
  struct Dying : Maker {
    explicit Dying(std::function<void()> action) : last(std::move(action)) {}
    ~Dying() override { last(); }
    std::function<void()> last;
  };
  const std::pair<std::function<bool()>, const char*> actions[] = {
      {[&] { return adjust(); }, "dcb|x|"},
      {[&] { return cache->purge() == 80; }, "x|-|-"},
  };
  for (const auto& [action, expected] : actions) {
    fill();
    MakerPtr maker = made(new Dying([this, act = action, after = std::string(expected)] {
                            EXPECT_TRUE(act());
                            EXPECT_EQ(order(*cache), after);
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
  for (const char* names : {"aqyv", "pbxu"}) // who is asked, and what it wants to push
    all.maker(names[0]).onRelease = [&, names] {
      meet(2); // both are inside now, and until both are done
      EXPECT_FALSE(cache->touch(all[names[1]]) || all[names[1]]->markAsUsed());
      EXPECT_FALSE(cache->insert(all[names[2]], false)) << "where there is room";
      EXPECT_FALSE(cache->insert(all[names[3]], true)) << "and where there is none";
      meet(4);
      return letGo(names[0]);
    };
  auto other = std::async(std::launch::async,
                          [&] { return cache->adjust(typeid(MakerOf<0>), typeid(DataOf<1>), 10); });
  EXPECT_TRUE(adjust());
  EXPECT_TRUE(other.get());
  EXPECT_EQ(order(*cache) + ' ' + order<1>(*cache), "dcb|| srq||");
  expectWhole();
}
