#include <tolvane/Cache.hpp>
#include <tolvane/DataCreature.hpp>

#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <system_error>
#include <type_traits>
#include <vector>

using namespace Tolvane;

namespace {

using CachePtr = StrongPtr<Cache, CacheBase>;
using WeakCachePtr = WeakPtr<Cache, CacheBase>;

/// A hundred bytes that count themselves.
class Tile : public Cacheable {
public:
  explicit Tile(int& alive) : alive_(alive) { ++alive_; }
  ~Tile() override { --alive_; }
  memsize_t memsize() const override { return 100; }
  void DeferredConstructor() override { ++completed; }
  void unction() override {
    if (savedBy != nullptr) {
      *savedBy = self().lock();
    }
  }

  int completed = 0;
  StrongPtr<Cacheable>* savedBy = nullptr;

private:
  int& alive_;
};

template <template <class, class> class Hold>
class Maker : public DataCreature<Tile, Hold> {
public:
  using Pointer = typename DataCreature<Tile, Hold>::Pointer;

  explicit Maker(const WeakCachePtr& cache) : DataCreature<Tile, Hold>(cache) {}

  bool isReproducible() const override { return reproducible; }

  bool reproducible = true;
  int alive = 0;
  std::function<Pointer(Maker&)> make = [](Maker& maker) { return Pointer(new Tile(maker.alive)); };

protected:
  Pointer create() override { return make(*this); }
};

using Strong = Maker<StrongPtr>;
using Weak = Maker<WeakPtr>;
using StrongMaker = StrongPtr<Strong, Creature>;
using WeakMaker = StrongPtr<Weak, Creature>;

/// Not the exact size: a type of creator that comes first of all needs a byte to spare.
CachePtr cacheFor(int tiles) {
  return new Cache(static_cast<memsize_t>(tiles) * 100 + 1, "tiles");
}

} // namespace

TEST(DataCreature, MakesOnceUsesOftenAndMakesAgainAfterItsRelease) {
  const CachePtr cache = cacheFor(2);
  std::vector<StrongMaker> makers;
  for (int i = 0; i < 3; ++i) {
    makers.emplace_back(new Strong(cache));
    EXPECT_FALSE(makers.back()->hasData());
  }
  const Strong::Pointer tile = makers[0]->data();
  EXPECT_EQ(tile->completed, 1) << "the deferred constructor runs once";
  EXPECT_TRUE(tile->creator() == makers[0]);
  EXPECT_TRUE(makers[0]->data() == tile);
  EXPECT_EQ(makers[0]->timesMade(), 1U);
  EXPECT_EQ(tile->completed, 1);

  makers[1]->data();
  makers[0]->data(); // now the newest, so 1 goes although it was made later
  makers[2]->data();
  EXPECT_TRUE(makers[0]->hasData());
  EXPECT_FALSE(makers[1]->hasData());
  EXPECT_TRUE(makers[2]->hasData());
  EXPECT_EQ(cache->totalCost(true), 200U);

  makers[1]->data();
  EXPECT_EQ(makers[1]->timesMade(), 2U);
  EXPECT_EQ(makers[1]->alive, 1);
  EXPECT_EQ(cache->nEntries(), 2U);
}

TEST(DataCreature, AnswersTheReleaseQuestion) {
  struct Case {
    const char* name;
    bool made, reproducible, heldElsewhere, saved;
    int strongAnswer, weakAnswer;
  };
  const Case cases[] = {
      {"nothing there", false, true, false, false, 2, 2},
      {"only the creature holds", true, true, false, false, 2, 2},
      {"somebody holds", true, true, true, false, 1, 1},
      {"saved by its last-pointer hook", true, true, false, true, 1, 1},
      {"cannot be made again", true, false, false, false, 0, 0},
      {"cannot be made again and somebody holds", true, false, true, false, 0, 0},
  };
  const auto ask = [](auto maker, const Case& c) {
    maker->reproducible = c.reproducible;
    auto held = c.made ? maker->data() : nullptr;
    StrongPtr<Cacheable> saved;
    if (c.saved) {
      held->savedBy = &saved;
    }
    if (!c.heldElsewhere) {
      held = nullptr;
    }
    const bool had = maker->hasData();
    const int answer = maker->release();
    EXPECT_EQ(maker->hasData(), had && answer != 2) << c.name;
    EXPECT_EQ(maker->alive, maker->hasData() ? 1 : 0) << c.name;
    if (c.saved) {
      static_cast<Tile&>(*saved).savedBy = nullptr;
    }
    return answer;
  };
  const CachePtr cache = cacheFor(10);
  for (const Case& c : cases) {
    EXPECT_EQ(ask(StrongMaker(new Strong(cache)), c), c.strongAnswer) << c.name;
    EXPECT_EQ(ask(WeakMaker(new Weak(cache)), c), c.weakAnswer) << c.name;
  }
  EXPECT_EQ(cache->totalCost(true), 0U);
}

TEST(DataCreature, HeldWeaklyTheDataLivesAsLongAsItsUsers) {
  const CachePtr cache = cacheFor(2);
  const WeakMaker maker = new Weak(cache);
  Weak::Pointer tile = maker->data();
  EXPECT_TRUE(maker->data() == tile);
  EXPECT_EQ(cache->nEntries(), 1U);
  tile = nullptr;
  EXPECT_EQ(maker->alive, 0);
  EXPECT_EQ(cache->nEntries(), 0U);
  maker->data();
  EXPECT_EQ(maker->timesMade(), 2U);
}

TEST(DataCreature, DataThatCannotBeMadeAgainIsKeptBesideTheLimit) {
  const CachePtr cache = cacheFor(1);
  const StrongMaker unique = new Strong(cache);
  const StrongMaker other = new Strong(cache);
  unique->reproducible = false;
  unique->data();
  other->data();
  EXPECT_TRUE(unique->hasData());
  EXPECT_EQ(cache->totalCost(true), 200U);
  EXPECT_EQ(cache->totalCost(false), 100U);
}

TEST(DataCreature, WithoutRoomTheExceptionBringsTheDataAndNothingStays) {
  class Refusing : public Cache {
  public:
    using Cache::Cache;
    bool handleOutOfMemory(const StrongPtr<Cacheable>&, const WeakPtr<Creature>&) override {
      return false;
    }
  };
  // Everything in use: no queue can make room. The first tile only finds the queue empty.
  const CachePtr cache = cacheFor(1);
  const StrongMaker busy = new Strong(cache);
  const StrongMaker late = new Strong(cache);
  Strong::Pointer inUse = busy->data();
  try {
    late->data();
    ADD_FAILURE() << "there was room";
  } catch (const Cache::OutOfMemory& error) {
    EXPECT_TRUE(error.object());
    EXPECT_TRUE(error.object()->creator() == late);
    EXPECT_EQ(error.object()->NumberOfListEntries(), 0U);
    EXPECT_EQ(late->alive, 1);
  }
  EXPECT_EQ(late->alive, 0);
  EXPECT_FALSE(late->hasData());
  EXPECT_FALSE(late->isUnderCreation());
  EXPECT_EQ(cache->totalCost(true), 100U);
  inUse = nullptr;
  EXPECT_TRUE(late->data());
  EXPECT_EQ(late->timesMade(), 2U);
  EXPECT_FALSE(busy->hasData());

  // A cache that lets creators go on: the data is held outside, and handed over when there is room.
  const StrongPtr<Refusing, CacheBase> lenient = new Refusing(101, "lenient");
  busy->setCacheManager(WeakCachePtr(lenient));
  late->setCacheManager(WeakCachePtr(lenient));
  inUse = busy->data();
  late->release();
  EXPECT_TRUE(late->data());
  EXPECT_TRUE(late->hasData());
  EXPECT_EQ(lenient->totalCost(true), 100U);
  inUse = nullptr;
  late->data();
  EXPECT_FALSE(busy->hasData());
  EXPECT_EQ(lenient->totalCost(true), 100U);
}

TEST(DataCreature, WorksWithoutACacheAndMovesToANewOne) {
  const StrongMaker maker = new Strong(nullptr);
  EXPECT_TRUE(maker->data());
  EXPECT_EQ(maker->data()->completed, 1);
  EXPECT_TRUE(maker->hasData());

  CachePtr first = cacheFor(4);
  maker->setCacheManager(first);
  const Strong::Pointer tile = maker->data();
  EXPECT_EQ(first->nEntries(), 1U);
  first = nullptr; // asks for a release, which the use forbids
  EXPECT_TRUE(maker->data() == tile);

  const CachePtr second = cacheFor(4);
  maker->setCacheManager(second);
  EXPECT_TRUE(maker->data() == tile);
  EXPECT_EQ(second->nEntries(), 1U);
  EXPECT_EQ(maker->timesMade(), 1U);
}

TEST(DataCreature, AFailureToMakeLeavesItAsItWas) {
  const CachePtr cache = cacheFor(4);
  const StrongMaker maker = new Strong(cache);
  const auto usual = maker->make;

  maker->make = [](Strong&) -> Strong::Pointer { throw std::runtime_error("no file"); };
  EXPECT_THROW(maker->data(), std::runtime_error);
  maker->make = [](Strong&) { return Strong::Pointer(); };
  EXPECT_FALSE(maker->data());
  maker->make = [](Strong& self) { return self.data(); };
  EXPECT_THROW(maker->data(), std::system_error);
  EXPECT_FALSE(maker->isUnderCreation());
  EXPECT_FALSE(maker->hasData());
  EXPECT_EQ(maker->timesMade(), 0U);

  maker->make = usual;
  EXPECT_TRUE(maker->data());

  Strong onTheStack(cache);
  EXPECT_THROW(onTheStack.data(), const char*);
  EXPECT_FALSE(onTheStack.hasData());
}

TEST(DataCreature, WhileItMakesItIsBusy) {
  const CachePtr cache = cacheFor(4);
  const StrongMaker maker = new Strong(cache);
  const auto usual = maker->make;
  int answer = -1;
  bool underCreation = false;
  maker->make = [&](Strong& self) {
    answer = self.release();
    underCreation = self.isUnderCreation();
    return usual(self);
  };
  maker->data();
  EXPECT_EQ(answer, 1);
  EXPECT_TRUE(underCreation);
  EXPECT_FALSE(maker->isUnderCreation());
}

TEST(DataCreature, SaysWhatItsDataIsMadeFrom) {
  const StrongMaker maker = new Strong(nullptr);
  EXPECT_NE(maker->hasProducer().find("Maker"), std::string::npos);
  maker->setProvenance("head.nii");
  EXPECT_EQ(maker->hasProducer(), maker->provenancePath());
  EXPECT_NE(maker->hasProducer().find("head.nii"), std::string::npos);
}

TEST(DataCreature, ADyingCreatureTakesItsDataOutOfTheCache) {
  const CachePtr cache = cacheFor(2);
  const StrongMaker living = new Strong(cache);
  living->data();
  int alive = 0; // outside of the makers, for these die first
  const auto outside = [&](auto& maker) {
    using MakerType = std::remove_reference_t<decltype(maker)>;
    return typename MakerType::Pointer(new Tile(alive));
  };
  StrongMaker strong = new Strong(cache);
  strong->make = outside;
  WeakMaker weak = new Weak(cache);
  weak->make = outside;
  const Strong::Pointer first = strong->data();
  strong = nullptr;
  EXPECT_EQ(first->NumberOfListEntries(), 0U);
  EXPECT_EQ(cache->totalCost(true), 100U);
  const Weak::Pointer second = weak->data();
  weak = nullptr;
  EXPECT_EQ(alive, 2);
  EXPECT_EQ(cache->totalCost(true), 100U);
  EXPECT_EQ(cache->nEntries(), 1U);
  EXPECT_FALSE(first->markAsUsed()) << "it would be an entry without a creator";
  // No orphan is asked, neither by an eviction nor by a purge.
  EXPECT_TRUE(cache->adjust(typeid(Strong), typeid(Tile), 200));
  EXPECT_EQ(cache->purge(), 0U);
}
