#include "support/CacheFixtures.hpp"

#include <tolvane/Profiler.hpp>

#include <stdexcept>

using namespace cachetest;

namespace {

// A queue with its side queues under a budget that counts what can be released.
struct Side : CacheBase {
  std::string orders() const {
    return order(&queue) + "|" + order(&temporaries) + "|" + order(&keepers);
  }

  // Pushes objects of 10 bytes, each named by a letter that its creator's answer follows.
  explicit Side(Population& all, const std::string& entries, memsize_t bytes = 0)
      : CacheBase("side"), most(bytes) {
    for (std::size_t i = 0; i < entries.size(); i += 2)
      queue.push_front(all.add(entries[i], 10, entries[i + 1] - '0'));
  }
  memsize_t totalCost(bool) const override { return queue.memsize() + temporaries.memsize(); }
  memsize_t limit() const override { return most; }
  bool adjust(memsize_t newCost) { return queue.adjust(*this, newCost, temporaries, keepers); }

  const memsize_t most;
  CacheQueue queue, temporaries, keepers;
};

} // namespace

TEST(CacheQueue, TakesOnlyWhatLivesAndNamesIt) {
  Population all;
  Messages messages;
  CacheQueue queue;
  const WeakPtr<Cacheable> gone = all.add('x', 1);
  all.drop('x');
  for (const WeakPtr<Cacheable>& nothing : {WeakPtr<Cacheable>(), gone})
    EXPECT_FALSE(queue.push_front(nothing) || queue.put_in_front(nothing) ||
                 queue.put_in_back(nothing) || queue.isAlreadyIncluded(nothing));
  EXPECT_TRUE(!queue.oldest() && messages.texts.empty());

  all.add<3, 4>('a', 1);
  EXPECT_TRUE(queue.push_front(all['a']) && queue.put_in_front(all['a']) &&
              queue.put_in_back(all['a']));
  const std::string types =
      "(type=" + Typename(typeid(DataOf<3>)) + " creator=" + Typename(typeid(MakerOf<4>)) + ")";
  EXPECT_EQ(messages.texts, (std::vector<std::string>{"CacheQueue::push_front" + types,
                                                      "CacheQueue::put_in_front" + types,
                                                      "CacheQueue::put_in_back" + types}));
}

TEST(CacheQueue, IterationStopsAtTheFirstNo) {
  struct Counting : CacheQueue::Iterator {
    bool visit(Cacheable& entry) override {
      seen += entry.name();
      if (all) { // the one that is visited stays alive for the visit
        all->drop('c');
        all->drop('b');
      }
      return entry.name() != stop;
    }
    std::string seen, stop;
    Population* all = nullptr;
  };
  Population all;
  Side side(all, "a2b2c2");
  Counting stopping;
  stopping.stop = "b";
  EXPECT_EQ(side.queue.iterate(stopping), 1u);
  EXPECT_EQ(stopping.seen, "cb");
  Counting dropping;
  dropping.all = &all;
  EXPECT_EQ(side.queue.iterate(dropping), 2u);
  EXPECT_EQ(dropping.seen, "ca");
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
      {"a2b2c2", 29, 0, true, "cb||", "a"},
      // The last one may make the room; without it the drained queue says no.
      {"a2b2c2", 40, 40, true, "||", "abc"},
      {"a2b2c2", 40, 41, false, "||", "abc"},
      // What cannot go now or ever.
      {"a1b1c1", 30, 1, false, "|cba|", "abc"},
      {"a0b0c0", 5, 10, false, "||cba", "abc"},
      {"a1b2c0", 20, 5, true, "|a|c", "abc"},
      // The sum of total and cost does not fit 64 bits.
      {"a2b2c2", largest, largest, true, "||", "abc"},
      {"a2b2c2", largest, largest - 10, true, "c||", "ab"},
      {"a2b2c2", largest - 1, largest, false, "||", "abc"},
      {"a1b1c1", largest, largest - 29, false, "|cba|", "abc"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(std::string(test.entries) + " limit " + std::to_string(test.limit) + " cost " +
                 std::to_string(test.cost));
    Population all;
    Side side(all, test.entries, test.limit);
    EXPECT_EQ(side.adjust(test.cost), test.room);
    EXPECT_EQ(side.orders(), test.orders);
    EXPECT_EQ(all.asked(), test.asked);
  }
}

TEST(CacheQueue, AnEntryThatNobodyHoldsIsAskedAbout) {
  for (const int answer : {0, 1}) {
    Population all;
    Side side(all, "");
    Data onTheStack(10, "s");
    const MakerPtr maker = new Maker;
    maker->answer = answer;
    onTheStack.setCreator(maker->self());
    EXPECT_TRUE(side.queue.push_front(onTheStack.self()));
    EXPECT_FALSE(side.adjust(1));
    EXPECT_EQ(side.orders(), answer == 1 ? "|s|" : "||s");
    onTheStack.leaveQueue();
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
  Population all;
  Side side(all, "a2b2", 0);
  all.maker('a').onRelease = [] { return 7; };
  const Reports reports;
  EXPECT_FALSE(side.adjust(0));
  EXPECT_EQ(order(&side.queue), "ba");
  EXPECT_EQ(all.maker('a').asked, 100);
  EXPECT_EQ(reports.count(), 1);
  EXPECT_NE(reports.text().find("last one asked was [a]"), std::string::npos) << reports.text();
  all.calm();
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
  for (const WeakPtr<Cacheable>& object : {WeakPtr<Cacheable>(orphan), all['b'], all['c']})
    EXPECT_FALSE(object->NumberOfListEntries() > 0 || object->markAsUsed());
}

// Nothing is locked while a purge asks.
TEST(CacheQueue, PurgeEndsWhileEntriesMoveOrAreMadeAgain) {
  const Watchdog watchdog;
  Population all;
  Side side(all, "a1b1c2");
  all.maker('a').onRelease = [&] { return all['b']->markAsUsed() ? 1 : -1; };
  EXPECT_EQ(side.queue.purge(), 10u);
  EXPECT_EQ(all.asked(), "abc");
  for (const char name : {'a', 'b'})
    all.maker(name).onRelease = [&side, &maker = all.maker(name), name] {
      made(&maker, new Data(20, std::string(1, name)));
      side.queue.push_front(maker.data);
      return 2;
    };
  EXPECT_EQ(side.queue.purge(), 20u);
  EXPECT_EQ(all.asked(), "ab");
  EXPECT_EQ(side.queue.memsize(), 40u);
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
  std::string steps;
  for (const Profiler::Statistic& one : Profiler::statistics())
    if (one.name.ends_with("purge()"))
      steps += one.name + ' ' + std::to_string(one.calls);
    else if (!one.name.starts_with("CacheQueue::~"))
      steps += one.name + ' ' + std::to_string(one.calls) + " of " + std::to_string(one.level) +
               ' ' + one.file + ':' + std::to_string(one.line) + one.function;
  const std::string function = "bool Tolvane::CacheQueue::adjust(const Tolvane::CacheBase&, "
                               "Tolvane::memsize_t, Tolvane::CacheQueue&, Tolvane::CacheQueue&)",
                    place = " of 5 elementary/tolvane/CacheQueue:";
  EXPECT_EQ(steps, "CacheQueue: Creator->release() 1" + place + "454" + function +
                       "CacheQueue::adjust 2" + place + "322" + function +
                       "CacheQueue::adjust items 1" + place + "399" + function +
                       "CacheQueue::purge() 4");
  Profiler::reset();
}
