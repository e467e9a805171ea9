#include "support/CacheFixtures.hpp"

using namespace cachetest;

namespace {

struct Plain : Creature {
  using Creature::Creature;
  StrongPtr<Cacheable> getCacheable() const override { return nullptr; }
};

template <class Action>
std::string thrownText(const Action& action) {
  try {
    action();
  } catch (const char* text) {
    return text;
  }
  return "nothing";
}

// Has room only after a number of complaints.
struct Reluctant : Cache {
  explicit Reluctant(int refusals) : Cache(0, "reluctant"), left(refusals) {}
  memsize_t limit() const override { return left > 0 ? 0 : 1000; }
  bool handleOutOfMemory(const StrongPtr<Cacheable>& object,
                         const WeakPtr<Creature>& creator) override {
    complaints.push_back(object->name() + (creator == object->creator() ? "" : "?"));
    --left;
    return true;
  }
  int left;
  std::vector<std::string> complaints;
};

} // namespace

TEST(Creature, Defaults) {
  ++Ageable::GlobalTime;
  const StrongPtr<Plain, Creature> creature = new Plain(nullptr);
  EXPECT_EQ(creature->release(), 0);
  EXPECT_FALSE(creature->isReproducible());
  EXPECT_FALSE(creature->isUnderCreation());
  EXPECT_FALSE(creature->discardCreation());
  EXPECT_FALSE(creature->hasData());
  EXPECT_EQ(creature->hasProducer(), "");
  EXPECT_EQ(creature->stamp(), Ageable::GlobalTime);
  EXPECT_TRUE(creature->provenance().empty());
  EXPECT_EQ(creature->provenancePath(), "");
  EXPECT_FALSE(creature->hasInterface(typeid(int)));
  EXPECT_STREQ(Creature::Exception("d", "f", 1).what(), "Unspecified Tolvane::Creature Exception");
}

TEST(Creature, HasDataOnlyWhileTheyLive) {
  // A creature that makes its data for everyone who asks, and keeps none.
  struct Generous : Plain {
    using Plain::Plain;
    StrongPtr<Cacheable> getCacheable() const override {
      auto* data = new Data(1);
      data->onDeath = [this] { ++died; };
      return data;
    }
    mutable int died = 0;
  };
  const Generous generous(nullptr);
  EXPECT_TRUE(generous.hasData());
  EXPECT_EQ(generous.died, 1);

  const MakerPtr maker = made(new Maker, new Data(1));
  EXPECT_TRUE(maker->hasData());
  maker->release();
  EXPECT_FALSE(maker->hasData());
}

TEST(Creature, CacheManagerIsReplaced) {
  const StrongPtr<Cache, CacheBase> first = new Cache(1, "1"), second = new Cache(2, "2");
  const int weak = first.weakCount();
  const MakerPtr maker = new Maker(first);
  EXPECT_EQ(first.weakCount(), weak + 1);
  maker->setCacheManager(first);
  EXPECT_EQ(first.weakCount(), weak + 1);
  maker->setCacheManager(second);
  EXPECT_EQ(first.weakCount(), weak);
  EXPECT_EQ(maker->cacheManager(), second);
}

TEST(Creature, EnableCachingNeedsAHolderAndACache) {
  Maker onTheStack;
  EXPECT_EQ(thrownText([&] { onTheStack.enableCaching(false); }),
            "No strong references for Creature!");
  onTheStack.data = new Data(1); // what it holds plays no part
  EXPECT_EQ(thrownText([&] { onTheStack.enableCaching(true); }),
            "No strong references for Creature!");

  StrongPtr<Cache, CacheBase> cache = new Cache(100, "cache");
  const MakerPtr maker = new Maker;
  const auto enable = [&] {
    std::string thrown;
    const std::string text =
        printed([&] { thrown = thrownText([&] { maker->enableCaching(false); }); });
    return text + thrown;
  };
  EXPECT_EQ(enable(), "nothing") << "without data nothing is asked";
  maker->data = new Data(1);
  EXPECT_EQ(enable(), "Creature::enableCaching(): No Cache!\nNo Cache!");
  maker->setCacheManager(cache);
  cache = nullptr;
  EXPECT_EQ(enable(), "Creature::enableCaching(): No Cache!\nNo Cache!");
}

TEST(Creature, EnableCachingFilesAtTheChosenEnd) {
  const StrongPtr<Cache, CacheBase> cache = new Cache(100, "cache");
  Population all(cache);
  for (const char name : {'a', 'b', 'c'}) {
    all.add(name, 10);
    all.maker(name).enableCaching(name == 'c');
  }
  EXPECT_EQ(order(*cache), "bac|-|-");
  all.maker('c').enableCaching(false);
  EXPECT_EQ(order(*cache), "cba|-|-");
  EXPECT_EQ(cache->nEntries(), 3u);
}

TEST(Creature, ACacheOnTheStackIsNotTakenOver) {
  Cache cache(100, "on the stack");
  Population all(&cache);
  all.add('a', 10);
  all.maker('a').enableCaching(false);
  EXPECT_EQ(order(cache), "a|-|-");
  {
    Messages messages;
    TOLVANE_VERBOSE_DOMAIN(0, "Mem") << WeakPtr<Cache, CacheBase>(&cache);
    EXPECT_TRUE(messages.contain("total 0KiB, freeable 0KiB"));
  }
  EXPECT_EQ(cache.nEntries(), 1u);
}

TEST(Creature, WithoutRoomTheCacheDecides) {
  const StrongPtr<Cache, CacheBase> full = new Cache(10, "full");
  Population all(full);
  all.add('a', 11, 1);
  try {
    all.maker('a').enableCaching(false);
    ADD_FAILURE() << "no exception";
  } catch (const Cache::OutOfMemory& e) {
    EXPECT_EQ(std::string(e.what()), "Not enough memory to handle " + Typename(typeid(DataOf<0>)));
    EXPECT_EQ(e.object(), all['a']);
    EXPECT_EQ(e.creator(), all.maker('a').self());
    EXPECT_EQ(e.cache(), full);
  }
  EXPECT_EQ(full->nEntries(), 0u);

  // Asked again as often as the cache says so, and given up when it says no.
  for (const int refusals : {0, 1, 3}) {
    const StrongPtr<Reluctant, CacheBase> cache = new Reluctant(refusals);
    all.maker('a').setCacheManager(WeakPtr<Cache, CacheBase>(cache));
    all.maker('a').enableCaching(false);
    EXPECT_EQ(order(*cache), "a|-|-");
    EXPECT_EQ(cache->complaints, std::vector<std::string>(static_cast<std::size_t>(refusals), "a"));
  }
  struct Refusing : Cache {
    Refusing() : Cache(0, "refusing") {}
    bool handleOutOfMemory(const StrongPtr<Cacheable>&, const WeakPtr<Creature>&) override {
      ++asked;
      return false;
    }
    int asked = 0;
  };
  const StrongPtr<Refusing, CacheBase> refusing = new Refusing;
  all.maker('a').setCacheManager(WeakPtr<Cache, CacheBase>(refusing));
  all.maker('a').enableCaching(false);
  EXPECT_EQ(refusing->asked, 1);
  EXPECT_EQ(refusing->nEntries(), 0u);
}

TEST(Creature, AddressText) {
  const MakerPtr maker = new Maker;
  EXPECT_EQ(maker->addrstr(), "[No Data Available]");
  maker->data = new Data(1);
  EXPECT_EQ(maker->addrstr(), to_address_string(maker->data.get()));

  // The data of another owner, who destroyed them by hand.
  Cacheable* const gone = maker->data.get();
  delete gone;
  const std::string text = maker->addrstr();
  EXPECT_EQ(text.rfind("[invalid:", 0), 0u) << text;
  EXPECT_EQ(text,
            "[invalid:" + to_address_string(detail::PointerAccess::referer(maker->data)) + "]");
}

TEST(Creature, Provenance) {
  const auto path = [](const Creature& creature) {
    std::string text;
    for (const StrongPtr<Provenance>& record : creature.provenance())
      text += (record ? record->getPath(':') : "?") + " ";
    return text;
  };
  const MakerPtr maker = new Maker;
  maker->setProvenance("a");
  EXPECT_EQ(path(*maker), "a ");
  maker->setProvenance("b");
  EXPECT_EQ(path(*maker), "b ");
  maker->appendProvenance("c");
  const StrongPtr<Provenance> root = new Provenance("r");
  const StrongPtr<Provenance> leaf = new Provenance("d", root);
  maker->appendProvenance(leaf);
  EXPECT_EQ(path(*maker), "b c r:d ");
  EXPECT_EQ(maker->provenancePath(), "r/d");
  EXPECT_EQ(maker->provenancePath('.'), "r.d");
  maker->setProvenance("e");
  EXPECT_EQ(path(*maker), "b c r:e ");
  EXPECT_EQ(leaf->name(), "e") << "the record itself is renamed";
  maker->setProvenance(leaf->name());
  EXPECT_EQ(leaf->name(), "e");
  maker->appendProvenance(StrongPtr<Provenance>());
  EXPECT_EQ(maker->provenancePath(), "");
  maker->setProvenance("f");
  EXPECT_EQ(path(*maker), "b c r:e f ");
  maker->setProvenance(leaf);
  EXPECT_EQ(path(*maker), "r:e ");
  const StrongPtr<Provenance> byHand = new Provenance("gone");
  maker->setProvenance(byHand);
  delete byHand.get();
  EXPECT_EQ(maker->provenancePath(), "");
  maker->setProvenance("g");
  EXPECT_EQ(path(*maker), "g ");
}

TEST(Creature, ListsItsTypeInTheDefaultCache) {
  const MakerPtr maker = made(new MakerOf<77>(Cache::MemCache()), new DataOf<77>(1 << 20));
  maker->enableCaching(false);
  const std::string creator = Typename(typeid(MakerOf<77>)), domain = Typename(typeid(DataOf<77>)),
                    figures = "   Have 1 entries using 1048576 (1M, 1M freeable, 0M unfreeable) "
                              "here. \n";
  const std::string ofType = printed([&] { maker->list_info(); }),
                    ofData = printed([&] { maker->list_info(typeid(DataOf<77>)); });
  EXPECT_NE(ofType.find(" CreatorCacheMap for specific Domain [" + creator + "]:" + figures),
            std::string::npos)
      << ofType;
  EXPECT_NE(ofData.find(" CreatorCacheMap for Creator Domain [" + creator +
                        "] for Cacheable Domain [" + domain + "]:" + figures),
            std::string::npos)
      << ofData;
}
