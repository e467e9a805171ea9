#include "support/CacheFixtures.hpp"

using namespace cachetest;

namespace {

template <class Action>
std::string thrownText(const Action& action) {
  try {
    action();
  } catch (const char* text) {
    return text;
  }
  return "nothing";
}

// Has room only after a number of complaints; less than none for never, and gives up at once.
struct Reluctant : Cache {
  explicit Reluctant(int refusals) : Cache(0, "reluctant"), left(refusals) {}
  memsize_t limit() const override { return left != 0 ? 0 : 1000; }
  bool handleOutOfMemory(const StrongPtr<Cacheable>& object,
                         const WeakPtr<Creature>& creator) override {
    complaints += object->name() + (creator == object->creator() ? "" : "?");
    return left-- > 0;
  }
  int left;
  std::string complaints;
};

} // namespace

TEST(Creature, HasDataOnlyWhileTheyLive) {
  // A creature that makes its data for everyone who asks, and keeps none.
  struct Generous : Creature {
    Generous() : Creature(nullptr) {}
    StrongPtr<Cacheable> getCacheable() const override { return new Data(1); }
  };
  Generous generous;
  EXPECT_TRUE(generous.hasData());
  EXPECT_FALSE(generous.release() || generous.isReproducible())
      << "unless a creature says more, its data stay";
  EXPECT_STREQ(Creature::Exception("d", "f", 1).what(), "Unspecified Tolvane::Creature Exception");
}

TEST(Creature, EnableCachingNeedsAHolderAndACache) {
  Maker onTheStack;
  EXPECT_EQ(thrownText([&] { onTheStack.enableCaching(true); }),
            "No strong references for Creature!");
  CachePtr cache = new Cache(100, "cache");
  const MakerPtr maker = new Maker;
  const auto enable = [&] {
    std::string thrown;
    return printed([&] { thrown = thrownText([&] { maker->enableCaching(false); }); }) + thrown;
  };
  EXPECT_EQ(enable(), "nothing") << "without data nothing is asked";
  maker->data = new Data(1);
  maker->setCacheManager(cache);
  cache = nullptr;
  EXPECT_EQ(enable(), "Creature::enableCaching(): No Cache!\nNo Cache!");
}

TEST(Creature, EnableCachingFilesAtTheChosenEnd) {
  Cache onTheStack(100, "which is not taken over");
  Population all(&onTheStack);
  for (const char name : {'a', 'b', 'c'}) {
    all.add(name, 10);
    all.maker(name).enableCaching(name == 'c');
  }
  EXPECT_EQ(order(onTheStack), "bac|-|-");
}

TEST(Creature, WithoutRoomTheCacheDecides) {
  const CachePtr full = new Cache(10, "full");
  Population all(full);
  all.add('a', 11, 1);
  try {
    all.maker('a').enableCaching(false);
    ADD_FAILURE() << "no exception";
  } catch (const Cache::OutOfMemory& e) {
    EXPECT_TRUE(e.object() == all['a'] && e.creator() == all.maker('a').self() &&
                e.cache() == full);
  }
  const std::tuple<int, const char*, const char*> cases[] = {
      {0, "", "a|-|-"}, {1, "a", "a|-|-"}, {3, "aaa", "a|-|-"}, {-1, "a", ""}};
  for (const auto& [refusals, complaints, expected] : cases) {
    const StrongPtr<Reluctant, CacheBase> cache = new Reluctant(refusals);
    all.maker('a').setCacheManager(WeakCachePtr(cache));
    all.maker('a').enableCaching(false);
    EXPECT_EQ(order(*cache), expected);
    EXPECT_EQ(cache->complaints, complaints);
  }
}

TEST(Creature, AddressText) {
  const MakerPtr maker = new Maker;
  EXPECT_EQ(maker->addrstr(), "[No Data Available]");
  maker->data = new Data(1);
  EXPECT_EQ(maker->addrstr(), to_address_string(maker->data.get()));
  delete maker->data.get(); // as another owner might do by mistake
  EXPECT_EQ(maker->addrstr(),
            "[invalid:" + to_address_string(detail::PointerAccess::referer(maker->data)) + "]");
}

TEST(Creature, Provenance) {
  const MakerPtr maker = new Maker;
  const auto path = [&] {
    std::string text;
    for (const StrongPtr<Provenance>& record : maker->provenance())
      text += (record ? record->getPath(':') : "?") + " ";
    return text + maker->provenancePath();
  };
  maker->setProvenance("a");
  maker->setProvenance("b");
  EXPECT_EQ(path(), "b b");
  maker->appendProvenance("c");
  const StrongPtr<Provenance> root = new Provenance("r"), leaf = new Provenance("d", root);
  maker->appendProvenance(leaf);
  EXPECT_EQ(path() + maker->provenancePath('.'), "b c r:d r/dr.d");
  maker->setProvenance("e");
  EXPECT_EQ(path(), "b c r:e r/e") << "the record itself is renamed";
  maker->appendProvenance(StrongPtr<Provenance>());
  EXPECT_EQ(path(), "b c r:e ? ");
  maker->setProvenance("f");
  EXPECT_EQ(path(), "b c r:e f f");
  maker->setProvenance(leaf);
  delete leaf.get();
  EXPECT_EQ(maker->provenancePath(), "") << "as another owner might do by mistake";
}

TEST(Creature, ListsItsTypeInTheDefaultCache) {
  const std::type_info& domain = typeid(DataOf<77>);
  const MakerPtr maker = made(new MakerOf<77>(Cache::MemCache()), new DataOf<77>(1 << 20));
  EXPECT_EQ(maker->cacheManager()->name(), "MemCache Objects");
  maker->enableCaching(false);
  const std::string type = "Domain [" + Typename(typeid(MakerOf<77>)) + "]",
                    list = printed([&] { maker->list_info(), maker->list_info(domain); });
  for (const std::string& part : {" CreatorCacheMap for specific " + type + ":   Have 1 entries",
                                  " CreatorCacheMap for Creator " + type +
                                      " for Cacheable Domain [" + Typename(domain) + "]:   Have 1"})
    EXPECT_NE(list.find(part), std::string::npos) << list;
}
