#include "support/CacheFixtures.hpp"

#include <tolvane/Profiler.hpp>

#include <stdexcept>

using namespace cachetest;

namespace {

constexpr memsize_t largest = ~memsize_t{0};
constexpr int unknown = 7;

// A queue with its side queues under a budget that counts what can be released.
struct Side {
  explicit Side(memsize_t limit = 0) : budget(limit, {&queue, &temporaries}) {}

  // Pushes objects of 10 bytes, each named by a letter that its creator's answer follows.
  explicit Side(Population& all, const std::string& entries, memsize_t limit = 0) : Side(limit) {
    for (std::size_t i = 0; i < entries.size(); i += 2)
      queue.push_front(all.add(entries[i], 10, entries[i + 1] - '0'));
  }

  bool adjust(memsize_t newCost) { return queue.adjust(budget, newCost, temporaries, keepers); }
  std::string orders() const {
    return order(queue) + '|' + order(temporaries) + '|' + order(keepers);
  }

  CacheQueue queue, temporaries, keepers;
  Budget budget;
};

void expectWhole(const CacheQueue& queue, const std::string& expected) {
  EXPECT_EQ(order(queue), expected);
  EXPECT_EQ(queue.memsize(), queue.compute_memsize());
  EXPECT_EQ(queue.NumberOfListEntries(), queue.nEntries());
  // A mutex that was left locked would make this throw.
  Data probe(1);
  EXPECT_TRUE(const_cast<CacheQueue&>(queue).push_front(probe.self()));
  probe.PreDestructor();
}

} // namespace

TEST(CacheQueue, TakesOnlyWhatLives) {
  CacheQueue queue;
  Population all;
  const WeakPtr<Cacheable> gone = all.add('x', 1);
  all.drop('x');
  for (const WeakPtr<Cacheable>& nothing : {WeakPtr<Cacheable>(), gone}) {
    EXPECT_FALSE(queue.push_front(nothing));
    EXPECT_FALSE(queue.put_in_front(nothing));
    EXPECT_FALSE(queue.put_in_back(nothing));
    EXPECT_FALSE(queue.isAlreadyIncluded(nothing));
  }
  EXPECT_EQ(queue.nEntries(), 0u);
  EXPECT_EQ(queue.memsize(), 0u);
  EXPECT_FALSE(queue.oldest());
  EXPECT_EQ(queue.purge(), 0u);
  EXPECT_EQ(printed([&] { queue.list_info(50); }), "");

  EXPECT_TRUE(queue.put_in_front(all.add('a', 1)));
  EXPECT_TRUE(queue.put_in_front(all.add('b', 2)));
  EXPECT_TRUE(queue.put_in_back(all.add('c', 4)));
  EXPECT_TRUE(queue.push_front(all['a']));
  EXPECT_EQ(order(queue), "abc");
  EXPECT_EQ(queue.oldest(), all['c']);
  EXPECT_EQ(queue.memsize(), 7u);
  EXPECT_EQ(printed([&] { queue.list_info(0); }).find("    {a} "), 0u);
}

TEST(CacheQueue, NamesWhatIsPushed) {
  CacheQueue queue;
  Population all;
  all.add<3, 4>('a', 1);
  const std::string types =
      Typename(typeid(DataOf<3>)) + " creator=" + Typename(typeid(MakerOf<4>)) + ")";
  Messages messages;
  queue.push_front(all['a']);
  queue.put_in_front(all['a']);
  queue.put_in_back(all['a']);
  queue.push_front(nullptr);
  EXPECT_EQ(messages.texts, (std::vector<std::string>{"CacheQueue::push_front(type=" + types,
                                                      "CacheQueue::put_in_front(type=" + types,
                                                      "CacheQueue::put_in_back(type=" + types}));
}

TEST(CacheQueue, IterationStopsAtTheFirstNo) {
  struct Counting : CacheQueue::Iterator {
    bool visit(Cacheable& entry) override {
      seen += entry.name();
      if (onVisit)
        onVisit();
      return entry.name() != stop;
    }
    std::string seen, stop;
    std::function<void()> onVisit;
  };
  Population all;
  Side side(all, "a2b2c2");
  const struct {
    const char* stop;
    unsigned result;
    const char* seen;
  } cases[] = {{"", 3, "cba"}, {"a", 2, "cba"}, {"b", 1, "cb"}, {"c", 0, "c"}};
  for (const auto& test : cases) {
    Counting counting;
    counting.stop = test.stop;
    EXPECT_EQ(side.queue.iterate(counting), test.result) << test.stop;
    EXPECT_EQ(counting.seen, test.seen);
  }
  Counting dropping;
  dropping.onVisit = [&] {
    all.drop('c'); // the one that is visited stays alive for the visit
    all.drop('b');
  };
  EXPECT_EQ(side.queue.iterate(dropping), 2u);
  EXPECT_EQ(dropping.seen, "ca");
  EXPECT_EQ(all.alive(), "a");
  EXPECT_EQ(Side().queue.iterate(dropping), 0u);
}

TEST(CacheQueue, ListsAnEntryPerLine) {
  Population all;
  Side side(all, "a2b2");
  const StrongPtr<Cacheable> second = all['a'].lock();
  const auto line = [&](char name, const std::string& more) {
    return std::string("    {") + name + "} " + Typename(typeid(DataOf<0>)) + " " +
           to_address_string(all[name].get()) + " 10 bytes" + more + "\n";
  };
  const std::string creator = ", creator " + Typename(typeid(MakerOf<0>));
  EXPECT_EQ(printed([&] { side.queue.list_info(0); }), line('b', "") + line('a', ""));
  EXPECT_EQ(printed([&] { side.queue.list_info(50); }),
            line('b', creator + ", 1 strong") + line('a', creator + ", 2 strong"));
}

TEST(CacheQueue, Eviction) {
  const struct {
    const char* entries; // from the oldest, see Side
    memsize_t limit, cost;
    bool room;
    const char *orders, *alive, *asked;
  } cases[] = {
      // An empty queue answers yes, whatever the cost.
      {"", 0, 5, true, "||", "", ""},
      {"", 0, largest, true, "||", "", ""},
      // Equality with the limit, and one byte more.
      {"a2b2c2", 40, 10, true, "cba||", "abc", ""},
      {"a2b2c2", 40, 11, true, "cb||", "bc", "a"},
      {"a2b2c2", 40, 20, true, "cb||", "bc", "a"},
      {"a2b2c2", 40, 21, true, "c||", "c", "ab"},
      {"a2b2c2", 30, 0, true, "cba||", "abc", ""},
      {"a2b2c2", 29, 0, true, "cb||", "bc", "a"},
      // The last one may make the room; without it the drained queue says no.
      {"a2b2c2", 40, 40, true, "||", "", "abc"},
      {"a2b2c2", 40, 41, false, "||", "", "abc"},
      // What cannot go now or ever.
      {"a1b1c1", 30, 1, false, "|cba|", "abc", "abc"},
      {"a0b0c0", 30, 1, true, "cb||a", "abc", "a"},
      {"a0b0c0", 5, 10, false, "||cba", "abc", "abc"},
      {"a0b0c0", 5, 5, true, "||cba", "abc", "abc"},
      {"a1b2c0", 20, 5, true, "|a|c", "ac", "abc"},
      {"a1b2c2", 30, 1, true, "c|a|", "ac", "ab"},
      // The sum of total and cost does not fit 64 bits.
      {"a2b2c2", largest, largest, true, "||", "", "abc"},
      {"a2b2c2", largest, largest - 10, true, "c||", "c", "ab"},
      {"a2b2c2", largest - 1, largest, false, "||", "", "abc"},
      {"a1b1c1", largest, largest - 29, false, "|cba|", "abc", "abc"},
      {"a1b1c1", largest, largest - 30, true, "cba||", "abc", ""},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(std::string(test.entries) + " limit " + std::to_string(test.limit) + " cost " +
                 std::to_string(test.cost));
    Population all;
    Side side(all, test.entries, test.limit);
    const Reports reports;
    EXPECT_EQ(side.adjust(test.cost), test.room);
    EXPECT_EQ(side.orders(), test.orders);
    EXPECT_EQ(all.alive(), test.alive);
    EXPECT_EQ(all.asked(), test.asked);
    EXPECT_EQ(reports.count(), 0);
    for (const CacheQueue* queue : {&side.queue, &side.temporaries, &side.keepers})
      EXPECT_EQ(queue->memsize(), queue->compute_memsize());
  }
}

// An empty queue is not locked: a size that is asked while the queue takes its object in may look.
TEST(CacheQueue, AnEmptyQueueAnswersWithoutItsLock) {
  const Watchdog watchdog;
  Side side;
  Data data(1, "a");
  bool answer = false;
  data.onMemsize = [&] { answer = side.adjust(5); };
  side.queue.push_front(data.self());
  data.onMemsize = nullptr;
  EXPECT_TRUE(answer);
  EXPECT_EQ(order(side.queue), "a");
  data.PreDestructor();
}

TEST(CacheQueue, ReleasedDataThatStayAreReported) {
  Population all;
  Side side(all, "a2b2", 15);
  Maker& maker = all.maker('a');
  const StrongPtr<Provenance> file = new Provenance("file");
  maker.setProvenance(StrongPtr<Provenance>(new Provenance("step", file)));
  int refusals = 2;
  maker.onRelease = [&] {
    if (refusals-- <= 0)
      maker.data = nullptr;
    return 2;
  };
  all.data('b').size = 11; // the computed size differs from the counted one
  const Reports reports;
  EXPECT_TRUE(side.adjust(5));
  EXPECT_EQ(order(side.queue), "b");
  EXPECT_EQ(reports.count(), 2);
  const std::string text = reports.text();
  for (const std::string released : {"1", "2"}) {
    const std::string expected =
        "Source:elementary/tolvane/CacheQueue:479 within bool Tolvane::CacheQueue::adjust(const "
        "Tolvane::CacheBase&, Tolvane::memsize_t, Tolvane::CacheQueue&, Tolvane::CacheQueue&) "
        "because of Releaseable == oldest()There is a problem, the object to be released is still "
        "in the Cache:\nNumberOfReleasedItems =" +
        released +
        ", computed size 21 against 20 counted, cache total 20 of limit 15\n"
        "RELEASE: OLDEST CANDIDATE: [a]\nRelease candidate's ProvenancePath: file/step";
    EXPECT_NE(text.find(expected), std::string::npos) << text;
  }
}

// What counts is whether the object is still the oldest entry, and how many entries there are.
TEST(CacheQueue, ReleasedDataMayLiveElsewhereOrTakeOthersAlong) {
  Population all;
  Side side(all, "a2b2c2d2", 20);
  CacheQueue shelter;
  all.maker('a').onRelease = [&] {
    EXPECT_TRUE(shelter.push_front(all['a']));
    all.drop('c');
    return 2;
  };
  const Reports reports;
  EXPECT_TRUE(side.adjust(0));
  EXPECT_EQ(order(side.queue), "db");
  EXPECT_EQ(order(shelter), "a");
  EXPECT_EQ(reports.count(), 0);
}

TEST(CacheQueue, GivesUpAfterAHundredAnswersWithoutProgress) {
  const struct {
    int answer;      // of the creator that does not let go
    int timesFor[2]; // how often, before it gives in; for each of the two objects
    bool room;
    int reports;
    const char* alive;
  } cases[] = {
      {unknown, {99, 0}, true, 0, ""},     {unknown, {99, 99}, true, 0, ""},
      {unknown, {100, 0}, false, 1, "ab"}, {unknown, {0, 100}, false, 1, "b"},
      {-1, {1 << 30, 0}, false, 1, "ab"},  {2, {100, 0}, false, 101, "ab"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(std::to_string(test.answer) + " " + std::to_string(test.timesFor[0]) + " " +
                 std::to_string(test.timesFor[1]));
    Population all;
    Side side(all, "a2b2", 0);
    for (const char name : {'a', 'b'})
      all.maker(name).onRelease = [&, name] {
        Maker& maker = all.maker(name);
        if (maker.asked <= test.timesFor[name - 'a'])
          return test.answer;
        maker.data = nullptr;
        return 2;
      };
    const Reports reports;
    EXPECT_EQ(side.adjust(0), test.room);
    EXPECT_EQ(all.alive(), test.alive);
    EXPECT_EQ(reports.count(), test.reports);
    const std::string stuck = std::string(test.alive).substr(0, 1);
    if (!test.room) {
      EXPECT_NE(reports.text().find("last one asked was [" + stuck + "]"), std::string::npos)
          << reports.text();
      EXPECT_EQ(all.maker(stuck[0]).asked, 100);
      expectWhole(side.queue, std::string(test.alive) == "ab" ? "ba" : "b");
    }
    for (const char name : {'a', 'b'})
      all.maker(name).onRelease = nullptr;
  }
}

TEST(CacheQueue, AnEntryWithoutACreatorIsMisuse) {
  for (const bool dead : {false, true}) {
    const MakerPtr guardian = new Maker;
    guardian->answer = 0;
    Population all;
    Side side(all, "a2b2c2", 0);
    const StrongPtr<Cacheable> held = all['b'].lock();
    if (dead)
      all.drop('b');
    else
      held->setCreator(nullptr);
    expectNullPointerReport([&] { side.adjust(0); });
    EXPECT_EQ(all.alive(), "bc");
    expectWhole(side.queue, "cb");
    expectNullPointerReport([&] { side.adjust(0); });
    expectNullPointerReport([&] { side.queue.purge(); });
    EXPECT_EQ(all.alive(), "b") << "the newest went first";
    expectWhole(side.queue, "b");
    held->setCreator(guardian->self());
    EXPECT_TRUE(side.adjust(0));
    EXPECT_EQ(side.orders(), "||b");
  }
}

TEST(CacheQueue, ADyingQueueReportsAnEntryWithoutACreatorOnce) {
  const StrongPtr<Cacheable> orphan = new Data(1, "o"), another = new Data(1, "p");
  Population all;
  const Reports reports;
  const std::string text = printed([&] {
    CacheQueue queue;
    for (const char name : {'a', 'b', 'c', 'd'})
      queue.push_front(all.add(name, 10, name == 'b' ? 1 : 2));
    queue.push_front(orphan);
    queue.put_in_back(another);
  });
  EXPECT_EQ(all.alive(), "b");
  EXPECT_EQ(reports.count(), 2) << reports.text();
  EXPECT_EQ(orphan->NumberOfListEntries(), 0u);
  EXPECT_EQ(all['b']->NumberOfListEntries(), 0u);
  EXPECT_NE(text.find("NULL POINTER ACCESS"), std::string::npos);
}

TEST(CacheQueue, WhatACreatorThrowsPasses) {
  Population all;
  Side side(all, "a2b2", 0);
  for (const char name : {'a', 'b'})
    all.maker(name).onRelease = []() -> int { throw std::runtime_error("no"); };
  EXPECT_THROW(side.adjust(1), std::runtime_error);
  EXPECT_THROW(side.queue.purge(), std::runtime_error);
  expectWhole(side.queue, "ba");
  all.maker('a').onRelease = nullptr;
  EXPECT_THROW(side.adjust(1), std::runtime_error);
  expectWhole(side.queue, "b");
  const Reports reports;
  {
    CacheQueue dying;
    dying.push_front(all['b']);
  }
  EXPECT_EQ(reports.count(), 1) << "a destructor reports and goes on";
  EXPECT_EQ(all.alive(), "b");
}

TEST(CacheQueue, PurgeAsksFromTheNewestAndAgainAfterEachThatWent) {
  const struct {
    const char* entries; // from the oldest
    memsize_t freed;
    const char *order, *asked;
  } cases[] = {
      {"", 0, "", ""},
      {"a2", 10, "", "a"},
      {"a2b2c2", 30, "", "abc"},
      {"a0b1c7", 0, "cba", "abc"},
      {"a1b2c1", 10, "ca", "abcc"},
      {"a2b2c1", 20, "c", "abccc"},
      {"a1b1c2", 10, "ba", "abc"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.entries);
    Population all;
    Side side(all, test.entries);
    EXPECT_EQ(side.queue.purge(), test.freed);
    expectWhole(side.queue, test.order);
    EXPECT_EQ(all.asked(), test.asked);
  }
}

TEST(CacheQueue, PurgeEndsWhileEntriesMove) {
  const Watchdog watchdog;
  Population all;
  Side side(all, "a1b1c1d2");
  // Each that is asked makes itself or its neighbour the newest again; nothing is locked.
  all.maker('a').onRelease = [&] { return all['a']->markAsUsed() ? 1 : -1; };
  all.maker('b').onRelease = [&] { return all['c']->markAsUsed() ? 1 : -1; };
  all.maker('c').onRelease = [&] { return all['b']->markAsUsed() ? 1 : -1; };
  EXPECT_EQ(side.queue.purge(), 10u);
  EXPECT_EQ(side.queue.nEntries(), 3u);
  EXPECT_EQ(all.asked(), "abcd");
}

TEST(CacheQueue, PurgeEndsWhileEntriesAreMadeAgain) {
  const Watchdog watchdog;
  Population all;
  Side side(all, "a2b2c2");
  for (const char name : {'a', 'b', 'c'})
    all.maker(name).onRelease = [&, name] {
      Maker& maker = all.maker(name);
      maker.data = new Data(20, std::string(1, name));
      maker.data->setCreator(maker.self());
      side.queue.push_front(maker.data);
      return 2;
    };
  EXPECT_EQ(side.queue.purge(), 30u);
  EXPECT_EQ(all.asked(), "abc");
  EXPECT_EQ(side.queue.memsize(), 60u);
  for (const char name : {'a', 'b', 'c'})
    all.maker(name).onRelease = nullptr;
}

TEST(CacheQueue, ProfilesItsSteps) {
  Profiler::reset();
  Profiler::enable(5);
  {
    Population all;
    Side side(all, "a2b2", 10);
    EXPECT_TRUE(side.adjust(0));
    EXPECT_TRUE(side.adjust(0));
    side.queue.purge();
  }
  Profiler::disable();
  const std::string evictionFile = "elementary/tolvane/CacheQueue",
                    evictionFunction =
                        "bool Tolvane::CacheQueue::adjust(const Tolvane::CacheBase&, "
                        "Tolvane::memsize_t, Tolvane::CacheQueue&, Tolvane::CacheQueue&)";
  const struct {
    const char* name;
    int line;
    std::uint64_t calls;
  } expected[] = {{"CacheQueue::adjust", 322, 2},
                  {"CacheQueue::adjust items", 399, 1},
                  {"CacheQueue: Creator->release()", 454, 1},
                  {"CacheQueue::purge()", 0, 4}};
  const std::vector<Profiler::Statistic> all = Profiler::statistics();
  for (const auto& scope : expected) {
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&](const auto& one) { return one.name == scope.name; });
    ASSERT_NE(found, all.end()) << scope.name;
    EXPECT_EQ(found->calls, scope.calls) << scope.name;
    EXPECT_EQ(found->level, 5);
    if (scope.line) {
      EXPECT_EQ(found->line, scope.line);
      EXPECT_EQ(found->file, evictionFile);
      EXPECT_EQ(found->function, evictionFunction);
    }
  }
  Profiler::reset();
}
