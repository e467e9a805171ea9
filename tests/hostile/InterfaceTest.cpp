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
#include <stdexcept>
#include <system_error>

using namespace cachetest;
using namespace hostile;

namespace {

using Slot = StrongPtr<InterfaceBase>;

struct Hostile : testing::Test {
  ~Hostile() override {
    onCall = onEnd = nullptr;
    EXPECT_TRUE(depth == 0 && alive == 0);
  }
  const Watchdog watchdog;
};

// An interface under any type.
struct Item : InterfaceBase {
  explicit Item(std::size_t at) : at_(at) { ++alive; }
  ~Item() override {
    --alive;
    act(onEnd);
  }
  const std::type_info& interfaceType() const override {
    const std::type_info& type = key(at_);
    return act(onCall), type;
  }
  bool apply(Intercube&, const StrongPtr<InterfaceIterationParameter>&) override {
    return act(onCall), true;
  }
  bool apply_const(const Intercube&, const StrongPtr<InterfaceIterationParameter>&) override {
    return act(onCall), true;
  }
  const std::size_t at_;
};

// Carries interfaces, and makes those that are missing.
struct Owner : ReferenceBase<Owner>, Intercube {
  Slot createInterface(const std::type_info& type) override {
    act(onCall);
    for (std::size_t i = 0; i < keyCount; ++i)
      if (key(i) == type)
        return makes ? new Item(i) : nullptr;
    return nullptr;
  }
  static inline bool makes = true;
};

struct Visitor : IntercubeIterator, Attributes::Iterator {
  bool visit(TypeInfo type, Slot& slot) override {
    types.emplace_back(type.name());
    if (empties)
      slot = nullptr;
    return act(onCall), true;
  }
  bool visitAttribute(const std::string& name, StrongPtr<ChunkBase>& value) override {
    types.push_back(name);
    if (empties)
      value = nullptr;
    return act(onCall), true;
  }
  std::vector<std::string> types;
  bool empties = false;
};

} // namespace

// Each operation calls or releases the interface under the first key, which makes the change.
TEST_F(Hostile, InterfacesChangeAndDestroyWhatCarriesThem) {
  StrongPtr<Owner> owner;
  using Change = std::function<void(Intercube&)>;
  WeakPtr<Owner> watched;
  const auto add = [&](Intercube& cube, std::size_t from, std::size_t to) {
    for (; watched && from < to; ++from)
      cube.addInterface(new Item(from));
  };
  const auto walk = [&](Intercube& cube) {
    Visitor visitor;
    visitor.empties = true;
    cube.iterateInterfaces(nullptr);
    if (watched)
      cube.const_iterateInterfaces(nullptr);
    if (watched)
      cube.iterateInterfaces(visitor);
  };
  const Change nothing = [](Intercube&) {};
  const struct {
    const char* name;
    bool throws;
    Change make;
  } changes[] = {
      {"nothing", false, nothing},
      {"throw", true, [](Intercube&) { throw std::runtime_error("from inside"); }},
      {"grow", false, [&](Intercube& c) { add(c, 2, keyCount); }},
      {"remove", false, [](Intercube& c) { c.removeInterfaceBase(key(0)); }},
      {"replace", false, [&](Intercube& c) { add(c, 0, 1); }},
      {"register", false, [](Intercube& c) { c.registerInterface(key(0)); }},
      {"get", false, [](Intercube& c) { c.getInterface(key(1)); }},
      {"clear", false, [](Intercube& c) { c.clearInterfaces(); }},
      {"walk", false, [&](Intercube& c) { walk(c); }},
      {"destroy", false, [&](Intercube&) { owner = nullptr; }},
      {"destroy by hand", false, [&](Intercube&) { delete owner.get(); }},
      {"destroy the interface", true,
       [](Intercube& c) { delete std::as_const(c).findInterface(key(0)).get(); }},
  };
  const std::pair<const char*, Change> operations[] = {
      {"add", [&](Intercube& c) { add(c, 0, 1); }},
      {"register", [](Intercube& c) { c.registerInterface(key(0)) = new Item(0); }},
      {"make", [](Intercube& c) { c.getInterface(key(1)); }},
      {"remove", [](Intercube& c) { c.removeInterfaceBase(key(0)); }},
      {"clear", [](Intercube& c) { c.clearInterfaces(); }},
      {"apply", [](Intercube& c) { EXPECT_TRUE(c.iterateInterfaces(nullptr)); }},
      {"apply const", [](Intercube& c) { EXPECT_TRUE(c.const_iterateInterfaces(nullptr)); }},
      {"visit", [&](Intercube& c) { walk(c); }},
      {"end", [&](Intercube&) { owner = nullptr; }},
  };
  for (const auto& [operationName, operate] : operations)
    for (const auto& change : changes)
      for (const int place : {0, 1, 2}) { // in a call, in one that makes nothing, at an end
        if (place == 2 && change.throws)
          continue;
        SCOPED_TRACE(std::string(operationName) + " / " + change.name + std::to_string(place));
        Owner::makes = place != 1;
        owner = new Owner;
        watched = owner;
        owner->registerInterface(key(1));
        add(*owner, 0, 1);
        left = 5;
        (place == 2 ? onEnd : onCall) = [&, make = change.make] {
          if (watched)
            make(*watched);
        };
        try {
          operate(*owner);
        } catch (const std::runtime_error&) {
          EXPECT_TRUE(change.throws);
        } catch (const std::logic_error&) {
          EXPECT_FALSE(watched) << "nothing to have a slot in";
        }
        onCall = onEnd = nullptr;
        if (watched) {
          Visitor visitor;
          const int slots = watched->iterateInterfaces(visitor);
          const std::string names = watched->getInterfaceNames(',');
          EXPECT_EQ(std::count(names.begin(), names.end(), ','), slots);
          for (std::size_t i = 0; i < keyCount; ++i)
            EXPECT_EQ(watched->hasInterface(key(i)),
                      std::count(visitor.types.begin(), visitor.types.end(), key(i).name()) == 1);
        }
        owner = nullptr;
        EXPECT_EQ(alive, 0);
      }
}

TEST_F(Hostile, AttributesAreChangedWhileTheyAreWalkedAndReleased) {
  struct Asking : ChunkBase {
    Asking() { ++alive; }
    ~Asking() override {
      --alive;
      act(onEnd);
    }
  };
  std::unique_ptr<Attributes> set;
  const auto fill = [&] {
    for (const char* name : {"a", "b", "c"})
      set->setAttribute(name, new Asking);
  };
  const std::pair<const char*, Action> changes[] = {
      {"throw", [] { throw std::runtime_error("from inside"); }},
      {"add before", [&] { set->setAttribute("0", nullptr); }},
      {"add behind", [&] { set->setAttribute("bb", new Asking); }},
      {"replace", fill},
      {"empty", [&] { *set = Attributes(); }},
      {"assign", [&] { *set = Attributes(*set); }},
      {"ask", [&] { EXPECT_GE(set->toString().size() + set->size(), 3u); }},
      {"walk",
       [&] {
         Visitor visitor;
         set->iterate(visitor);
       }},
  };
  const std::pair<const char*, Action> operations[] = {
      {"walk",
       [&] {
         Visitor visitor;
         const int visited = set->iterate(visitor);
         EXPECT_EQ(visited, static_cast<int>(visitor.types.size()));
         EXPECT_TRUE(std::is_sorted(visitor.types.begin(), visitor.types.end()));
       }},
      {"walk and empty",
       [&] {
         Visitor visitor;
         visitor.empties = true;
         set->iterate(visitor);
       }},
      {"set", fill},
      {"assign", [&] { *set = Attributes(); }},
      {"end", [&] { set.reset(new Attributes); }},
  };
  for (const auto& [operationName, operate] : operations)
    for (const auto& [changeName, change] : changes)
      for (const bool atTheEnd : {false, true}) {
        const bool throws = &change == &changes[0].second;
        if (throws && atTheEnd)
          continue;
        SCOPED_TRACE(std::string(operationName) + " / " + changeName + std::to_string(atTheEnd));
        set = std::make_unique<Attributes>();
        fill();
        left = 5;
        (atTheEnd ? onEnd : onCall) = change;
        try {
          operate();
        } catch (const std::runtime_error&) {
          EXPECT_TRUE(throws);
        }
        onCall = onEnd = nullptr;
        Visitor visitor;
        EXPECT_EQ(set->iterate(visitor), static_cast<int>(set->size()));
        set = nullptr;
        EXPECT_EQ(alive, 0);
      }
}

namespace {

struct HostileInCache : Hostile {
  // Three objects with all answers, and one of another domain.
  void fill() {
    cache = new Cache(45, "cache");
    for (const char name : {'a', 'b', 'c'})
      EXPECT_TRUE(cache->insert(all.add(name, 10, name - 'a'), false));
    EXPECT_TRUE(cache->insert(all.add<1>('p', 10), false));
    left = 5;
  }
  // What was thrown inside comes out, or the error of one who pushes into the queue that asks.
  void run(const Action& operation) {
    try {
      printed(operation);
    } catch (const std::runtime_error&) {
    } catch (const NullPtrException&) {
    }
    onCall = onEnd = nullptr;
    if (cache)
      expectWhole(*cache, all);
    cache = nullptr;
  }
  bool adjust(memsize_t cost = 30) {
    return cache->adjust(typeid(MakerOf<0>), typeid(DataOf<0>), cost);
  }

  const std::pair<const char*, Action> deeds[7] = {
      {"throw", [] { throw std::runtime_error("from inside"); }},
      {"use",
       [&] {
         cache && cache->touch(all['b']);
         const StrongPtr<Cacheable> held = all['c'].lock();
         held && held->markAsUsed();
       }},
      {"insert", [&] { cache && cache->insert(all['p'], true) && cache->insert(all['a'], true); }},
      {"purge", [&] { cache ? cache->purge() : 0; }},
      {"make room", [&] { cache&& adjust() && cache->adjust(typeid(int), typeid(int), 40); }},
      {"list", [&] { cache ? cache->list_info() : void(); }},
      {"destroy the cache", [&] { cache = nullptr; }},
  };
  CachePtr cache;
  Population all;
};

} // namespace

TEST_F(HostileInCache, CatchersAreCalledInTheMiddleOfEverything) {
  struct Catcher : VerboseCatcher {
    Catcher() { ++alive; }
    ~Catcher() override {
      --alive;
      act(onEnd);
    }
    void catchMessage(int, const std::string&, const std::string&, const std::string&, int,
                      char) override {
      act(onCall);
    }
  };
  StrongPtr<Catcher, VerboseCatcher> catcher;
  std::vector<std::pair<std::string, Action>> changes(std::begin(deeds), std::end(deeds));
  changes.emplace_back("destroy itself", [&] { catcher = nullptr; });
  changes.emplace_back("take itself out", [] { VerboseCatcher::theCatcher = nullptr; });
  changes.emplace_back("give way", [&] {
    catcher = new Catcher;
    VerboseCatcher::theCatcher = catcher;
  });
  const std::pair<const char*, Action> operations[] = {
      {"insert", [&] { cache->insert(all['c'], false); }},
      {"insert what is new", [&] { cache->insert(all.add<2, 2>('n', 3), false); }},
      {"find no room", [&] { cache->insert(all.add('m', 1000), false); }},
      {"touch", [&] { cache->touch(all['a']); }},
      {"make room", [&] { adjust(); }},
      {"purge", [&] { cache->purge(); }},
  };
  for (const auto& [operationName, operate] : operations)
    for (const auto& [changeName, change] : changes)
      for (const bool atTheEnd : {false, true}) {
        if (atTheEnd && changeName == "throw")
          continue;
        SCOPED_TRACE(std::string(operationName) + " / " + changeName + std::to_string(atTheEnd));
        fill();
        catcher = new Catcher;
        VerboseCatcher::theCatcher = catcher;
        onCall = change;
        if (atTheEnd) {
          onCall = [&] { catcher = nullptr; };
          onEnd = changeName == "use" || changeName == "insert" ? nullptr : change;
        }
        run(operate);
        VerboseCatcher::theCatcher = catcher = nullptr;
        EXPECT_EQ(alive, 0);
      }
}

// A hook must not throw, so it keeps away from the queue that asks; but not from all others.
TEST_F(HostileInCache, LastPointerHooksWorkInTheCache) {
  struct Hooked : DataOf<0> {
    using DataOf<0>::DataOf;
    void unction() override { act(onCall); }
  };
  struct HookedMaker : MakerOf<0> {
    void unction() override {
      act(onEnd);
      if (data)
        data->leaveQueue();
    }
  };
  MakerPtr maker;
  StrongPtr<Cacheable> saved;
  std::vector<std::pair<std::string, Action>> changes(std::begin(deeds) + 1, std::end(deeds));
  changes.emplace_back("save", [&] { saved = maker ? maker->data : nullptr; });
  const std::pair<const char*, Action> operations[] = {
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
  };
  for (const auto& [operationName, operate] : operations)
    for (const auto& [changeName, change] : changes) {
      SCOPED_TRACE(std::string(operationName) + " / " + changeName);
      fill();
      maker = made(new HookedMaker, new Hooked(2));
      EXPECT_TRUE(cache->insert(maker->data, false));
      onCall = onEnd = change;
      run(operate);
      maker = nullptr;
      saved = nullptr;
    }
}

// Breakpoints are for the whole process, and decided upon once: this one runs itself again.
TEST_F(HostileInCache, CallbacksOfBreakpointsDoTheirWorst) {
  const char* const variable = "TOLVANE_ENABLE_BREAKPOINTS";
  if (!std::getenv(variable)) {
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    const std::filesystem::path probe = probePath();
    const std::string self =
        (probe.parent_path() / ("tolvane-hostile" + probe.extension().string())).string();
    const ProbeResult run =
        runProbe({std::string("--gtest_filter=") + test->test_suite_name() + '.' + test->name()},
                 {.environment = {{variable, "1"}}, .program = self});
    EXPECT_EQ(run.exitCode, 0) << run.out << run.err;
    EXPECT_NE(run.out.find("[  PASSED  ] 1 test"), std::string::npos) << run.out;
    return;
  }
  struct Callback : AssertionCallback {
    Callback() { ++alive; }
    ~Callback() override {
      --alive;
      act(onEnd);
    }
    bool assertion(const std::string&, const StackFrames&) override { return act(onCall), false; }
  };
  std::vector<std::pair<std::string, Action>> changes(std::begin(deeds), std::end(deeds));
  changes.emplace_back("destroy itself", [] { AssertionCallback::registerCallback(nullptr); });
  changes.emplace_back("give way",
                       [] { AssertionCallback::registerCallback(std::make_shared<Callback>()); });
  changes.emplace_back("again", [] { breakpoint("nested"); });
  const std::pair<const char*, Action> operations[] = {
      {"breakpoint", [] { breakpoint("text"); }},
      {"null pointer", [] { StrongPtr<Cacheable>()->memsize(); }},
      {"make room",
       [&] { // asks for a creator that is gone, while the queue is held
         const StrongPtr<Cacheable> orphan = all['a'].lock();
         all.drop('a');
         const std::shared_ptr<void> last(nullptr, [&](void*) { orphan->leaveQueue(); });
         adjust();
       }},
  };
  for (const auto& [operationName, operate] : operations)
    for (const auto& [changeName, change] : changes) {
      SCOPED_TRACE(std::string(operationName) + " / " + changeName);
      fill();
      AssertionCallback::registerCallback(std::make_shared<Callback>());
      onCall = change;
      onEnd = [] { breakpoint("at the end"); };
      run(operate);
      AssertionCallback::registerCallback(nullptr);
      EXPECT_EQ(alive, 0);
    }
}
