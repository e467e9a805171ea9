#include <tolvane/Chunk.hpp>
#include <tolvane/LoaderProgress.hpp>
#include <tolvane/LoaderRegistry.hpp>

#include <algorithm>
#include <clocale>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace {

using namespace Tolvane;
using Outcome = LoaderParameters::Attempt::Outcome;
using Parameters = StrongPtr<LoaderParameters>;

template <int>
struct Key {};

/// A loader that does what it is told and counts itself.
struct Scripted : LoaderBase {
  explicit Scripted(std::string loaderName, std::list<std::string> extensions = {})
      : LoaderBase(std::move(extensions)), name(std::move(loaderName)) {
    ++alive;
  }
  ~Scripted() override { --alive; }

  bool isloadable(const Parameters& parameters) override { return run(parameters, nullptr); }
  bool load(const Parameters& parameters, ldrpar* special) override {
    return run(parameters, special);
  }
  StrongPtr<LoaderRequest> loadrequest(const Parameters& parameters, ldrpar* special) override {
    return run(parameters, special) ? new LoaderRequest(name) : nullptr;
  }

  bool run(const Parameters& parameters, ldrpar* special) {
    lastParameters = parameters;
    lastSpecial = special;
    asked += name;
    return onRun && onRun(parameters);
  }

  static inline int alive = 0;
  static inline std::string asked;
  const std::string name;
  std::function<bool(const Parameters&)> onRun;
  Parameters lastParameters;
  ldrpar* lastSpecial = nullptr;
};
struct First : Scripted {
  using Scripted::Scripted;
};
struct Second : Scripted {
  using Scripted::Scripted;
};

/// The loaders `a`, `b` and `c` in a domain of their own. They are asked in the order of the
/// registry, which is no concern of the tests: `order` tells it.
template <class Domain>
struct ThreeLoaders {
  ThreeLoaders() {
    Scripted::asked.clear();
    append<0>("a", {".x", ".y"});
    append<1>("b", {});
    append<2>("c", {".y"});
    for (const auto& loader : LoaderRegistryBase::loaders(typeid(Domain))) {
      order.push_back(static_cast<Scripted*>(loader.get()));
      names += order.back()->name;
    }
  }
  ~ThreeLoaders() { LoaderRegistryBase::forget(typeid(Domain)); }

  template <int I>
  void append(const char* name, const std::list<std::string>& extensions) {
    LoaderRegistryBase::domain_append(typeid(Key<I>), new Scripted(name, extensions),
                                      typeid(Domain));
  }

  static bool load(const Parameters& parameters) {
    Scripted::asked.clear();
    return LoaderRegistry<Domain>::load(parameters);
  }

  std::vector<Scripted*> order;
  std::string names;
};

TEST(LoaderRegistry, KeepsOneLoaderPerKeyAndDomain) {
  struct DomainA {};
  struct DomainB {};
  const StrongPtr<LoaderBase> loader = new Scripted("both");
  LoaderRegistryBase::domain_append(typeid(Key<0>), new Scripted("replaced"), typeid(DomainA));
  LoaderRegistryBase::domain_append(typeid(Key<0>), loader, typeid(DomainA));
  LoaderRegistryBase::domain_append(typeid(Key<0>), loader, typeid(DomainA));
  LoaderRegistryBase::domain_append(typeid(Key<1>), loader, typeid(DomainB));
  EXPECT_EQ(Scripted::alive, 1);
  EXPECT_EQ(LoaderRegistryBase::loaders(typeid(DomainA)), std::vector{loader});
  EXPECT_EQ(LoaderRegistryBase::loaders(typeid(DomainB)), std::vector{loader});
  EXPECT_EQ(loader.strongCount(), 3);

  EXPECT_FALSE(LoaderRegistryBase::domain_remove(typeid(Key<1>), typeid(DomainA)));
  EXPECT_FALSE(LoaderRegistryBase::domain_remove(typeid(Key<1>), typeid(Key<1>)));
  EXPECT_TRUE(LoaderRegistryBase::domain_remove(typeid(Key<0>), typeid(DomainA)));
  EXPECT_TRUE(LoaderRegistryBase::loaders(typeid(DomainA)).empty());
  LoaderRegistryBase::forget(typeid(Key<1>));
  EXPECT_TRUE(LoaderRegistryBase::loaders(typeid(DomainB)).empty());
  EXPECT_EQ(loader.strongCount(), 1);

  const auto knows = [](const std::type_info& type) {
    return std::ranges::count(LoaderRegistryBase::domains(), TypeInfo(type)) == 1;
  };
  LoaderRegistry<DomainA>::isloadable(nullptr);
  EXPECT_TRUE(knows(typeid(DomainA))) << "asking for a load makes the domain known";
  LoaderRegistryBase::forget(typeid(DomainA));
  EXPECT_FALSE(knows(typeid(DomainA)));
  LoaderRegistryBase::loaders(typeid(DomainA));
  EXPECT_FALSE(knows(typeid(DomainA)));
}

TEST(LoaderRegistry, DomainWithoutLoaders) {
  struct Domain {};
  const Parameters parameters = new LoaderParameters({"f"});
  EXPECT_EQ(parameters->statusText(), "");
  EXPECT_EQ(parameters->userValue(), 1);
  EXPECT_EQ(parameters->files(), std::list<std::string>{"f"});
  EXPECT_FALSE(LoaderRegistry<Domain>::load(parameters));
  EXPECT_EQ(parameters->statusText(), "No loader available. ");
  EXPECT_EQ(parameters->describeAttempts(), "");
  EXPECT_FALSE(LoaderRegistry<Domain>::load(nullptr));
  EXPECT_FALSE(LoaderRegistry<Domain>::isloadable(parameters));
  EXPECT_FALSE(LoaderRegistry<Domain>::loadrequest(parameters));
  EXPECT_TRUE(LoaderRegistry<Domain>::getSupportedExtensions().empty());
}

TEST(LoaderRegistry, AsksUntilOneSucceeds) {
  struct Domain {};
  ThreeLoaders<Domain> loaders;
  const Parameters parameters = new LoaderParameters({"f"});
  LoaderBase::ldrpar special;
  loaders.order[1]->onRun = [](const Parameters&) { return true; };
  const std::string firstTwo = loaders.names.substr(0, 2);

  EXPECT_TRUE(LoaderRegistry<Domain>::isloadable(parameters));
  EXPECT_EQ(Scripted::asked, firstTwo);
  const StrongPtr<LoaderRequest> request =
      LoaderRegistry<Domain>::loadrequest(parameters, &special);
  EXPECT_EQ(request->url(), loaders.order[1]->name);
  EXPECT_TRUE(request->buffer().empty());
  EXPECT_EQ(Scripted::asked, firstTwo + firstTwo);
  EXPECT_EQ(parameters->statusText(), "") << "only a load writes it";
  Scripted::asked.clear();
  EXPECT_TRUE(LoaderRegistry<Domain>::load(parameters, &special));
  EXPECT_EQ(Scripted::asked, firstTwo);
  EXPECT_EQ(loaders.order[0]->lastParameters, parameters);
  EXPECT_EQ(loaders.order[0]->lastSpecial, &special);

  EXPECT_TRUE(loaders.load(nullptr)) << "without parameters the loaders are asked all the same";
  EXPECT_EQ(Scripted::asked, firstTwo);
  EXPECT_FALSE(loaders.order[0]->lastParameters);

  std::list<std::string> extensions{"before"};
  LoaderRegistryBase::getSupportedDomainExtensions(extensions, typeid(Domain));
  std::list<std::string> expected{"before"};
  for (const Scripted* loader : loaders.order) {
    expected.insert(expected.end(), loader->extensions().begin(), loader->extensions().end());
  }
  EXPECT_EQ(extensions, expected);
}

TEST(LoaderRegistry, TellsWhoWasAskedAndWhyEachRefused) {
  struct Domain {};
  ThreeLoaders<Domain> loaders;
  const Parameters parameters = new LoaderParameters({"f"});
  loaders.order[0]->onRun = [](const Parameters& given) {
    EXPECT_EQ(given->statusText(), "No loader available. ");
    given->setStatusText("too short");
    return false;
  };
  loaders.order[2]->onRun = [](const Parameters& given) {
    EXPECT_EQ(given->statusText(), "too short");
    given->setStatusText("too short"); // the same words are a reason of its own
    return false;
  };
  EXPECT_FALSE(loaders.load(parameters));
  EXPECT_EQ(Scripted::asked, loaders.names);
  EXPECT_EQ(parameters->statusText(), "too short");
  const std::string loader = "(anonymous namespace)::Scripted: ";
  EXPECT_EQ(parameters->describeAttempts(), loader + "too short\n" + loader +
                                                "refused without a reason\n" + loader +
                                                "too short\n");

  // The second loader throws: the account is there all the same, and the next load starts afresh.
  loaders.order[1]->onRun = [](const Parameters& given) -> bool {
    given->setStatusText("bad header");
    throw std::runtime_error("broken");
  };
  EXPECT_THROW(loaders.load(parameters), std::runtime_error);
  ASSERT_EQ(parameters->attempts().size(), 2u);
  EXPECT_EQ(parameters->attempts()[0].outcome, Outcome::Refused);
  EXPECT_EQ(parameters->attempts()[1].outcome, Outcome::Threw);
  EXPECT_EQ(parameters->attempts()[1].reason, "bad header");
  EXPECT_EQ(loaders.order[1]->lastParameters.strongCount(), 4) << "no hold is left behind";

  // It loads another file through the same parameters, and so resets the text that they carry.
  struct Inner {};
  loaders.order[2]->onRun = nullptr;
  loaders.order[1]->onRun = [](const Parameters& given) {
    return LoaderRegistry<Inner>::load(given);
  };
  EXPECT_FALSE(loaders.load(parameters));
  EXPECT_EQ(parameters->describeAttempts(), loader + "too short\n" + loader +
                                                "No loader available. \n" + loader +
                                                "refused without a reason\n");
}

struct Progress : LoaderProgress {
  bool tryLoader(const WeakPtr<LoaderBase>& loader, const std::type_info& domain, int index,
                 int count) override {
    const std::lock_guard lock(mutex());
    EXPECT_THROW(mutex().lock(), std::system_error);
    EXPECT_TRUE(domain == *expectedDomain);
    calls += StrongPtr<Scripted, LoaderBase>(loader)->name + std::to_string(index) +
             std::to_string(count) + ' ';
    return std::ranges::count(vetoed, index) == 0;
  }
  const std::type_info* expectedDomain = nullptr;
  std::vector<int> vetoed;
  std::string calls;
};

TEST(LoaderRegistry, ProgressMayLeaveLoadersOut) {
  struct Domain {};
  ThreeLoaders<Domain> loaders;
  const std::string& n = loaders.names;
  loaders.order[2]->onRun = [](const Parameters&) { return true; };
  const struct {
    std::vector<int> vetoed;
    std::string asked;
    std::string calls;
    bool loaded;
  } cases[] = {
      {{}, n, {n[0], '0', '3', ' ', n[1], '1', '3', ' ', n[2], '2', '3', ' '}, true},
      {{0}, n.substr(1), {n[0], '0', '3', ' ', n[1], '1', '3', ' ', n[2], '2', '3', ' '}, true},
      {{0, 2},
       n.substr(1, 1),
       {n[0], '0', '3', ' ', n[1], '1', '3', ' ', n[2], '2', '3', ' '},
       false},
  };
  for (const auto& c : cases) {
    const Parameters parameters = new LoaderParameters({"f"});
    const StrongPtr<Progress, InterfaceBase> progress = new Progress;
    progress->expectedDomain = &typeid(Domain);
    progress->vetoed = c.vetoed;
    parameters->addInterface(progress);
    EXPECT_TRUE(parameters->hasInterface(typeid(LoaderProgress)));
    EXPECT_EQ(loaders.load(parameters), c.loaded);
    EXPECT_EQ(Scripted::asked, c.asked);
    EXPECT_EQ(progress->calls, c.calls);
    for (const int index : c.vetoed) {
      EXPECT_EQ(parameters->attempts()[static_cast<std::size_t>(index)].outcome, Outcome::Vetoed);
    }
  }
  LoaderProgress plain;
  EXPECT_TRUE(plain.OpenFile("f") && plain.progress("f", 1, 2) && plain.busy("f") &&
              plain.message("m") && plain.tryLoader(nullptr, typeid(Domain), 0, 1));
}

TEST(LoaderRegistry, SurvivesLoadersThatChangeIt) {
  struct Domain {};
  struct Fresh {};
  const int before = Scripted::alive;
  for (const bool throughNull : {false, true}) {
    ThreeLoaders<Domain> loaders;
    const std::string names = loaders.names;
    // The first loader adds many, takes all the others out, itself included, and one stays dead.
    loaders.order[0]->onRun = [&](const Parameters&) {
      LoaderRegistry<Fresh>::load(nullptr);
      LoaderRegistryBase::forget(typeid(Domain));
      loaders.append<3>("d", {});
      loaders.append<4>("e", {});
      return false;
    };
    EXPECT_FALSE(loaders.load(throughNull ? nullptr : Parameters(new LoaderParameters({"f"}))));
    EXPECT_EQ(Scripted::asked, names.substr(0, 1)) << "what is gone or new is not asked";
    EXPECT_EQ(LoaderRegistryBase::loaders(typeid(Domain)).size(), 2u);
  }
  EXPECT_EQ(Scripted::alive, before);

  ThreeLoaders<Domain> loaders;
  delete loaders.order[1]; // by hand: its entry is skipped from now on, and not counted
  const Parameters parameters = new LoaderParameters({"f"});
  const StrongPtr<Progress, InterfaceBase> progress = new Progress;
  progress->expectedDomain = &typeid(Domain);
  parameters->addInterface(progress);
  EXPECT_FALSE(loaders.load(parameters));
  const std::string& n = loaders.names;
  EXPECT_EQ(progress->calls, (std::string{n[0], '0', '3', ' ', n[2], '1', '3', ' '}));
}

TEST(LoaderRegistry, RegistrationComesAndGoes) {
  struct Domain {};
  const auto count = [] { return LoaderRegistryBase::loaders(typeid(Domain)).size(); };
  const int before = Scripted::alive;
  {
    const LoaderRegistry<Domain>::Registration<First> first("first", std::list<std::string>{".f"});
    EXPECT_EQ(first.loader()->extensions(), std::list<std::string>{".f"});
    {
      const LoaderRegistry<Domain>::Registration<Second> second("second");
      EXPECT_EQ(count(), 2u);
    }
    EXPECT_EQ(count(), 1u);
    LoaderRegistry<Domain>::append(new First("replaces it"));
    LoaderRegistry<Domain>::append(nullptr);
    EXPECT_FALSE(first.loader());
    EXPECT_EQ(count(), 1u);
  }
  EXPECT_EQ(count(), 1u) << "the one that replaced it stays";
  EXPECT_TRUE(LoaderRegistryBase::domain_remove(typeid(First), typeid(Domain)));
  EXPECT_EQ(Scripted::alive, before);
}

TEST(LoaderBase, ComparesExtensions) {
  const struct {
    std::list<std::string> names;
    std::list<std::string> extensions;
    bool supported;
  } cases[] = {
      {{"A.DAT", "b.dat"}, {".dat"}, true},
      {{"A.DAT", "b.dat"}, {".DAT"}, false},
      {{"a.dat", "b.txt"}, {".dat"}, false},
      {{"a.dat", "b.txt"}, {".dat", ".txt"}, true},
      {{"ab"}, {"", "b", "ab"}, false},
      {{"abc"}, {""}, true},
      {{"abc"}, {"abcd", "xabc"}, false},
      {{"abc"}, {"ABC", "abc"}, true},
      {{"adat"}, {"dat"}, true},
      {{}, {}, true},
      {{"abc"}, {}, false},
      {{std::string("a\0.DAT", 6)}, {".dat"}, true},
      {{"a.D\xc4\xff"}, {".d\xc4\xff"}, true}, // bytes above 127 have no case in the C locale
  };
  ASSERT_STREQ(std::setlocale(LC_CTYPE, nullptr), "C");
  for (const auto& c : cases) {
    EXPECT_EQ(LoaderBase::checkIfAllExtensionsAreSupported(c.names, c.extensions), c.supported)
        << testing::PrintToString(c.names) << testing::PrintToString(c.extensions);
  }
}

} // namespace
