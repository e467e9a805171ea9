#include "support/CacheFixtures.hpp"

using namespace cachetest;

namespace {

void expectEmpty(const CacheQueue& queue) {
  EXPECT_EQ(queue.memsize(), 0u);
  EXPECT_EQ(queue.nEntries(), 0u);
}

} // namespace

TEST(Cacheable, CopiesAndAssignmentsTakeNothingOver) {
  struct Copyable : MutableCacheable {
    memsize_t computeMemsize() const override { return 5; }
  };
  const CachePtr cache = new Cache(1, "");
  const MakerPtr maker = new Maker(cache);
  Copyable data, assigned;
  data.setName("name");
  data.setCreator(maker->self());
  data.adjustCurrentMemsize();
  CacheQueue queue;
  data.push_front(queue);
  Copyable copy(data);
  assigned = data;
  for (Cacheable* object : {&copy, &assigned}) {
    EXPECT_FALSE(object->creator() || object->myCache() || object->markAsUsed() ||
                 queue.isAlreadyIncluded(object->self()));
    EXPECT_TRUE(object->name().empty() && object->memsize() == 0 &&
                object->CreatorType() == typeid(void));
  }
  data = copy;
  EXPECT_TRUE(order(&queue) == "name" && data.memsize() == 5 && data.myCache() == cache);
  data.PreDestructor();
  expectEmpty(queue);
}

TEST(MutableCacheable, CountsItsSizeExactly) {
  CacheQueue queue;
  StrongPtr<Growing, Cacheable> a = new Growing(100);
  const StrongPtr<Growing, Cacheable> b = new Growing(0);
  for (const auto& object : {a, b})
    object->push_front(queue);
  for (const memsize_t size : {memsize_t{150}, memsize_t{0}, largest / 2, largest}) {
    a->actual = size;
    EXPECT_EQ(queue.memsize(), a->memsize()) << "nothing before it is told";
    a->adjustCurrentMemsize();
    EXPECT_TRUE(a->memsize() == size && queue.memsize() == size);
  }
  a = nullptr;
  EXPECT_TRUE(queue.memsize() == 0 && queue.nEntries() == 1);
}

TEST(Cacheable, KnowsItsCreatorAsLongAsThatLives) {
  const CachePtr cache = new Cache(100, "cache");
  Data data(1);
  {
    MakerOf<1> onTheStack(cache);
    data.setCreator(onTheStack.self());
    EXPECT_TRUE(data.CreatorType() == typeid(MakerOf<1>) && data.myCache() == cache);
    EXPECT_EQ(onTheStack.self().strongCount(), 0);
  }
  EXPECT_TRUE(data.CreatorType() == typeid(void) && !data.myCache());
  const MakerPtr maker = new MakerOf<2>;
  const int weak = maker.weakCount();
  data.setCreator(maker->self());
  EXPECT_TRUE(maker.weakCount() == weak + 1 && !data.myCache());
  EXPECT_EQ(Cacheable(maker->self()).creator(), maker->self());
}

TEST(Cacheable, LeavesTheSumsOnlyThroughItsPreDestructor) {
  CacheQueue queue;
  Data kept(1);
  kept.push_front(queue);
  {
    Data byHand(100);
    byHand.push_front(queue);
  }
  EXPECT_EQ(kept.NumberOfListEntries(), 1u) << "out of the ring";
  EXPECT_TRUE(queue.memsize() == 101 && queue.nEntries() == 2) << "and counted for ever";
  queue.push_front(StrongPtr<Cacheable>(new Data(50)));
  EXPECT_EQ(queue.memsize(), 101u);
  kept.PreDestructor();
  EXPECT_EQ(queue.memsize(), 100u);
}

// A destructor may empty the data as at any other time, or even push its object somewhere.
TEST(Cacheable, CountsNothingMoreOnceItDies) {
  struct Emptied : Growing {
    explicit Emptied(CacheQueue& other) : Growing(100), other_(other) {}
    ~Emptied() override {
      resize(0);
      adjustCacheableSize(5);
      EXPECT_FALSE(markAsUsed() || push_front(other_) || other_.push_front(self()));
    }
    CacheQueue& other_;
  };
  CacheQueue queue, other;
  queue.push_front(StrongPtr<Cacheable>(new Emptied(other)));
  for (const CacheQueue* each : {&queue, &other}) {
    expectEmpty(*each);
    EXPECT_EQ(each->NumberOfListEntries(), 0u);
  }
}

TEST(Cacheable, DeferredConstructorHandsOverFirst) {
  struct Deferred : Data {
    using Data::Data;
    void DeferredConstructor() override { seen += NumberOfListEntries() > 0 ? "cached" : "alone"; }
    std::string seen;
  };
  const CachePtr cache = new Cache(100, "cache");
  auto *first = new Deferred(1, "c"), *data = new Deferred(1, "d");
  const MakerPtr before = made(new Maker(cache), first), maker = made(new Maker(cache), data);
  first->CacheableDeferredConstructor();
  EXPECT_EQ(&data->CacheableDeferredConstructor(), data);
  EXPECT_EQ(data->seen, "cached");
  EXPECT_EQ(order(cache->objects().creatorDomain(typeid(Maker))->domain(typeid(Deferred))),
            "dc|-|-");
  // Without a creator there is nothing to hand over; without a cache the exception passes.
  const StrongPtr<Deferred, Cacheable> orphan = new Deferred(1);
  orphan->CacheableDeferredConstructor();
  EXPECT_EQ(orphan->seen, "alone");
  maker->setCacheManager(nullptr);
  printed([&] { EXPECT_THROW(data->CacheableDeferredConstructor(), const char*); });
  EXPECT_EQ(data->seen, "cached");
}

TEST(Cacheable, AQueueIsNoEntry) {
  CacheQueue outer, inner;
  Cacheable& entry = inner;
  EXPECT_THROW(entry.push_front(outer), std::invalid_argument);
  EXPECT_THROW(outer.put_in_back(inner.self()), std::invalid_argument);
  EXPECT_THROW(entry.push_back(inner), std::invalid_argument);
  EXPECT_EQ(order(&outer) + order(&inner), "");
}
