// Creators, data objects, caches, and what these call in between, that do in their operations what
// no reasonable one does. Nothing of it may hang, crash, break a ring, or leave a queue locked.

#include "support/CacheFixtures.hpp"
#include "support/Hostile.hpp"

#include <tolvane/AssertionCallback.hpp>
#include <tolvane/Breakpoint.hpp>
#include <tolvane/DataCreature.hpp>

#include <future>
#include <system_error>

using namespace cachetest;
using namespace hostile;

namespace {

const std::string firstDomain = "abcd", secondDomain = "pqrs";

// A cache of 85 bytes with two data domains of four objects each, of 10 bytes, all made by creators
// of one type.
class HostileInCache : public Hostile {
protected:
  HostileInCache() { fill(); }

  void fill() {
    all.calm();
    cache = new Cache(85, "cache");
    for (const char name : firstDomain)
      EXPECT_TRUE(cache->insert(all.add<0>(name, 10), false));
    for (const char name : secondDomain)
      EXPECT_TRUE(cache->insert(all.add<1>(name, 10), false));
  }
  void check(const std::vector<MakerPtr>& others = {}) {
    if (cache)
      expectWhole(*cache, all, others);
    const WeakCachePtr watched = cache;
    cache = nullptr;
    EXPECT_FALSE(watched) << "nothing holds it any more";
  }
  int letGo(char name) {
    all.maker(name).data = nullptr;
    return 2;
  }
  // Makes room in the first domain, by default by the release of one object.
  bool adjust(memsize_t cost = 10) {
    return cache->adjust(typeid(MakerOf<0>), typeid(DataOf<0>), cost);
  }

  // Those who push into the queue that asks get an error.
  const std::vector<Deed> deeds = {
      throwing(),
      {"use",
       [&] {
         cache && cache->touch(all['b']);
         const StrongPtr<Cacheable> held = all['c'].lock();
         held && held->markAsUsed();
       },
       true},
      {"insert", [&] { cache && cache->insert(all['p'], true) && cache->insert(all['a'], true); },
       true},
      {"purge", [&] { cache ? cache->purge() : 0; }},
      {"make room", [&] { cache&& adjust(30) && cache->adjust(typeid(int), typeid(int), 40); }},
      {"list", [&] { cache ? cache->list_info() : void(); }},
      {"destroy the cache", [&] { cache = nullptr; }},
  };
  CachePtr cache;
  Population all;
};

} // namespace

// The oldest of the first domain does something when it is asked, and answers something.
TEST_F(HostileInCache, WhatIsAskedChangesTheQueues) {
  const auto drop = [this](const char* names) {
    return [this, names] {
      for (const char name : std::string(names))
        all.drop(name);
    };
  };
  const CachePtr other = new Cache(1000, "other");
  const struct {
    const char* name;
    std::function<void()> action;
    int answer; // 2 lets go before the action, -2 only with the creator
    const char *order, *others;
    int reports = 0;
    bool deadlock = false; // for those who push into the queue that asks
  } cases[] = {
      {"destroy b", drop("b"), 2, "dc||", "srqp|-|-"},
      {"destroy d", drop("d"), 2, "cb||", "srqp|-|-"},
      {"destroy bcd", drop("bcd"), 2, "||", "srqp|-|-"},
      {"destroy all", drop("bcdpqrs"), 2, "||", "|-|-"},
      {"destroyed ones make room", drop("bp"), 1, "dc|a|", "srq|-|-"},
      {"destroyed ones make room", drop("bp"), 0, "dc||a", "srq|-|-"},
      {"destroy all", drop("bcdpqrs"), 1, "|a|", "|-|-"},
      {"destroy itself", drop("a"), -2, "dcb||", "srqp|-|-", 1},
      {"destroy itself", drop("a"), 1, "dcb||", "srqp|-|-"},
      {"destroy itself", drop("a"), 0, "dcb||", "srqp|-|-"},
      {"destroy itself", drop("a"), 7, "dcb||", "srqp|-|-"},
      {"touch", [&] { cache->touch(all['d']); }, 2, "dcb||", "srqp|-|-", 0, true},
      {"mark", [&] { all['d']->markAsUsed(); }, 2, "dcb||", "srqp|-|-", 0, true},
      {"insert again", [&] { cache->insert(all['d'], false); }, 2, "dcb||", "srqp|-|-", 0, true},
      {"insert", [&] { cache->insert(all['x'], true); }, 2, "dcb||", "srqp|-|-", 0, true},
      // Out of the queue that asks is not into it.
      {"move", [&] { other->insert(all['d'], false); }, 1, "cb|a|", "srqp|-|-"},
      {"move itself", [&] { other->insert(all['a'], false); }, -2, "dcb||", "srqp|-|-"},
      {"work elsewhere",
       [&] {
         EXPECT_TRUE(cache->insert(all['y'], true) && cache->touch(all['p']) &&
                     all['r']->markAsUsed());
       },
       2, "dcb||", "rpsqy|-|-"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name + std::to_string(test.answer));
    fill();
    all.add<0>('x', 1);
    all.add<1>('y', 2);
    all.maker('a').onRelease = [&all = all, action = test.action, answer = test.answer] {
      const int result = std::max(answer, -answer); // which goes with the creator
      if (answer == 2)
        all.maker('a').data = nullptr;
      const std::function<void()> held = action;
      held();
      return result;
    };
    const Reports reports;
    if (test.deadlock)
      try {
        adjust();
        ADD_FAILURE() << "no exception";
      } catch (const std::system_error& e) {
        EXPECT_EQ(e.code(), std::errc::resource_deadlock_would_occur);
      }
    else
      EXPECT_TRUE(adjust());
    EXPECT_EQ(order(*cache) + ' ' + order<1>(*cache), std::string(test.order) + ' ' + test.others);
    EXPECT_EQ(reports.count(), test.reports);
    all.calm();
    other->purge();
    expectWhole(*cache, all);
  }
}

TEST_F(HostileInCache, ForgetsTheDomainThatAsks) {
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
    expectWhole(*cache, all);
    all.calm();
  }
}

// There is no room, so the walk over the domains comes by. It skips the one that asks, and does not
// even bring back its temporaries.
TEST_F(HostileInCache, InsertsWithoutRoom) {
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
  expectWhole(*cache, all);
}

TEST_F(HostileInCache, AddsDomainsWhileAPurgeWalksThem) {
  all.maker('d').onRelease = [&] {
    EXPECT_TRUE(cache->insert(all.add<3, 3>('u', 1), false));
    EXPECT_TRUE(cache->insert(all.add<4>('v', 1), false));
    return letGo('d');
  };
  cache->purge();
  EXPECT_EQ(all.alive(), "uv") << "what was made after the purge began";
  expectWhole(*cache, all);
}

// The sums are what the sizes said at each step, and the walks end all the same.
TEST_F(HostileInCache, SizesChangeWithEveryLook) {
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

// Two threads, each asked by the queue that the other one wants to push into.
TEST_F(HostileInCache, InsertsCrosswise) {
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
  expectWhole(*cache, all);
}

namespace {

// Where something is done, and how often somebody came there.
std::string place;
int visits = 0;
void at(const char* name) {
  if (place != name)
    return;
  ++visits;
  act(onCall);
}

struct WorstData : Data {
  using Data::Data;
  memsize_t memsize() const override { return at("memsize"), Data::memsize(); }
  const std::type_info& DomainType() const override { return at("DomainType"), typeid(WorstData); }
  const std::type_info& CreatorType() const override {
    return at("CreatorType"), Data::CreatorType();
  }
  void unction() override { at("unction"); }
};
struct WorstMaker : Maker {
  using Maker::Maker;
  int release() override {
    const StrongPtr<Creature> held(self());
    return at("release"), Maker::release();
  }
  StrongPtr<Cacheable> getCacheable() const override {
    const StrongPtr<Cacheable> held = data; // which goes with the creator
    return at("getCacheable"), held;
  }
  bool isReproducible() const override { return at("isReproducible"), true; }
  std::string hasProducer() const override { return at("hasProducer"), ""; }
  void unction() override { at("unction"); }
};
struct WorstCache : Cache {
  using Cache::Cache;
  memsize_t limit() const override { return at("limit"), Cache::limit(); }
  memsize_t totalCost(bool every) const override {
    return at("totalCost"), Cache::totalCost(every);
  }
  bool handleOutOfMemory(const StrongPtr<Cacheable>&, const WeakPtr<Creature>&) override {
    return at("handleOutOfMemory"), false;
  }
};
struct WorstQuarry : DataCreature<Data> {
  using DataCreature::DataCreature;
  Pointer create() override { return at("create"), new Data(1); }
};
struct WorstVisitor : CacheQueue::Iterator {
  bool visit(Cacheable&) override { return at("visit"), true; }
};
struct WorstCatcher : VerboseCatcher {
  void catchMessage(int, const std::string&, const std::string&, const std::string&, int,
                    char) override {
    if (onEnd && place == "catchMessage")
      installed = nullptr; // so that its end comes while it is called
    at("catchMessage");
  }
  static void install() {
    installed = new Mortal<WorstCatcher>;
    theCatcher = installed;
  }
  static inline StrongPtr<WorstCatcher, VerboseCatcher> installed;
};
struct WorstCallback : AssertionCallback {
  bool assertion(const std::string&, const StackFrames&) override { return at("assertion"), false; }
  static void install() { registerCallback(std::make_shared<Mortal<WorstCallback>>()); }
};

} // namespace

// Each place throws, looks at everything, or works in another domain, in the middle of everything;
// or it destroys who is asked, or the cache. So do creators, data and catchers when they die.
TEST_F(HostileInCache, EveryPlaceDoesItsWorst) {
  // Breakpoints are for the whole process, and decided upon once: so this runs itself again.
  const char* const variable = "TOLVANE_ENABLE_BREAKPOINTS";
  if (!std::getenv(variable)) {
    const ProbeResult run =
        runProbe({"--gtest_filter=*EveryPlaceDoesItsWorst"},
                 {.environment = {{variable, "1"}},
                  .program = TOLVANE_TEST_HOST_DIR "/tolvane-hostile" TOLVANE_TEST_PROGRAM_SUFFIX});
    EXPECT_EQ(run.exitCode, 0) << run.out << run.err;
    EXPECT_NE(run.out.find("[  PASSED  ] 1 test"), std::string::npos) << run.out;
    return;
  }
  const std::type_info &maker = typeid(Mortal<WorstMaker>), &data = typeid(WorstData);
  MakerPtr makers[5]; // with all answers and in the cache, evicting others, and too large for it
  StrongPtr<WorstQuarry, Creature> quarry;
  StrongPtr<Cacheable> saved;
  const auto enable = [&](const MakerPtr& which) {
    return [&] {
      try {
        which ? which->enableCaching(false) : void();
      } catch (const char* text) {
        EXPECT_STREQ(text, "No Cache!");
      }
    };
  };
  const std::vector<Deed> operations = {
      {"insert", [&] { cache->insert(makers[0]->data, true); }},
      {"touch", [&] { cache->touch(makers[1]->data); }},
      {"mark", [&] { makers[1]->data->markAsUsed(); }},
      {"list", [&] { cache->list_info(); }},
      {"look", [&] { cache->statistics(); }},
      {"evict", enable(makers[3])},
      {"find no room", enable(makers[4])},
      {"make room", [&] { cache->adjust(maker, data, 70); }},
      {"purge", [&] { cache->purge(); }},
      {"forget", [&] { cache->forget(data); }},
      {"create", [&] { quarry->data(); }},
      {"walk",
       [&] {
         WorstVisitor visitor;
         cache->objects().creatorDomain(maker)->domain(data)->primary()->iterate(visitor);
       }},
      {"end a zombie",
       [&] {
         cache->insert_zombie(StrongPtr<Cacheable>(new Mortal<Data>(memsize_t{1})));
         cache->purge_Hades();
       }},
  };
  const std::vector<Deed> stops = {
      {"breakpoint", [] { breakpoint("text"); }},
      {"null pointer", [] { StrongPtr<Cacheable>()->memsize(); }, true},
      {"make room",
       [&] { // asks for a creator that is gone, while the queue is held
         const StrongPtr<Cacheable> orphan = all['a'].lock();
         all.drop('a');
         const std::shared_ptr<void> last(nullptr, [&](void*) { orphan->leaveQueue(); });
         adjust(85);
       },
       true},
  };
  // With which the last pointers to data go.
  const std::vector<Deed> ends = {
      {"drop the data", [&] { makers[1]->data = nullptr; }},
      {"drop the maker", [&] { makers[1] = nullptr; }},
      {"purge", [&] { cache->purge(); }},
      {"forget", [&] { cache->forget(data); }},
      {"destroy the cache", [&] { cache = nullptr; }},
      {"end a zombie",
       [&] {
         cache->insert_zombie(makers[1]->data);
         makers[1]->data = nullptr;
         cache->purge_Hades();
       }},
  };
  const struct {
    std::vector<const char*> places;
    std::vector<Deed> operations, deeds;
  } groups[] = {
      {{"memsize", "DomainType", "CreatorType", "release", "getCacheable", "isReproducible",
        "hasProducer", "limit", "totalCost", "handleOutOfMemory", "visit"},
       operations,
       {throwing(),
        {"look",
         [&] {
           if (cache) {
             cache->statistics();
             cache->list_info();
             order<1>(*cache);
           }
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
         },
         true}}},
      {{"release", "getCacheable", "handleOutOfMemory", "create", "visit"},
       operations,
       {{"destroy the makers",
         [&] {
           quarry = nullptr;
           for (MakerPtr& each : makers)
             each = nullptr;
         }},
        {"destroy the cache", [&] { cache = nullptr; }},
        {"again", enable(makers[4])}}},
      {{"catchMessage"},
       operations,
       joined(deeds, {{"destroy itself", [] { WorstCatcher::installed = nullptr; }},
                      {"go", [] { VerboseCatcher::theCatcher = nullptr; }},
                      {"give way", WorstCatcher::install}})},
      {{"assertion"},
       stops,
       joined(deeds, {{"go", [] { AssertionCallback::registerCallback(nullptr); }},
                      {"give way", WorstCallback::install},
                      {"again", [] { breakpoint("nested"); }}})},
      // A hook must not throw, so it keeps away from the queue that asks; but not from all others.
      {{"unction"},
       ends,
       joined({deeds.begin() + 1, deeds.end()},
              {{"save", [&] { saved = makers[1] ? makers[1]->data : nullptr; }}})},
  };
  for (const auto& group : groups)
    for (const char* const where : group.places) {
      SCOPED_TRACE(where);
      place = where;
      visits = 0;
      doTheWorst(
          group.operations, group.deeds,
          [&] {
            WorstCallback::install();
            WorstCatcher::install(); // so that what is only said to listeners is worked out
            cache = new WorstCache(85, "cache");
            for (const char name : {'a', 'b', 'c'})
              EXPECT_TRUE(cache->insert(all.add(name, 1, name - 'a'), false));
            for (const char name : secondDomain)
              EXPECT_TRUE(cache->insert(all.add<1>(name, 5, name == 'p' ? 1 : 2), false));
            for (int i = 0; i < 5; ++i) {
              makers[i] = made(new Mortal<WorstMaker>(cache),
                               new Mortal<WorstData>(memsize_t{i < 3   ? 20u
                                                               : i < 4 ? 30u
                                                                       : 1000u}));
              makers[i]->answer = std::min(i, 2);
              EXPECT_TRUE(i > 2 || cache->insert(makers[i]->data, false));
            }
            quarry = new WorstQuarry(cache);
          },
          [&] {
            quarry = nullptr;
            const auto end = std::remove(std::begin(makers), std::end(makers), nullptr);
            check({std::begin(makers), end});
            std::fill(std::begin(makers), std::end(makers), nullptr);
            VerboseCatcher::theCatcher = WorstCatcher::installed = nullptr;
            AssertionCallback::registerCallback(nullptr);
            saved = nullptr;
          });
      EXPECT_GT(visits, 0) << "never come to";
    }
  place.clear();
}
