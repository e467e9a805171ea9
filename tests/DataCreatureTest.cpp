#include "support/CacheFixtures.hpp"

#include <tolvane/DataCreature.hpp>

#include <stdexcept>
#include <system_error>

using namespace cachetest;

namespace {

/// A hundred bytes that count themselves.
struct Tile : Data {
  explicit Tile(int& alive) : Data(100) {
    ++alive;
    onDeath = [&alive] { --alive; };
  }
  void DeferredConstructor() override { ++completed; }
  void unction() override {
    if (savedBy)
      *savedBy = self().lock();
  }
  int completed = 0;
  StrongPtr<Cacheable>* savedBy = nullptr;
};

template <template <class, class> class Hold>
struct TileMaker : DataCreature<Tile, Hold> {
  using Pointer = typename DataCreature<Tile, Hold>::Pointer;
  using DataCreature<Tile, Hold>::DataCreature;
  bool isReproducible() const override { return reproducible; }
  Pointer create() override { return make ? make(*this) : Pointer(new Tile(alive)); }

  bool reproducible = true;
  int alive = 0;
  std::function<Pointer(TileMaker&)> make;
};

using Strong = TileMaker<StrongPtr>;
using Weak = TileMaker<WeakPtr>;
using StrongMaker = StrongPtr<Strong, Creature>;
using WeakMaker = StrongPtr<Weak, Creature>;

/// Not the exact size: a type of creator that comes first of all needs a byte to spare.
CachePtr cacheFor(int tiles) {
  return new Cache(static_cast<memsize_t>(tiles) * 100 + 1, "tiles");
}

} // namespace

TEST(DataCreature, MakesOnceUsesOftenAndMakesAgainAfterItsRelease) {
  const CachePtr cache = cacheFor(2);
  const StrongMaker first = new Strong(cache), second = new Strong(cache),
                    third = new Strong(cache);
  EXPECT_FALSE(first->hasData());
  const Strong::Pointer tile = first->data();
  EXPECT_EQ(tile->creator(), first->self());
  second->data();
  EXPECT_EQ(first->data(), tile); // now the newest, so the second goes although it was made later
  EXPECT_EQ(tile->completed, 1) << "the deferred constructor runs once";
  third->data();
  EXPECT_TRUE(first->hasData() && !second->hasData() && third->hasData());
  second->data();
  EXPECT_TRUE(second->timesMade() == 2 && first->timesMade() == 1 && cache->nEntries() == 2);
}

TEST(DataCreature, AnswersTheReleaseQuestion) {
  struct Case {
    const char* name;
    bool made, reproducible, heldElsewhere, saved;
    int answer;
  };
  const Case cases[] = {
      {"nothing there", false, true, false, false, 2},
      {"only the creature holds", true, true, false, false, 2},
      {"somebody holds", true, true, true, false, 1},
      {"saved by its last-pointer hook", true, true, false, true, 1},
      {"cannot be made again", true, false, false, false, 0},
      {"cannot be made again and somebody holds", true, false, true, false, 0},
  };
  const auto expectAnswer = [](auto maker, const Case& c) {
    SCOPED_TRACE(c.name);
    maker->reproducible = c.reproducible;
    auto held = c.made ? maker->data() : nullptr;
    StrongPtr<Cacheable> saved;
    if (c.saved)
      held->savedBy = &saved;
    if (!c.heldElsewhere)
      held = nullptr;
    const bool had = maker->hasData();
    EXPECT_EQ(maker->release(), c.answer);
    EXPECT_EQ(maker->hasData(), had && c.answer != 2);
    EXPECT_EQ(maker->alive, maker->hasData() ? 1 : 0);
    if (c.saved)
      static_cast<Tile&>(*saved).savedBy = nullptr;
  };
  const CachePtr cache = cacheFor(10);
  for (const Case& c : cases) {
    expectAnswer(StrongMaker(new Strong(cache)), c);
    expectAnswer(WeakMaker(new Weak(cache)), c);
  }
  EXPECT_EQ(cache->totalCost(true), 0u);
}

TEST(DataCreature, HeldWeaklyTheDataLivesAsLongAsItsUsers) {
  const CachePtr cache = cacheFor(2);
  const WeakMaker maker = new Weak(cache);
  Weak::Pointer tile = maker->data();
  EXPECT_TRUE(maker->data() == tile && cache->nEntries() == 1);
  tile = nullptr;
  EXPECT_TRUE(maker->alive == 0 && cache->nEntries() == 0);
  maker->data();
  EXPECT_EQ(maker->timesMade(), 2u);
}

TEST(DataCreature, WithoutRoomTheExceptionBringsTheDataAndNothingStays) {
  struct Refusing : Cache {
    using Cache::Cache;
    bool handleOutOfMemory(const StrongPtr<Cacheable>&, const WeakPtr<Creature>&) override {
      return false;
    }
  };
  // Everything in use: no queue can make room. The first tile only finds the queue empty.
  const CachePtr cache = cacheFor(1);
  const StrongMaker busy = new Strong(cache), late = new Strong(cache);
  Strong::Pointer inUse = busy->data();
  try {
    late->data();
    ADD_FAILURE() << "there was room";
  } catch (const Cache::OutOfMemory& error) {
    EXPECT_TRUE(error.object()->creator() == late->self() && late->alive == 1);
  }
  EXPECT_FALSE(late->alive || late->hasData() || late->isUnderCreation());
  EXPECT_EQ(cache->totalCost(true), 100u);
  inUse = nullptr;
  EXPECT_TRUE(late->data() && !busy->hasData());

  // A cache that lets creators go on: the data is held outside, and handed over when there is room.
  const StrongPtr<Refusing, CacheBase> lenient = new Refusing(101, "lenient");
  for (const StrongMaker& maker : {busy, late})
    maker->setCacheManager(WeakCachePtr(lenient));
  inUse = busy->data();
  late->release();
  EXPECT_TRUE(late->data() && late->hasData() && lenient->totalCost(true) == 100);
  inUse = nullptr;
  late->data();
  EXPECT_TRUE(!busy->hasData() && lenient->totalCost(true) == 100);
}

TEST(DataCreature, WorksWithoutACacheAndMovesToANewOne) {
  const StrongMaker maker = new Strong(nullptr);
  maker->setProvenance("head.nii");
  EXPECT_EQ(maker->hasProducer(), "head.nii");
  const Strong::Pointer tile = maker->data();
  for (int i = 0; i < 2; ++i) { // a dying cache asks for a release, which the use forbids
    const CachePtr cache = cacheFor(4);
    maker->setCacheManager(cache);
    EXPECT_EQ(maker->data(), tile);
    EXPECT_EQ(cache->nEntries(), 1u);
  }
  EXPECT_TRUE(maker->timesMade() == 1 && tile->completed == 1);
}

TEST(DataCreature, AFailureToMakeLeavesItAsItWas) {
  const CachePtr cache = cacheFor(4);
  const StrongMaker maker = new Strong(cache);
  maker->make = [](Strong&) -> Strong::Pointer { throw std::runtime_error("no file"); };
  EXPECT_THROW(maker->data(), std::runtime_error);
  maker->make = [](Strong&) { return Strong::Pointer(); };
  EXPECT_FALSE(maker->data());
  maker->make = [](Strong& self) { return self.data(); };
  EXPECT_THROW(maker->data(), std::system_error);
  EXPECT_FALSE(maker->isUnderCreation() || maker->hasData() || maker->timesMade() > 0);
  maker->make = [](Strong& self) {
    EXPECT_EQ(self.release(), 1) << "busy while it makes";
    EXPECT_TRUE(self.isUnderCreation());
    return Strong::Pointer(new Tile(self.alive));
  };
  EXPECT_TRUE(maker->data());
  EXPECT_FALSE(maker->isUnderCreation());

  Strong onTheStack(cache);
  EXPECT_THROW(onTheStack.data(), const char*);
  EXPECT_FALSE(onTheStack.hasData());
}

TEST(DataCreature, ADyingCreatureTakesItsDataOutOfTheCache) {
  const CachePtr cache = cacheFor(2);
  const StrongMaker living = new Strong(cache);
  living->data();
  int alive = 0; // outside of the makers, for these die first
  StrongMaker strong = new Strong(cache);
  strong->make = [&](Strong&) { return Strong::Pointer(new Tile(alive)); };
  WeakMaker weak = new Weak(cache);
  weak->make = [&](Weak&) { return Weak::Pointer(new Tile(alive)); };
  const Strong::Pointer first = strong->data();
  strong = nullptr;
  const Weak::Pointer second = weak->data();
  weak = nullptr;
  EXPECT_TRUE(alive == 2 && cache->nEntries() == 1 && cache->totalCost(true) == 100);
  EXPECT_FALSE(first->markAsUsed()) << "it would be an entry without a creator";
}
