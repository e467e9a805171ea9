#include "support/CacheFixtures.hpp"

#include <optional>

using namespace cachetest;

namespace {

constexpr memsize_t wrapped(long long delta) {
  return static_cast<memsize_t>(delta);
}

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
    EXPECT_EQ(object->NumberOfListEntries(), 0u);
    EXPECT_FALSE(object->creator() || object->myCache());
    EXPECT_EQ(object->name(), "");
    EXPECT_EQ(object->memsize(), 0u);
    EXPECT_EQ(object->CreatorType(), typeid(void));
    EXPECT_EQ(object->DomainType(), typeid(Copyable));
    EXPECT_FALSE(object->markAsUsed());
    EXPECT_FALSE(queue.isAlreadyIncluded(object->self()));
  }
  data = copy;
  EXPECT_EQ(order(&queue), "name");
  EXPECT_EQ(data.memsize(), 5u);
  EXPECT_EQ(data.myCache(), cache);
  data.PreDestructor();
  expectEmpty(queue);
}

TEST(Cacheable, CountsTheSizesItIsTold) {
  CacheQueue queue;
  Data a(100);
  a.adjustCacheableSize(5); // in no queue: nothing to tell
  a.push_front(queue);
  for (const auto& [delta, sum] : {std::pair(28ll, 128ll), {-127, 1}, {-3, -2}, {3, 1}}) {
    a.adjustCacheableSize(wrapped(delta));
    EXPECT_EQ(queue.memsize(), wrapped(sum));
  }
  a.size = 1;
  a.PreDestructor();
  expectEmpty(queue);
}

TEST(MutableCacheable, CountsItsSizeExactly) {
  CacheQueue queue;
  StrongPtr<Growing, Cacheable> a = new Growing(100), b = new Growing(0);
  EXPECT_EQ(a->memsize(), 100u);
  for (const auto& object : {a, b})
    object->push_front(queue);
  for (const memsize_t size : {memsize_t{150}, memsize_t{20}, memsize_t{0}, largest / 2, largest}) {
    a->actual = size;
    EXPECT_EQ(queue.memsize(), a->memsize()) << "nothing before it is told";
    a->adjustCurrentMemsize();
    EXPECT_EQ(a->memsize(), size);
    EXPECT_EQ(queue.memsize(), size);
  }
  a = nullptr;
  EXPECT_EQ(queue.memsize(), 0u);
  EXPECT_EQ(queue.nEntries(), 1u);
}

TEST(Cacheable, KnowsItsCreatorAsLongAsThatLives) {
  const CachePtr cache = new Cache(100, "cache");
  Data data(1);
  {
    MakerOf<1> onTheStack(cache);
    data.setCreator(onTheStack.self());
    EXPECT_EQ(data.CreatorType(), typeid(MakerOf<1>));
    EXPECT_EQ(data.myCache(), cache);
    EXPECT_EQ(onTheStack.self().strongCount(), 0);
  }
  EXPECT_EQ(data.CreatorType(), typeid(void));
  EXPECT_FALSE(data.myCache());

  MakerPtr maker = new MakerOf<2>;
  const int weak = maker.weakCount();
  for (int i = 0; i < 2; ++i) {
    data.setCreator(maker->self());
    EXPECT_EQ(maker.weakCount(), weak + 1);
  }
  EXPECT_FALSE(data.myCache());
  data.setCreator(nullptr);
  EXPECT_EQ(maker.weakCount(), weak);
  EXPECT_EQ(Cacheable(maker->self()).creator(), maker->self());
}

TEST(Cacheable, LeavesTheSumsOnlyThroughItsPreDestructor) {
  CacheQueue queue;
  Data kept(1);
  kept.push_front(queue);
  {
    Data byHand(100);
    byHand.push_front(queue);
    EXPECT_EQ(kept.NumberOfListEntries(), 2u);
  }
  EXPECT_EQ(kept.NumberOfListEntries(), 1u) << "out of the ring";
  EXPECT_EQ(queue.memsize(), 101u) << "and counted for ever";
  EXPECT_EQ(queue.nEntries(), 2u);
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
    void DeferredConstructor() override { wasCached = NumberOfListEntries() > 0; }
    std::optional<bool> wasCached;
  };
  const CachePtr cache = new Cache(100, "cache");
  auto *first = new Deferred(1, "c"), *data = new Deferred(1, "d");
  const MakerPtr before = made(new Maker(cache), first), maker = made(new Maker(cache), data);
  first->CacheableDeferredConstructor();
  EXPECT_EQ(&data->CacheableDeferredConstructor(), data);
  EXPECT_EQ(data->wasCached, true);
  EXPECT_EQ(order(cache->objects().creatorDomain(typeid(Maker))->domain(typeid(Deferred))),
            "dc|-|-");

  // Without a creator there is nothing to hand over; without a cache the exception passes.
  const StrongPtr<Deferred, Cacheable> orphan = new Deferred(1);
  EXPECT_EQ(&orphan->CacheableDeferredConstructor(), orphan.get());
  EXPECT_EQ(orphan->wasCached, false);
  data->wasCached.reset();
  maker->setCacheManager(nullptr);
  printed([&] { EXPECT_THROW(data->CacheableDeferredConstructor(), const char*); });
  EXPECT_EQ(data->wasCached, std::nullopt);
}

TEST(Cacheable, AQueueIsNoEntry) {
  CacheQueue outer, inner;
  Cacheable& entry = inner;
  EXPECT_THROW(entry.push_front(outer), std::invalid_argument);
  EXPECT_THROW(outer.put_in_back(inner.self()), std::invalid_argument);
  EXPECT_THROW(entry.push_back(inner), std::invalid_argument);
  EXPECT_EQ(order(&outer) + order(&inner), "");
}
