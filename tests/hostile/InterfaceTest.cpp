// Interfaces, attributes, catchers of messages, callbacks and last-pointer hooks that do what none
// should: what calls them stays whole, and nothing is left behind.

#include "support/CacheFixtures.hpp"
#include "support/Hostile.hpp"

#include <tolvane/AssertionCallback.hpp>
#include <tolvane/Attributes.hpp>
#include <tolvane/Breakpoint.hpp>
#include <tolvane/Chunk.hpp>
#include <tolvane/Intercube.hpp>

#include <filesystem>

using namespace cachetest;
using namespace hostile;

namespace {

using Slot = StrongPtr<InterfaceBase>;
using Parameter = StrongPtr<InterfaceIterationParameter>;

// An interface under any type.
struct Plain : InterfaceBase {
  explicit Plain(const std::type_info& filedUnder) : type(filedUnder) {}
  const std::type_info& interfaceType() const override {
    const std::type_info& known = type;
    return act(onCall), known;
  }
  bool apply(Intercube&, const Parameter&) override { return act(onCall), true; }
  bool apply_const(const Intercube&, const Parameter&) override { return act(onCall), true; }
  const std::type_info& type;
};
Slot item(const std::type_info& type) {
  return new Mortal<Plain>(std::cref(type));
}

// Carries interfaces, and perhaps makes those that are missing.
struct Owner : ReferenceBase<Owner>, Intercube {
  Slot createInterface(const std::type_info& type) override {
    act(onCall);
    return makes ? item(type) : nullptr;
  }
  static inline bool makes = true;
};

struct Visitor : IntercubeIterator, Attributes::Iterator {
  explicit Visitor(bool clears = false) : empties(clears) {}
  bool visit(TypeInfo type, Slot& slot) override {
    names.emplace_back(type.name());
    if (empties)
      slot = nullptr;
    return act(onCall), true;
  }
  bool visitAttribute(const std::string& name, StrongPtr<ChunkBase>& value) override {
    names.push_back(name);
    if (empties)
      value = nullptr;
    return act(onCall), true;
  }
  std::vector<std::string> names;
  const bool empties;
};

} // namespace

TEST_F(Hostile, InterfacesChangeAndDestroyWhatCarriesThem) {
  StrongPtr<Owner> owner;
  WeakPtr<Owner> watched; // whom each step of a deed looks at anew
  const auto step = [&](const std::function<void(Owner&)>& make) {
    return [&watched, make] {
      if (watched)
        make(*watched);
    };
  };
  const auto add = [&](std::size_t from, std::size_t to) {
    forKeys(from, to, [&](auto& type) { step([&](Owner& o) { o.addInterface(item(type)); })(); });
  };
  const Deed operations[] = {
      {"add", [&] { add(0, 1); }},
      {"register", step([](Owner& o) {
         try {
           o.registerInterface(key(0)) = item(key(0));
         } catch (const std::logic_error&) { // there is nothing any more to have a slot in
         }
       })},
      {"make", step([](Owner& o) { o.getInterface(key(1)); })},
      {"remove", step([](Owner& o) { o.removeInterfaceBase(key(0)); })},
      {"clear", step([](Owner& o) { o.clearInterfaces(); })},
      {"apply", step([](Owner& o) { EXPECT_TRUE(o.iterateInterfaces(nullptr)); })},
      {"apply const", step([](Owner& o) { EXPECT_TRUE(o.const_iterateInterfaces(nullptr)); })},
      {"visit", step([](Owner& o) {
         Visitor visitor(true);
         o.iterateInterfaces(visitor);
       })},
      {"destroy", [&] { owner = nullptr; }},
  };
  std::vector<Deed> deeds(std::begin(operations), std::end(operations));
  deeds.insert(deeds.end(), {throwing(),
                             {"grow", [&] { add(2, keyCount); }},
                             {"empty", step([](Owner& o) { o.registerInterface(key(0)); }), true},
                             {"destroy by hand", [&] { delete owner.get(); }},
                             {"destroy the interface",
                              step([](Owner& o) { delete o.findInterface(key(0)).get(); }), true}});
  const auto fill = [&] {
    owner = new Owner;
    watched = owner;
    owner->registerInterface(key(1));
    add(0, 1);
  };
  const auto check = [&] {
    step([](Owner& o) {
      Visitor visitor;
      const int slots = o.iterateInterfaces(visitor);
      const std::string names = o.getInterfaceNames(',');
      EXPECT_EQ(std::count(names.begin(), names.end(), ','), slots);
      forKeys(0, keyCount, [&](auto& type) {
        EXPECT_EQ(o.hasInterface(type),
                  std::count(visitor.names.begin(), visitor.names.end(), type.name()) == 1);
      });
    })();
    owner = nullptr;
  };
  for (const bool makes : {true, false}) {
    Owner::makes = makes;
    doTheWorst({std::begin(operations), std::end(operations)}, deeds, fill, check);
  }
}

TEST_F(Hostile, AttributesAreChangedWhileTheyAreWalkedAndReleased) {
  std::unique_ptr<Attributes> set;
  const auto refill = [&] {
    for (const char* name : {"a", "b", "c"})
      set->setAttribute(name, new Mortal<ChunkBase>);
  };
  const auto walk = [&](bool empties) {
    Visitor visitor(empties);
    const auto visited = static_cast<std::size_t>(set->iterate(visitor));
    EXPECT_EQ(visited, visitor.names.size());
    EXPECT_TRUE(std::is_sorted(visitor.names.begin(), visitor.names.end()));
  };
  const Deed operations[] = {
      {"walk", [&] { walk(false); }},
      {"walk and empty", [&] { walk(true); }},
      {"set", refill},
      {"assign", [&] { *set = Attributes(); }},
  };
  std::vector<Deed> deeds(std::begin(operations), std::end(operations));
  deeds.insert(deeds.end(),
               {throwing(),
                {"add before", [&] { set->setAttribute("0", nullptr); }},
                {"add behind", [&] { set->setAttribute("bb", new Mortal<ChunkBase>); }},
                {"copy", [&] { *set = Attributes(*set); }},
                {"ask", [&] { EXPECT_GE(set->toString().size(), set->size()); }}});
  const auto end = [&] { // with what its chunks do at their end, while it can still be asked
    Visitor visitor;
    EXPECT_EQ(set->iterate(visitor), static_cast<int>(set->size()));
    onEnd = [&, had = set.get()] { EXPECT_FALSE(had->hasAttribute("a") || had->size()); };
    left = 1;
    set->~Attributes();
    onEnd = nullptr;
    new (set.get()) Attributes;
  };
  doTheWorst(
      {std::begin(operations), std::end(operations)}, deeds,
      [&] {
        set = std::make_unique<Attributes>();
        refill();
      },
      end);
}

namespace {

struct HostileInCache : Hostile {
  // Three objects with all answers, and one of another domain.
  void fill() {
    cache = new Cache(45, "cache");
    for (const char name : {'a', 'b', 'c'})
      EXPECT_TRUE(cache->insert(all.add(name, 10, name - 'a'), false));
    EXPECT_TRUE(cache->insert(all.add<1>('p', 10), false));
  }
  void check() {
    if (cache)
      expectWhole(*cache, all);
    cache = nullptr;
  }
  bool adjust(memsize_t cost = 30) {
    return cache->adjust(typeid(MakerOf<0>), typeid(DataOf<0>), cost);
  }

  // Those who push into the queue that asks get an error.
  const std::vector<Deed> deeds = {
      throwing(),
      {"use",
       [&] {
         cache && cache->touch(all['b']);
         const StrongPtr<Cacheable> held = all['c'].lock();
         held && held->markAsUsed();
       },
       true},
      {"insert", [&] { cache && cache->insert(all['p'], true) && cache->insert(all['a'], true); },
       true},
      {"purge", [&] { cache ? cache->purge() : 0; }},
      {"make room", [&] { cache&& adjust() && cache->adjust(typeid(int), typeid(int), 40); }},
      {"list", [&] { printed([&] { cache ? cache->list_info() : void(); }); }},
      {"destroy the cache", [&] { cache = nullptr; }},
  };
  CachePtr cache;
  Population all;
};

} // namespace

TEST_F(HostileInCache, CatchersAreCalledInTheMiddleOfEverything) {
  struct Catcher : VerboseCatcher {
    void catchMessage(int, const std::string&, const std::string&, const std::string&, int,
                      char) override {
      act(onEnd ? dropsItself : onCall);
    }
    Action dropsItself;
  };
  StrongPtr<Mortal<Catcher>, VerboseCatcher> catcher;
  const auto install = [&] {
    catcher = new Mortal<Catcher>;
    catcher->dropsItself = [&] { catcher = nullptr; };
    VerboseCatcher::theCatcher = catcher;
  };
  std::vector<Deed> changes = deeds;
  changes.insert(changes.end(), {{"destroy itself", [&] { catcher = nullptr; }},
                                 {"go", [] { VerboseCatcher::theCatcher = nullptr; }},
                                 {"give way", install}});
  doTheWorst(
      {
          {"insert", [&] { cache->insert(all['c'], false); }},
          {"insert what is new", [&] { cache->insert(all.add<2, 2>('n', 3), false); }},
          {"find no room", [&] { cache->insert(all.add('m', 1000), false); }},
          {"touch", [&] { cache->touch(all['a']); }},
          {"make room", [&] { adjust(); }},
          {"purge", [&] { cache->purge(); }},
      },
      changes,
      [&] {
        fill();
        install();
      },
      [&] {
        check();
        VerboseCatcher::theCatcher = catcher = nullptr;
      });
}

// A hook must not throw, so it keeps away from the queue that asks; but not from all others.
TEST_F(HostileInCache, LastPointerHooksWorkInTheCache) {
  struct Hooked : DataOf<0> {
    using DataOf<0>::DataOf;
    void unction() override { act(onCall); }
  };
  struct HookedMaker : MakerOf<0> {
    void unction() override {
      act(onCall);
      if (data)
        data->leaveQueue();
    }
  };
  MakerPtr maker;
  StrongPtr<Cacheable> saved;
  std::vector<Deed> changes(deeds.begin() + 1, deeds.end());
  changes.push_back({"save", [&] { saved = maker ? maker->data : nullptr; }});
  doTheWorst(
      {
          {"drop the data", [&] { maker->data = nullptr; }},
          {"drop the maker", [&] { maker = nullptr; }},
          {"purge", [&] { cache->purge(); }},
          {"forget", [&] { cache->forget(typeid(Hooked)); }},
          {"destroy", [&] { cache = nullptr; }},
          {"zombie",
           [&] {
             cache->insert_zombie(maker->data);
             maker->data = nullptr;
             cache->purge_Hades();
           }},
      },
      changes,
      [&] {
        fill();
        maker = made(new HookedMaker, new Hooked(2));
        EXPECT_TRUE(cache->insert(maker->data, false));
      },
      [&] {
        if (cache)
          expectWhole(*cache, all, maker ? std::vector<MakerPtr>{maker} : std::vector<MakerPtr>());
        cache = nullptr;
        maker = nullptr;
        saved = nullptr;
      });
}

// Breakpoints are for the whole process, and decided upon once: this one runs itself again.
TEST_F(HostileInCache, CallbacksOfBreakpointsDoTheirWorst) {
  const char* const variable = "TOLVANE_ENABLE_BREAKPOINTS";
  if (!std::getenv(variable)) {
    const std::filesystem::path probe = probePath();
    const ProbeResult run = runProbe(
        {"--gtest_filter=*CallbacksOfBreakpointsDoTheirWorst"},
        {.environment = {{variable, "1"}},
         .program =
             (probe.parent_path() / ("tolvane-hostile" + probe.extension().string())).string()});
    EXPECT_EQ(run.exitCode, 0) << run.out << run.err;
    EXPECT_NE(run.out.find("[  PASSED  ] 1 test"), std::string::npos) << run.out;
    return;
  }
  struct Callback : AssertionCallback {
    bool assertion(const std::string&, const StackFrames&) override { return act(onCall), false; }
  };
  const auto install = [] {
    AssertionCallback::registerCallback(std::make_shared<Mortal<Callback>>());
  };
  std::vector<Deed> changes = deeds;
  changes.insert(changes.end(), {{"go", [] { AssertionCallback::registerCallback(nullptr); }},
                                 {"give way", install},
                                 {"again", [] { breakpoint("nested"); }}});
  doTheWorst(
      {
          {"breakpoint", [] { breakpoint("text"); }},
          {"null pointer", [] { StrongPtr<Cacheable>()->memsize(); }, true},
          {"make room",
           [&] { // asks for a creator that is gone, while the queue is held
             const StrongPtr<Cacheable> orphan = all['a'].lock();
             all.drop('a');
             const std::shared_ptr<void> last(nullptr, [&](void*) { orphan->leaveQueue(); });
             adjust();
           },
           true},
      },
      changes,
      [&] {
        fill();
        install();
      },
      [&] {
        check();
        AssertionCallback::registerCallback(nullptr);
      });
}
