#include "support/CacheFixtures.hpp"

#include <cstring>
#include <optional>

using namespace cachetest;

namespace {

struct Copyable : MutableCacheable {
  memsize_t computeMemsize() const override { return 5; }
};

constexpr memsize_t wrapped(long long delta) {
  return static_cast<memsize_t>(delta);
}

} // namespace

TEST(Cacheable, IsAloneAndBareAtFirst) {
  const Cacheable plain;
  EXPECT_EQ(plain.memsize(), 0u);
  const MakerPtr maker = new Maker(StrongPtr<Cache, CacheBase>(new Cache(1, "")));
  Copyable data;
  data.setName("name");
  data.setCreator(maker->self());
  data.adjustCurrentMemsize();
  CacheQueue queue;
  data.push_front(queue);
  const Copyable copy(data);
  for (const Cacheable* object : {&plain, static_cast<const Cacheable*>(&copy)}) {
    EXPECT_EQ(object->NumberOfListEntries(), 0u);
    EXPECT_FALSE(object->creator());
    EXPECT_FALSE(object->myCache());
    EXPECT_EQ(object->name(), "");
    EXPECT_EQ(object->CreatorType(), typeid(void));
    EXPECT_FALSE(const_cast<Cacheable*>(object)->markAsUsed());
    EXPECT_FALSE(queue.isAlreadyIncluded(object->self()));
  }
  EXPECT_EQ(plain.DomainType(), typeid(Cacheable));
  EXPECT_EQ(static_cast<Cacheable&>(data).DomainType(), typeid(Copyable));
  EXPECT_EQ(data.memsize(), 5u);
  EXPECT_EQ(copy.memsize(), 0u);
  data.PreDestructor();
  EXPECT_EQ(queue.memsize(), 0u);
}

TEST(Cacheable, AssignmentCopiesNothing) {
  Population all;
  CacheQueue queue;
  queue.push_front(all.add('a', 10));
  queue.push_front(all.add('b', 20));
  Cacheable &a = *all['a'], &b = *all['b'];
  EXPECT_EQ(&(a = b), &a);
  EXPECT_EQ(order(queue), "ba");
  EXPECT_EQ(queue.memsize(), 30u);
  EXPECT_EQ(a.name(), "a");
  EXPECT_NE(a.creator(), b.creator());
}

// Steps: "+x" makes x the newest, "-x" the oldest, "*x" marks it as used, "~x" destroys it.
TEST(Cacheable, RingKeepsTheOrder) {
  const struct {
    const char *steps, *order;
  } cases[] = {
      {"+a", "a"},         {"-a", "a"},         {"+a+b+c", "cba"},     {"-a-b-c", "abc"},
      {"+a+b-c", "bac"},   {"+a+a", "a"},       {"+a+b+c+c", "cba"},   {"+a+b+c+b", "bca"},
      {"+a+b+c+a", "acb"}, {"+a+b+c-a", "cba"}, {"+a+b+c-b", "cab"},   {"+a+b+c-c", "bac"},
      {"+a+b-b", "ab"},    {"-a-b+b", "ba"},    {"+a+b+c*a*b", "bac"}, {"+a+b+c~b", "ca"},
      {"+a+b+c~c", "ba"},  {"+a+b+c~a", "cb"},  {"+a~a", ""},          {"+a+b~a~b-c", "c"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.steps);
    CacheQueue queue;
    Population all;
    memsize_t size = 1;
    for (const char* name = "abc"; *name; ++name)
      all.add(*name, size *= 10);
    for (const char* step = test.steps; *step; step += 2) {
      const WeakPtr<Cacheable> object = all[step[1]];
      if (*step == '+') {
        EXPECT_TRUE(object->push_front(queue));
      } else if (*step == '-') {
        EXPECT_TRUE(object->push_back(queue));
      } else if (*step == '*') {
        EXPECT_TRUE(object->markAsUsed());
      } else {
        all.drop(step[1]);
      }
    }
    EXPECT_EQ(order(queue), test.order);
    EXPECT_EQ(queue.memsize(), queue.compute_memsize());
    EXPECT_EQ(queue.nEntries(), std::strlen(test.order));
    EXPECT_EQ(queue.NumberOfListEntries(), queue.nEntries());
    for (const char* name = test.order; *name; ++name)
      EXPECT_EQ(all[*name]->NumberOfListEntries(), queue.nEntries());
  }
}

TEST(Cacheable, TakesItsSizeFromQueueToQueue) {
  CacheQueue first, second;
  Data a(100), b(7);
  a.push_back(first);
  b.push_front(first);
  EXPECT_EQ(first.memsize(), 107u);
  a.push_back(second);
  EXPECT_EQ(std::make_pair(first.memsize(), first.nEntries()), std::make_pair(memsize_t{7}, 1u));
  EXPECT_EQ(std::make_pair(second.memsize(), second.nEntries()),
            std::make_pair(memsize_t{100}, 1u));
  EXPECT_TRUE(second.isAlreadyIncluded(a.self()));
  EXPECT_FALSE(first.isAlreadyIncluded(a.self()));
  a.PreDestructor();
  b.PreDestructor();
}

// A size that changes behind the library's back shifts the sums by exactly the difference.
TEST(Cacheable, SilentChangesOfSizeShiftTheSums) {
  CacheQueue first, second;
  {
    Data a(100);
    a.push_front(first);
    a.size = 130;
    EXPECT_EQ(first.memsize(), 100u);
    a.push_front(first);
    a.push_back(first);
    EXPECT_EQ(first.memsize(), 100u) << "taken out and put in with the same size";
    EXPECT_EQ(first.compute_memsize(), 130u);
    a.push_front(second);
    EXPECT_EQ(first.memsize(), wrapped(-30));
    EXPECT_EQ(second.memsize(), 130u);
    a.size = 1;
    a.PreDestructor();
    EXPECT_EQ(second.memsize(), 129u);
    EXPECT_EQ(second.nEntries(), 0u);
  }
  EXPECT_EQ(second.NumberOfListEntries(), 0u);
}

TEST(Cacheable, TellsChangesOfSize) {
  CacheQueue queue;
  Data data(100);
  data.adjustCacheableSize(5); // in no queue: nothing to tell
  data.push_front(queue);
  data.adjustCacheableSize(28);
  EXPECT_EQ(queue.memsize(), 128u);
  data.adjustCacheableSize(wrapped(-127));
  EXPECT_EQ(queue.memsize(), 1u);
  data.adjustCacheableSize(wrapped(-3));
  EXPECT_EQ(queue.memsize(), wrapped(-2));
  data.adjustCacheableSize(101);
  data.size = 99;
  data.PreDestructor();
  EXPECT_EQ(queue.memsize(), 0u);
}

TEST(MutableCacheable, CountsItsSizeExactly) {
  CacheQueue queue;
  StrongPtr<Growing, Cacheable> a = new Growing(100), b = new Growing(0);
  EXPECT_EQ(a->memsize(), 100u);
  for (const auto& object : {a, b})
    object->push_front(queue);
  const memsize_t sizes[] = {100, 150, 150, 20, 0, memsize_t{1} << 63, ~memsize_t{0}, 3};
  for (const memsize_t size : sizes) {
    a->actual = size;
    EXPECT_EQ(queue.memsize(), a->memsize()) << "nothing before it is told";
    a->adjustCurrentMemsize();
    EXPECT_EQ(a->memsize(), size);
    EXPECT_EQ(queue.memsize(), size);
  }
  a = nullptr;
  EXPECT_EQ(queue.memsize(), 0u);
  EXPECT_EQ(order(queue), "");
  EXPECT_EQ(queue.nEntries(), 1u);
}

TEST(Cacheable, KnowsItsCreatorAsLongAsThatLives) {
  const StrongPtr<Cache, CacheBase> cache = new Cache(100, "cache");
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

  MakerPtr maker = new MakerOf<2>, other = new MakerOf<1>(cache);
  data.setCreator(maker->self());
  const int weak = maker.weakCount();
  data.setCreator(maker->self());
  EXPECT_EQ(maker.weakCount(), weak);
  EXPECT_EQ(data.CreatorType(), typeid(MakerOf<2>));
  EXPECT_FALSE(data.myCache());
  data.setCreator(other->self());
  EXPECT_EQ(maker.weakCount(), weak - 1);
  other = nullptr;
  EXPECT_EQ(data.CreatorType(), typeid(void));
  EXPECT_EQ(data.creator().strongCount(), -111);
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

  StrongPtr<Cacheable> owned = new Data(50);
  queue.push_front(owned);
  EXPECT_EQ(queue.memsize(), 151u);
  owned = nullptr;
  EXPECT_EQ(queue.memsize(), 101u);
  EXPECT_EQ(queue.nEntries(), 2u);
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
      EXPECT_FALSE(markAsUsed());
      EXPECT_FALSE(push_front(other_));
      EXPECT_FALSE(other_.push_front(self()));
    }
    CacheQueue& other_;
  };
  CacheQueue queue, other;
  queue.push_front(StrongPtr<Cacheable>(new Data(1)));
  StrongPtr<Cacheable> object = new Emptied(other);
  queue.push_front(object);
  object = nullptr;
  for (const CacheQueue* each : {&queue, &other}) {
    EXPECT_EQ(each->memsize(), 0u);
    EXPECT_EQ(each->nEntries(), 0u);
    EXPECT_EQ(each->NumberOfListEntries(), 0u);
  }
}

TEST(Cacheable, OutlivesItsQueue) {
  Population all;
  {
    CacheQueue queue;
    for (const char name : {'a', 'b', 'c'}) {
      queue.push_front(all.add(name, 10, 1));
    }
  }
  EXPECT_EQ(all.alive(), "abc");
  EXPECT_EQ(all.asked(), "abc") << "a dying queue purges";
  EXPECT_EQ(all['b']->NumberOfListEntries(), 0u);
  EXPECT_FALSE(all['b']->markAsUsed());
  all['b']->adjustCacheableSize(1);
  CacheQueue next;
  next.push_front(all['a']);
  EXPECT_EQ(next.memsize(), 10u);
}

TEST(Cacheable, DeferredConstructorHandsOverFirst) {
  struct Deferred : Data {
    using Data::Data;
    void DeferredConstructor() override { wasCached = NumberOfListEntries() > 0; }
    std::optional<bool> wasCached;
  };
  const StrongPtr<Cache, CacheBase> cache = new Cache(100, "cache");
  Population all(cache);
  EXPECT_TRUE(cache->insert(all.add('a', 1), false));

  auto* data = new Deferred(1, "d");
  const MakerPtr maker = made(new Maker(cache), data);
  EXPECT_EQ(&data->CacheableDeferredConstructor(), data);
  EXPECT_EQ(data->wasCached, true);
  EXPECT_EQ(order(*cache->objects().creatorDomain(typeid(Maker))->domain(typeid(Deferred))),
            "d|-|-");

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
  Data data(5, "a");
  data.push_front(inner);
  Cacheable& entry = inner;
  EXPECT_THROW(entry.push_front(outer), std::invalid_argument);
  EXPECT_THROW(outer.put_in_back(inner.self()), std::invalid_argument);
  EXPECT_THROW(entry.push_back(inner), std::invalid_argument);
  EXPECT_EQ(order(outer), "");
  EXPECT_EQ(order(inner), "a");
  data.PreDestructor();
}
