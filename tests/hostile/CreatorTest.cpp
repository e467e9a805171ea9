// Creators, data objects and caches that do in their operations what no reasonable one does.
// Nothing of it may hang, crash, break a ring, or leave a queue locked.

#include "support/CacheFixtures.hpp"
#include "support/Hostile.hpp"

#include <tolvane/DataCreature.hpp>

#include <future>
#include <stdexcept>
#include <system_error>

using namespace cachetest;
using hostile::Action;

namespace {

// Where something is done, and what.
std::string place;
Action deed;
void at(const char* name) {
  if (place == name)
    hostile::act(deed);
}

struct WorstData : Data {
  using Data::Data;
  memsize_t memsize() const override { return at("memsize"), Data::memsize(); }
  const std::type_info& DomainType() const override { return at("DomainType"), typeid(WorstData); }
  const std::type_info& CreatorType() const override {
    return at("CreatorType"), Data::CreatorType();
  }
};
struct WorstMaker : Maker {
  using Maker::Maker;
  int release() override { return at("release"), Maker::release(); }
  StrongPtr<Cacheable> getCacheable() const override {
    const StrongPtr<Cacheable> held = data; // which goes with the creator
    return at("getCacheable"), held;
  }
  bool isReproducible() const override { return at("isReproducible"), true; }
  std::string hasProducer() const override { return at("hasProducer"), ""; }
};
struct WorstCache : Cache {
  using Cache::Cache;
  memsize_t limit() const override { return at("limit"), Cache::limit(); }
  memsize_t totalCost(bool all) const override { return at("totalCost"), Cache::totalCost(all); }
  bool handleOutOfMemory(const StrongPtr<Cacheable>&, const WeakPtr<Creature>&) override {
    return at("handleOutOfMemory"), false;
  }
};

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

  void expectWhole(const std::vector<MakerPtr>& others = {}) {
    cachetest::expectWhole(*cache, all, others);
  }

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

// Each place throws, looks at everything, or works in another domain, in the middle of everything.
TEST_F(HostileCreator, DoesItsWorstInEveryPlace) {
  Messages messages; // so that what is only said to listeners is worked out
  cache = new WorstCache(85, "cache");
  const std::pair<const char*, Action> deeds[] = {
      {"throw", [] { throw std::runtime_error("from inside"); }},
      {"look",
       [&] {
         cache->statistics();
         cache->list_info();
         cache->nEntries();
         order<1>(*cache);
       }},
      {"work elsewhere",
       [&] {
         cache->insert(all['p'], false);
         cache->touch(all['q']);
         cache->insert_zombie(all['r']);
         cache->adjust(typeid(MakerOf<0>), typeid(DataOf<1>), 50);
         const CachePtr other = new Cache(10, "other");
         EXPECT_TRUE(other->insert(all['s'], false) || !all['s']);
         cache->purge();
       }},
  };
  const char* const places[] = {"memsize",      "DomainType",       "CreatorType", "release",
                                "getCacheable", "isReproducible",   "hasProducer", "limit",
                                "totalCost",    "handleOutOfMemory"};
  const std::type_info &maker = typeid(WorstMaker), &data = typeid(WorstData);
  std::vector<MakerPtr> makers;
  const auto add = [&](memsize_t size, int answer) {
    makers.push_back(made(new WorstMaker(cache), new WorstData(size)));
    makers.back()->answer = answer;
  };
  const Action operations[] = {
      [&] { cache->insert(makers[0]->data, true); },
      [&] { cache->touch(makers[1]->data); },
      [&] { makers[1]->data->markAsUsed(); },
      [&] { cache->list_info(); },
      [&] { cache->statistics(); },
      [&] { makers[3]->enableCaching(false); }, // evicts
      [&] { cache->adjust(maker, data, 70); },
      [&] { makers[4]->enableCaching(false); }, // finds no room
      [&] { cache->purge(); },
      [&] { cache->forget(data); },
  };
  for (const char* const where : places) {
    int thrown = 0;
    for (const auto& [name, what] : deeds) {
      SCOPED_TRACE(std::string(where) + " / " + name);
      makers.clear();
      for (const char object : secondDomain)
        EXPECT_TRUE(cache->insert(all.add<1>(object, 5, object == 'p' ? 1 : 2), false));
      for (const int answer : {0, 1, 2})
        add(20, answer);
      for (const MakerPtr& each : makers)
        EXPECT_TRUE(cache->insert(each->data, false));
      add(30, 2);
      add(1000, 2);
      place = where;
      deed = what;
      hostile::left = 50;
      printed([&] {
        for (const Action& operation : operations)
          try {
            operation();
          } catch (const std::runtime_error&) {
            ++thrown;
          } catch (const Cache::OutOfMemory&) {
          }
      });
      place.clear();
      expectWhole(makers);
    }
    EXPECT_GT(thrown, 0) << where << " was never come to";
  }
  makers.clear();
  for (const char object : secondDomain)
    all.drop(object);
  EXPECT_EQ(cache->totalCost(true) + cache->nEntries(), 0u);
}

// What is being handed over, asked, or walked over lets go of the one who does it, or of the cache.
TEST_F(HostileCreator, DestroysWhatIsJustAtWork) {
  struct Suicide : DataCreature<Data> {
    explicit Suicide(const WeakCachePtr& c) : DataCreature(c) {}
    Pointer create() override { return at("create"), new Data(1); }
  };
  struct Visitor : CacheQueue::Iterator {
    bool visit(Cacheable&) override { return at("visit"), true; }
  } visitor;
  CachePtr own;
  MakerPtr maker;
  StrongPtr<Suicide, Creature> suicide;
  const auto enable = [&](bool fits) {
    own = new WorstCache(fits ? 100 : 5, "own");
    maker = made(new WorstMaker(own), new WorstData(fits ? 10 : 1000));
    EXPECT_EQ(own->insert(maker->data, false), fits);
    maker->enableCaching(false);
  };
  const auto walk = [&] {
    enable(true);
    const CacheMultiQueue* queues =
        own->objects().creatorDomain(typeid(WorstMaker))->domain(typeid(WorstData));
    queues->primary()->iterate(visitor);
  };
  const auto zombie = [&](bool byInsertion) {
    enable(true);
    auto* data = new WorstData(1);
    data->onDeath = [] { at("onDeath"); };
    own->insert_zombie(StrongPtr<Cacheable>(data));
    byInsertion ? void(own->insert(maker->data, false)) : own->purge_Hades();
  };
  const Action dropMaker = [&] { maker = nullptr; }, dropCache = [&] { own = nullptr; },
               throwing = [] { throw std::runtime_error("from inside"); };
  const struct {
    const char* where;
    Action what, operation;
  } cases[] = {
      {"getCacheable", dropMaker, [&] { enable(true); }},
      {"getCacheable", dropCache, [&] { enable(true); }},
      {"handleOutOfMemory", dropMaker, [&] { enable(false); }},
      {"handleOutOfMemory", dropCache, [&] { enable(false); }},
      {"handleOutOfMemory", throwing, [&] { enable(false); }},
      {"handleOutOfMemory", [&] { maker->enableCaching(false); }, [&] { enable(false); }},
      {"create", [&] { suicide = nullptr; }, [&] { suicide->data(); }},
      {"visit", dropCache, walk},
      {"visit", dropMaker, walk},
      {"visit", throwing, walk},
      {"onDeath", dropCache, [&] { zombie(false); }},
      {"onDeath", dropCache, [&] { zombie(true); }},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.where);
    suicide = new Suicide(cache);
    int done = 0;
    place = test.where;
    hostile::left = 5;
    deed = [&] {
      ++done;
      test.what();
    };
    try {
      printed(test.operation);
    } catch (const std::runtime_error&) {
    } catch (const char* text) {
      EXPECT_STREQ(text, "No Cache!");
    }
    place.clear();
    EXPECT_GT(done, 0);
    const WeakCachePtr watched = own;
    maker = nullptr;
    own = nullptr;
    EXPECT_FALSE(watched) << "nothing holds it any more";
  }
  deed = nullptr;
}

// A size that changes behind the back of the library shifts the sum of its queue by exactly the
// difference when it leaves.
TEST_F(HostileCreator, SizeShift) {
  const std::type_info &maker = typeid(MakerOf<0>), &data = typeid(DataOf<0>);
  for (const memsize_t lie : {memsize_t{0}, memsize_t{7}, memsize_t{1} << 63, largest}) {
    SCOPED_TRACE(lie);
    cache = new Cache(100, "own");
    EXPECT_TRUE(cache->insert(all.add('a', 5, 0), true));
    all.data('a').size = lie;
    EXPECT_TRUE(cache->touch(all['a']) && all['a']->markAsUsed());
    EXPECT_EQ(cache->totalCost(false), 5u) << "within its queue nothing is counted anew";
    EXPECT_TRUE(cache->adjust(maker, data, 96));
    EXPECT_EQ(order(*cache), "||a");
    EXPECT_EQ(cache->totalCost(false), 5 - lie);
    EXPECT_EQ(cache->totalCost(true), 5u) << "kept with what it says now";
    all.data('a').size = 3;
    all.drop('a');
    EXPECT_EQ(cache->totalCost(false), 5 - lie);
    EXPECT_EQ(cache->totalCost(true), 2u);
    EXPECT_EQ(cache->nEntries(), 0u);
  }
}
