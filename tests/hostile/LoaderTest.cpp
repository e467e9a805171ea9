// Loaders, savers, and what is handed to them, that do in each of their operations what none
// should: the registries stay whole, and nothing is left behind.

#include "support/HostileLoaders.hpp"

#include <tolvane/LoaderProgress.hpp>

namespace {

using namespace Tolvane;
using namespace hostile;
using Base = LoaderRegistryBase;
using Savers = SaveRegistryBase;
using Parameters = StrongPtr<LoaderParameters>;
using Creator = StrongPtr<SaveInterfaceCreatorBase>;
using Names = std::list<std::string>;

struct PlainProgress : LoaderProgress {
  bool tryLoader(const WeakPtr<LoaderBase>&, const std::type_info&, int, int) override {
    return act(onCall), true;
  }
};
struct Walk : Savers::Iterator, Savers {
  bool visitCreator(TypeInfo, Creator& creator) override {
    if (replaces)
      creator = new Mortal<PlainCreator>;
    return act(onCall), true;
  }
  bool replaces = false;
};

struct Domain {};
void append(const std::type_info& key) {
  Base::domain_append(key, new Mortal<PlainLoader>, typeid(Domain));
}
void takeOut(const std::type_info& key) {
  Base::domain_remove(key, typeid(Domain));
}
void appendSaver(const std::type_info& key) {
  Savers::getInterfaceCreator(typeid(Domain), key) = new Mortal<PlainCreator>;
}
void removeSaver(const std::type_info& key) {
  Savers::removeCreator(typeid(Domain), key);
}
int iterate(bool replaces) {
  Walk walk;
  walk.replaces = replaces;
  return Savers::iterate(typeid(Domain), walk);
}

} // namespace

TEST_F(Hostile, LoadersDoTheirWorst) {
  Parameters parameters;
  const std::vector<Deed> operations = {
      {"load", [&] { Base::domain_load(parameters, nullptr, typeid(Domain)); }},
      {"load nothing", [&] { Base::domain_load(nullptr, nullptr, typeid(Domain)); }},
      {"ask", [&] { Base::domain_isloadable(parameters, typeid(Domain)); }},
      {"request", [&] { Base::domain_loadrequest(parameters, nullptr, typeid(Domain)); }},
      {"replace", [] { forKeys(0, 1, append); }},
      {"remove", [&] { forKeys(0, keyCount, takeOut); }},
      {"forget the key", [] { Base::forget(key(0)); }},
      {"forget", [] { Base::forget(typeid(Domain)); }},
      {"drop what is given", [&] { parameters = nullptr; }},
  };
  const std::vector<Deed> deeds =
      joined(operations, {throwing(),
                          {"grow", [] { forKeys(3, keyCount, append); }},
                          {"list",
                           [] {
                             Names extensions;
                             Base::getSupportedDomainExtensions(extensions, typeid(Domain));
                             EXPECT_LE(Base::loaders(typeid(Domain)).size(),
                                       keyCount * Base::domains().size());
                           }},
                          {"strip what is given",
                           [&] {
                             if (const Parameters held = parameters) {
                               held->clearInterfaces();
                               held->setStatusText("other");
                               held->addInterface(new Mortal<PlainProgress>);
                             }
                           }},
                          {"destroy what is given", [&] { delete parameters.get(); }, true},
                          {"destroy the loaders",
                           [] {
                             for (const auto& loader : Base::loaders(typeid(Domain)))
                               delete loader.get();
                           },
                           true}});
  const auto fill = [&] {
    forKeys(0, 3, append);
    parameters = new Mortal<LoaderParameters>(Names{"f"});
    parameters->addInterface(new Mortal<PlainProgress>);
  };
  const auto check = [&] { // as if nothing had been, all that are there are asked, and all can go
    unsigned asked = 0;
    left = 1000;
    onCall = [&] { ++asked; };
    const Parameters next = new LoaderParameters(Names{"f"});
    EXPECT_FALSE(Base::domain_load(next, nullptr, typeid(Domain)));
    EXPECT_EQ(asked, Base::loaders(typeid(Domain)).size());
    EXPECT_EQ(asked, next->attempts().size());
    onCall = nullptr;
    Base::forget(typeid(Domain));
    parameters = nullptr;
  };
  doTheWorst(operations, deeds, fill, check);
}

TEST_F(Hostile, LoadersLoadCrosswise) {
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
    const Parameters given = new LoaderParameters(Names{"f"});
    for (int i = 0; i < 100; ++i)
      EXPECT_FALSE(Base::domain_load(given, nullptr, thread ? typeid(Domain) : typeid(Other)));
    EXPECT_EQ(given->attempts().size(), 2u);
  });
  Base::forget(typeid(Domain));
  Base::forget(typeid(Other));
}

TEST_F(Hostile, SaversDoTheirWorst) {
  const std::vector<Deed> operations = {
      {"iterate", [] { iterate(false); }},
      {"iterate and replace", [] { iterate(true); }},
      {"traverse", [] { Walk().traverseCreators(typeid(Domain)); }},
      {"assign", [] { forKeys(0, 1, appendSaver); }},
      {"remove", [] { forKeys(0, keyCount, removeSaver); }},
      {"forget the key", [] { Savers::forget(key(0)); }},
      {"forget", [] { Savers::forget(typeid(Domain)); }},
  };
  const std::vector<Deed> deeds =
      joined(operations, {throwing(),
                          {"grow", [] { forKeys(3, keyCount, appendSaver); }},
                          {"add types", [] { forKeys(0, keyCount, Savers::SaveMethods); }},
                          {"destroy the creators",
                           [] {
                             for (const auto& [key, creator] : Savers::SaveMethods(typeid(Domain)))
                               delete creator.get();
                           },
                           true}});
  doTheWorst(
      operations, deeds, [] { forKeys(0, 3, appendSaver); },
      [] {
        unsigned visited = 0;
        left = 1000;
        onCall = [&] { ++visited; };
        const int answered = Walk().traverseCreators(typeid(Domain));
        EXPECT_EQ(answered, static_cast<int>(visited));
        EXPECT_EQ(Savers::SaveMethods(typeid(Domain)).size(), visited);
        onCall = nullptr;
        forKeys(0, keyCount, Savers::forget);
        Savers::forget(typeid(Domain));
      });
}
