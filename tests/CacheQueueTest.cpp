#include "support/CacheFixtures.hpp"

#include <tolvane/Profiler.hpp>

#include <stdexcept>

using namespace cachetest;

namespace {

constexpr int unknown = 7;

// A queue with its side queues under a budget that counts what can be released.
struct Side : CacheBase {
  // Pushes objects of 10 bytes, each named by a letter that its creator's answer follows.
  explicit Side(Population& all, const std::string& entries, memsize_t bytes = 0)
      : CacheBase("side"), most(bytes) {
    for (std::size_t i = 0; i < entries.size(); i += 2)
      queue.push_front(all.add(entries[i], 10, entries[i + 1] - '0'));
  }
  memsize_t totalCost(bool) const override { return queue.memsize() + temporaries.memsize(); }
  memsize_t limit() const override { return most; }
  bool adjust(memsize_t newCost) { return queue.adjust(*this, newCost, temporaries, keepers); }
  std::string orders() const {
    return order(&queue) + '|' + order(&temporaries) + '|' + order(&keepers);
  }

  const memsize_t most;
  CacheQueue queue, temporaries, keepers;
};

void expectWhole(CacheQueue& queue, const std::string& expected) {
  EXPECT_EQ(order(&queue), expected);
  EXPECT_EQ(queue.memsize(), queue.compute_memsize());
  EXPECT_EQ(queue.NumberOfListEntries(), queue.nEntries());
  Data probe(1); // a mutex that was left locked would make its push throw
  EXPECT_TRUE(queue.push_front(probe.self()));
  probe.PreDestructor();
}

template <class Action>
void expectNullPointerReport(const Action& action) {
  const std::string text = printed([&] { EXPECT_THROW(action(), NullPtrException); });
  EXPECT_NE(text.find(" *** NULL POINTER ACCESS FROM ["), std::string::npos) << text;
}

} // namespace

TEST(CacheQueue, TakesOnlyWhatLivesAndNamesIt) {
  Population all;
  Messages messages;
  CacheQueue queue;
  const WeakPtr<Cacheable> gone = all.add('x', 1);
  all.drop('x');
  for (const WeakPtr<Cacheable>& nothing : {WeakPtr<Cacheable>(), gone}) {
    EXPECT_FALSE(queue.push_front(nothing) || queue.put_in_front(nothing) ||
                 queue.put_in_back(nothing) || queue.isAlreadyIncluded(nothing));
  }
  EXPECT_FALSE(queue.oldest());
  EXPECT_TRUE(messages.texts.empty());

  all.add<3, 4>('a', 1);
  EXPECT_TRUE(queue.push_front(all['a']) && queue.put_in_front(all['a']) &&
              queue.put_in_back(all['a']));
  const std::string types =
      Typename(typeid(DataOf<3>)) + " creator=" + Typename(typeid(MakerOf<4>)) + ")";
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
    const char *orders, *asked;
  } cases[] = {
      // An empty queue answers yes, whatever the cost.
      {"", 0, largest, true, "||", ""},
      // Equality with the limit, and one byte more.
      {"a2b2c2", 40, 10, true, "cba||", ""},
      {"a2b2c2", 40, 11, true, "cb||", "a"},
      {"a2b2c2", 40, 20, true, "cb||", "a"},
      {"a2b2c2", 40, 21, true, "c||", "ab"},
      {"a2b2c2", 30, 0, true, "cba||", ""},
      {"a2b2c2", 29, 0, true, "cb||", "a"},
      // The last one may make the room; without it the drained queue says no.
      {"a2b2c2", 40, 40, true, "||", "abc"},
      {"a2b2c2", 40, 41, false, "||", "abc"},
      // What cannot go now or ever.
      {"a1b1c1", 30, 1, false, "|cba|", "abc"},
      {"a0b0c0", 30, 1, true, "cb||a", "a"},
      {"a0b0c0", 5, 10, false, "||cba", "abc"},
      {"a0b0c0", 5, 5, true, "||cba", "abc"},
      {"a1b2c0", 20, 5, true, "|a|c", "abc"},
      {"a1b2c2", 30, 1, true, "c|a|", "ab"},
      // The sum of total and cost does not fit 64 bits.
      {"a2b2c2", largest, largest, true, "||", "abc"},
      {"a2b2c2", largest, largest - 10, true, "c||", "ab"},
      {"a2b2c2", largest - 1, largest, false, "||", "abc"},
      {"a1b1c1", largest, largest - 29, false, "|cba|", "abc"},
      {"a1b1c1", largest, largest - 30, true, "cba||", ""},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(std::string(test.entries) + " limit " + std::to_string(test.limit) + " cost " +
                 std::to_string(test.cost));
    Population all;
    Side side(all, test.entries, test.limit);
    const Reports reports;
    EXPECT_EQ(side.adjust(test.cost), test.room);
    EXPECT_EQ(side.orders(), test.orders);
    EXPECT_EQ(all.asked(), test.asked);
    EXPECT_EQ(reports.count(), 0);
  }
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
  EXPECT_EQ(order(&side.queue), "b");
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

TEST(CacheQueue, GivesUpAfterAHundredAnswersWithoutProgress) {
  const struct {
    int answer;      // of the creator that does not let go
    int timesFor[2]; // how often, before it gives in; for each of the two objects
    bool room;
    int reports;
    const char* order;
  } cases[] = {
      {unknown, {99, 0}, true, 0, ""},     {unknown, {99, 99}, true, 0, ""},
      {unknown, {100, 0}, false, 1, "ba"}, {unknown, {0, 100}, false, 1, "b"},
      {-1, {1 << 30, 0}, false, 1, "ba"},  {2, {100, 0}, false, 101, "ba"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(std::to_string(test.answer) + " " + std::to_string(test.timesFor[0]) + " " +
                 std::to_string(test.timesFor[1]));
    Population all;
    Side side(all, "a2b2", 0);
    for (const char name : {'a', 'b'})
      all.maker(name).onRelease = [&, &maker = all.maker(name), times = test.timesFor[name - 'a']] {
        if (maker.asked <= times)
          return test.answer;
        maker.data = nullptr;
        return 2;
      };
    const Reports reports;
    EXPECT_EQ(side.adjust(0), test.room);
    EXPECT_EQ(reports.count(), test.reports);
    expectWhole(side.queue, test.order);
    if (!test.room) {
      const char stuck = all.alive()[0];
      EXPECT_EQ(all.maker(stuck).asked, 100);
      const std::string last = std::string("last one asked was [") + stuck + "]";
      EXPECT_NE(reports.text().find(last), std::string::npos) << reports.text();
    }
    all.calm();
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
    expectWhole(side.queue, "cb");
    expectNullPointerReport([&] { side.adjust(0); });
    expectNullPointerReport([&] { side.queue.purge(); });
    expectWhole(side.queue, "b"); // the newest went first
    held->setCreator(guardian->self());
    EXPECT_TRUE(side.adjust(0));
    EXPECT_EQ(side.orders(), "||b");
  }
}

TEST(CacheQueue, ADyingQueueReportsAndGoesOn) {
  const StrongPtr<Cacheable> orphan = new Data(1, "o"), another = new Data(1, "p");
  Population all;
  const Reports reports;
  const std::string text = printed([&] {
    Side dying(all, "a2b1c2d2e2");
    dying.queue.push_front(orphan);
    dying.queue.put_in_back(another);
    all.maker('c').onRelease = []() -> int { throw std::runtime_error("no"); };
  });
  EXPECT_EQ(all.alive(), "bc");
  EXPECT_EQ(reports.count(), 3) << reports.text();
  EXPECT_NE(text.find("NULL POINTER ACCESS"), std::string::npos);
  for (const WeakPtr<Cacheable>& object : {WeakPtr<Cacheable>(orphan), all['b'], all['c']}) {
    EXPECT_EQ(object->NumberOfListEntries(), 0u);
    EXPECT_FALSE(object->markAsUsed());
  }
}

// Nothing is locked while a purge asks.
TEST(CacheQueue, PurgeEndsWhileEntriesMoveOrAreMadeAgain) {
  const Watchdog watchdog;
  Population all;
  Side side(all, "a1b1c1d2");
  for (const char* pair : {"aa", "bc", "cb"}) // each makes itself or its neighbour the newest
    all.maker(pair[0]).onRelease = [&, pair] { return all[pair[1]]->markAsUsed() ? 1 : -1; };
  EXPECT_EQ(side.queue.purge(), 10u);
  EXPECT_EQ(side.queue.nEntries(), 3u);
  EXPECT_EQ(all.asked(), "abcd");
  for (const char name : {'a', 'b', 'c'})
    all.maker(name).onRelease = [&side, &maker = all.maker(name), name] {
      made(&maker, new Data(20, std::string(1, name)));
      side.queue.push_front(maker.data);
      return 2;
    };
  EXPECT_EQ(side.queue.purge(), 30u);
  EXPECT_EQ(all.asked(), "abc");
  EXPECT_EQ(side.queue.memsize(), 60u);
  all.calm();
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
  const std::string function = "bool Tolvane::CacheQueue::adjust(const Tolvane::CacheBase&, "
                               "Tolvane::memsize_t, Tolvane::CacheQueue&, Tolvane::CacheQueue&)";
  const struct {
    const char* name;
    int line; // 0 for any place
    std::uint64_t calls;
  } expected[] = {{"CacheQueue::adjust", 322, 2},
                  {"CacheQueue::adjust items", 399, 1},
                  {"CacheQueue: Creator->release()", 454, 1},
                  {"CacheQueue::purge()", 0, 4}};
  const std::vector<Profiler::Statistic> all = Profiler::statistics();
  for (const auto& scope : expected) {
    SCOPED_TRACE(scope.name);
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&](const auto& one) { return one.name == scope.name; });
    ASSERT_NE(found, all.end());
    EXPECT_EQ(found->calls, scope.calls);
    EXPECT_EQ(found->level, 5);
    if (scope.line) {
      EXPECT_EQ(found->line, scope.line);
      EXPECT_EQ(found->file, "elementary/tolvane/CacheQueue");
      EXPECT_EQ(found->function, function);
    }
  }
  Profiler::reset();
}
