// Loaders, savers, and what is handed to them, that do in each of their operations what none
// should: the registries stay whole, and nothing is left behind.

#include "support/Hostile.hpp"
#include "support/LongRun.hpp"

#include <tolvane/LoaderProgress.hpp>
#include <tolvane/LoaderRegistry.hpp>
#include <tolvane/SaveRegistry.hpp>

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using namespace Tolvane;
using namespace hostile;
using Base = LoaderRegistryBase;
using Savers = SaveRegistryBase;
using Parameters = StrongPtr<LoaderParameters>;
using Creator = StrongPtr<SaveInterfaceCreatorBase>;
using testsupport::Watchdog;

// Counts itself, and does the worst at its end.
template <class Counted>
struct Mortal : Counted {
  template <class... Arguments>
  explicit Mortal(Arguments... arguments) : Counted(arguments...) {
    ++alive;
  }
  ~Mortal() override {
    --alive;
    act(onEnd);
  }
};

struct PlainLoader : LoaderBase {
  bool isloadable(const Parameters&) override { return act(onCall), false; }
  bool load(const Parameters& given, ldrpar*) override {
    if (given)
      given->setStatusText("refused");
    return act(onCall), false;
  }
  StrongPtr<LoaderRequest> loadrequest(const Parameters&, ldrpar*) override {
    return act(onCall), nullptr;
  }
};
struct PlainProgress : LoaderProgress {
  bool tryLoader(const WeakPtr<LoaderBase>&, const std::type_info&, int, int) override {
    return act(onCall), true;
  }
};
struct PlainCreator : SaveInterfaceCreatorBase {
  PlainCreator() : SaveInterfaceCreatorBase("name", "text") {}
};
using Loader = Mortal<PlainLoader>;
using Progress = Mortal<PlainProgress>;
using Saver = Mortal<PlainCreator>;
using Given = Mortal<LoaderParameters>;

struct Domain {};
void append(const std::type_info& key) {
  Base::domain_append(key, new Loader, typeid(Domain));
}
void appendSaver(const std::type_info& key) {
  Savers::getInterfaceCreator(typeid(Domain), key) = new Saver;
}

struct Registry : testing::Test {
  ~Registry() override { onCall = onEnd = nullptr; }
  const Watchdog watchdog;
};

struct HostileLoader : Registry {
  void fill() {
    forKeys(0, 3, append);
    parameters = new Given(std::list<std::string>{"f"});
    parameters->addInterface(new Progress);
  }
  void remove() {
    forKeys(0, keyCount, [](auto& key) { Base::domain_remove(key, typeid(Domain)); });
  }
  void askAll() {
    std::list<std::string> extensions;
    Base::getSupportedDomainExtensions(extensions, typeid(Domain));
    Base::domains();
    Base::domain_isloadable(parameters, typeid(Domain));
    Base::domain_loadrequest(parameters, nullptr, typeid(Domain));
    Base::domain_load(nullptr, nullptr, typeid(Domain));
    Base::domain_load(parameters, nullptr, typeid(Domain));
  }
  Parameters parameters;
};

struct HostileSaver : Registry {
  struct Walk : Savers::Iterator {
    bool visitCreator(TypeInfo, Creator& creator) override {
      if (replaces)
        creator = new Saver;
      return act(onCall), true;
    }
    bool replaces = false;
  };
  struct Traverser : Savers {
    bool visitCreator(TypeInfo, Creator&) override { return act(onCall), true; }
  };
  static int iterate(bool replaces = false) {
    Walk walk;
    walk.replaces = replaces;
    return Savers::iterate(typeid(Domain), walk);
  }
  static void remove() {
    forKeys(0, keyCount, [](auto& key) { Savers::removeCreator(typeid(Domain), key); });
  }
};

// Runs an operation of which a part does its worst; whether an exception came out.
bool throws(const Action& operation) {
  try {
    operation();
    return false;
  } catch (const std::runtime_error&) {
  } catch (const NullPtrException&) {
  }
  return true;
}

} // namespace

TEST_F(HostileLoader, DoesItsWorstInEveryOperation) {
  const struct {
    const char* name;
    bool asIsAtTheEnd; // what a destructor may do as well
    Action run;
  } worst[] = {
      {"nothing", true, [] {}},
      {"throw", false, [] { throw std::runtime_error("from inside"); }},
      {"forget", true, [] { Base::forget(typeid(Domain)); }},
      {"remove", true, [&] { remove(); }},
      {"replace", true, [] { forKeys(0, 3, append); }},
      {"grow", true, [] { forKeys(3, keyCount, append); }},
      {"drop what is given", true, [&] { parameters = nullptr; }},
      {"ask", true, [&] { askAll(); }},
      {"strip what is given", true,
       [&] {
         if (const Parameters held = parameters) {
           held->clearInterfaces();
           held->setStatusText("other");
           held->addInterface(new Progress);
         }
       }},
      {"destroy what is given", false, [&] { delete parameters.get(); }},
      {"destroy the loaders", false,
       [] {
         for (const auto& loader : Base::loaders(typeid(Domain)))
           delete loader.get();
       }},
  };
  const std::pair<const char*, Action> operations[] = {
      {"load", [&] { Base::domain_load(parameters, nullptr, typeid(Domain)); }},
      {"load nothing", [&] { Base::domain_load(nullptr, nullptr, typeid(Domain)); }},
      {"ask", [&] { Base::domain_isloadable(parameters, typeid(Domain)); }},
      {"request", [&] { Base::domain_loadrequest(parameters, nullptr, typeid(Domain)); }},
      {"replace", [] { forKeys(0, 1, append); }},
      {"remove", [&] { remove(); }},
      {"forget the key", [] { Base::forget(key(0)); }},
      {"forget", [] { Base::forget(typeid(Domain)); }},
      {"drop what is given", [&] { parameters = nullptr; }},
  };
  testing::internal::CaptureStdout(); // the reports of what was destroyed by hand
  for (const auto& [operationName, operate] : operations)
    for (const auto& bad : worst)
      for (const bool atTheEnd : {false, true}) {
        if (atTheEnd && !bad.asIsAtTheEnd)
          continue;
        SCOPED_TRACE(std::string(operationName) + " / " + bad.name +
                     (atTheEnd ? " at the end" : ""));
        fill();
        left = 5;
        (atTheEnd ? onEnd : onCall) = bad.run;
        const bool threw = throws(operate);
        EXPECT_TRUE(!threw || !bad.asIsAtTheEnd);
        onCall = onEnd = nullptr;
        EXPECT_EQ(depth, 0);
        // It goes on as if nothing had been: all that are there are asked, and all can go.
        int asked = 0;
        left = 1000;
        onCall = [&] { ++asked; };
        const std::size_t there = Base::loaders(typeid(Domain)).size();
        const Parameters next = new Given(std::list<std::string>{"f"});
        EXPECT_FALSE(Base::domain_load(next, nullptr, typeid(Domain)));
        EXPECT_EQ(asked, static_cast<int>(there));
        EXPECT_EQ(next->attempts().size(), there);
        onCall = nullptr;
        Base::forget(typeid(Domain));
        parameters = nullptr;
        EXPECT_EQ(alive, 1) << "the next parameters";
      }
  testing::internal::GetCapturedStdout();
}

TEST_F(HostileLoader, LoadsCrosswise) {
  struct Other {};
  static thread_local int nested;
  struct Crossing : PlainLoader {
    explicit Crossing(const std::type_info& to) : other(to) {}
    bool load(const Parameters& given, ldrpar* special) override {
      const bool inner = nested++ < 5 && Base::domain_load(given, special, other);
      --nested;
      return inner;
    }
    const std::type_info& other;
  };
  forKeys(0, 2, [](auto& key) {
    Base::domain_append(key, new Crossing(typeid(Other)), typeid(Domain));
    Base::domain_append(key, new Crossing(typeid(Domain)), typeid(Other));
  });
  testsupport::inThreads(2, [](int thread, std::mt19937&) {
    const Parameters given = new LoaderParameters({"f"});
    for (int i = 0; i < 100; ++i)
      EXPECT_FALSE(Base::domain_load(given, nullptr, thread ? typeid(Domain) : typeid(Other)));
    EXPECT_EQ(given->attempts().size(), 2u);
  });
  Base::forget(typeid(Domain));
  Base::forget(typeid(Other));
}

TEST_F(HostileSaver, DoesItsWorstInEveryOperation) {
  const struct {
    const char* name;
    bool asIsAtTheEnd;
    Action run;
  } worst[] = {
      {"nothing", true, [] {}},
      {"throw", false, [] { throw std::runtime_error("from inside"); }},
      {"forget", true, [] { Savers::forget(typeid(Domain)); }},
      {"forget the keys", true, [] { forKeys(0, 3, Savers::forget); }},
      {"remove", true, [] { remove(); }},
      {"replace", true, [] { forKeys(0, 3, appendSaver); }},
      {"grow", true, [] { forKeys(3, keyCount, appendSaver); }},
      {"add types", true, [] { forKeys(0, keyCount, Savers::SaveMethods); }},
      {"walk", true,
       [] {
         iterate();
         Traverser().traverseCreators(typeid(Domain));
       }},
      {"destroy the creators", false,
       [] {
         for (const auto& [key, creator] : Savers::SaveMethods(typeid(Domain)))
           delete creator.get();
       }},
  };
  const std::pair<const char*, Action> operations[] = {
      {"iterate", [] { iterate(); }},
      {"iterate and replace", [] { iterate(true); }},
      {"traverse", [] { Traverser().traverseCreators(typeid(Domain)); }},
      {"assign", [] { forKeys(0, 1, appendSaver); }},
      {"remove", [] { remove(); }},
      {"forget the key", [] { Savers::forget(key(0)); }},
      {"forget", [] { Savers::forget(typeid(Domain)); }},
  };
  for (const auto& [operationName, operate] : operations)
    for (const auto& bad : worst)
      for (const bool atTheEnd : {false, true}) {
        if (atTheEnd && !bad.asIsAtTheEnd)
          continue;
        SCOPED_TRACE(std::string(operationName) + " / " + bad.name +
                     (atTheEnd ? " at the end" : ""));
        forKeys(0, 3, appendSaver);
        left = 5;
        (atTheEnd ? onEnd : onCall) = bad.run;
        const bool threw = throws(operate);
        EXPECT_TRUE(!threw || !bad.asIsAtTheEnd);
        onCall = onEnd = nullptr;
        EXPECT_EQ(depth, 0);
        int visited = 0;
        left = 1000;
        onCall = [&] { ++visited; };
        EXPECT_EQ(Traverser().traverseCreators(typeid(Domain)), visited);
        EXPECT_EQ(Savers::SaveMethods(typeid(Domain)).size(), static_cast<std::size_t>(visited));
        onCall = nullptr;
        forKeys(0, keyCount, Savers::forget);
        Savers::forget(typeid(Domain));
        EXPECT_EQ(alive, 0);
      }
}
