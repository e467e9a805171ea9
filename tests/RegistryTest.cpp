// The registries of loaders and savers, and the attributes of objects.

#include <tolvane/Ageable.hpp>
#include <tolvane/Attributes.hpp>
#include <tolvane/Chunk.hpp>
#include <tolvane/Intercube.hpp>
#include <tolvane/LoaderProgress.hpp>
#include <tolvane/LoaderRegistry.hpp>
#include <tolvane/SaveParameters.hpp>
#include <tolvane/SaveRegistry.hpp>
#include <tolvane/StreamSaverInterface.hpp>

#include <algorithm>
#include <clocale>
#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>
#include <typeindex>

namespace {

using namespace Tolvane;
using Outcome = LoaderParameters::Attempt::Outcome;
using Parameters = StrongPtr<LoaderParameters>;
using Extensions = std::list<std::string>;
using Base = LoaderRegistryBase;

template <int>
struct Key {};

/// A loader that does what it is told and counts itself.
struct Scripted : LoaderBase {
  explicit Scripted(std::string loaderName, Extensions extensions = {})
      : LoaderBase(std::move(extensions)), name(std::move(loaderName)) {
    ++alive;
  }
  ~Scripted() override { --alive; }
  bool isloadable(const Parameters& given) override { return run(given, nullptr); }
  bool load(const Parameters& given, ldrpar* special) override { return run(given, special); }
  StrongPtr<LoaderRequest> loadrequest(const Parameters& given, ldrpar* special) override {
    return run(given, special) ? new LoaderRequest(name) : nullptr;
  }
  bool run(const Parameters& given, ldrpar* special) {
    lastParameters = given;
    lastSpecial = special;
    asked += name;
    return onRun && onRun(given);
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
    append<0>("a", {".x", ".y"});
    append<1>("b", {});
    append<2>("c", {".y"});
    for (const auto& loader : Base::loaders(typeid(Domain))) {
      order.push_back(static_cast<Scripted*>(loader.get()));
      names += order.back()->name;
    }
  }
  ~ThreeLoaders() { Base::forget(typeid(Domain)); }
  template <int I>
  void append(const char* name, const Extensions& extensions) {
    Base::domain_append(typeid(Key<I>), new Scripted(name, extensions), typeid(Domain));
  }
  static bool load(const Parameters& parameters, LoaderBase::ldrpar* special = nullptr) {
    Scripted::asked.clear();
    return LoaderRegistry<Domain>::load(parameters, special);
  }
  std::vector<Scripted*> order;
  std::string names;
};

TEST(LoaderRegistry, KeepsOneLoaderPerKeyAndDomain) {
  struct DomainA {};
  struct DomainB {};
  const StrongPtr<LoaderBase> loader = new Scripted("both");
  Base::domain_append(typeid(Key<0>), new Scripted("replaced"), typeid(DomainA));
  Base::domain_append(typeid(Key<0>), loader, typeid(DomainA));
  Base::domain_append(typeid(Key<0>), loader, typeid(DomainA));
  Base::domain_append(typeid(Key<1>), loader, typeid(DomainB));
  EXPECT_TRUE(Scripted::alive == 1 && loader.strongCount() == 3);
  EXPECT_EQ(Base::loaders(typeid(DomainA)), std::vector{loader});
  EXPECT_EQ(Base::loaders(typeid(DomainB)), std::vector{loader});

  EXPECT_FALSE(Base::domain_remove(typeid(Key<1>), typeid(DomainA)) ||
               Base::domain_remove(typeid(Key<1>), typeid(Key<1>)));
  EXPECT_TRUE(Base::domain_remove(typeid(Key<0>), typeid(DomainA)));
  EXPECT_TRUE(Base::loaders(typeid(DomainA)).empty());
  Base::forget(typeid(Key<1>));
  EXPECT_TRUE(Base::loaders(typeid(DomainB)).empty());
  EXPECT_EQ(loader.strongCount(), 1);

  const auto knowsA = [] { return std::ranges::count(Base::domains(), TypeInfo(typeid(DomainA))); };
  LoaderRegistry<DomainA>::isloadable(nullptr);
  EXPECT_EQ(knowsA(), 1) << "asking for a load makes the domain known";
  Base::forget(typeid(DomainA));
  Base::loaders(typeid(DomainA));
  EXPECT_EQ(knowsA(), 0);

  const Parameters parameters = new LoaderParameters({"f"});
  EXPECT_FALSE(LoaderRegistry<DomainA>::load(parameters) ||
               LoaderRegistry<DomainA>::load(nullptr) ||
               LoaderRegistry<DomainA>::isloadable(parameters) ||
               LoaderRegistry<DomainA>::loadrequest(parameters));
  EXPECT_EQ(parameters->statusText(), "No loader available. ");
  EXPECT_EQ(parameters->describeAttempts(), "");
}

TEST(LoaderRegistry, AsksUntilOneSucceeds) {
  struct Domain {};
  ThreeLoaders<Domain> loaders;
  const Parameters parameters = new LoaderParameters({"f"});
  LoaderBase::ldrpar special;
  loaders.order[1]->onRun = [](const Parameters&) { return true; };
  const std::string firstTwo = loaders.names.substr(0, 2);

  Scripted::asked.clear();
  EXPECT_TRUE(LoaderRegistry<Domain>::isloadable(parameters));
  const auto request = LoaderRegistry<Domain>::loadrequest(parameters, &special);
  EXPECT_TRUE(request->url() == loaders.order[1]->name && request->buffer().empty());
  EXPECT_EQ(Scripted::asked, firstTwo + firstTwo);
  EXPECT_EQ(parameters->statusText(), "") << "only a load writes it";
  EXPECT_TRUE(loaders.load(parameters, &special));
  EXPECT_EQ(Scripted::asked, firstTwo);
  EXPECT_EQ(loaders.order[0]->lastParameters, parameters);
  EXPECT_EQ(loaders.order[0]->lastSpecial, &special);
  EXPECT_TRUE(loaders.load(nullptr)) << "without parameters the loaders are asked all the same";
  EXPECT_EQ(Scripted::asked, firstTwo);
  EXPECT_FALSE(loaders.order[0]->lastParameters);

  Extensions extensions{"before"}, expected{"before"};
  Base::getSupportedDomainExtensions(extensions, typeid(Domain));
  for (const Scripted* loader : loaders.order)
    expected.insert(expected.end(), loader->extensions().begin(), loader->extensions().end());
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
    given->setStatusText(given->statusText()); // the same words are a reason of its own
    return false;
  };
  EXPECT_FALSE(loaders.load(parameters));
  EXPECT_EQ(Scripted::asked, loaders.names);
  EXPECT_EQ(parameters->statusText(), "too short");
  const std::string loader = "(anonymous namespace)::Scripted: ", tooShort = loader + "too short\n",
                    withoutReason = loader + "refused without a reason\n";
  EXPECT_EQ(parameters->describeAttempts(), tooShort + withoutReason + tooShort);

  // The second loader throws: the account is there all the same, and the next load starts afresh.
  loaders.order[1]->onRun = [](const Parameters& given) -> bool {
    given->setStatusText("bad header");
    throw std::runtime_error("broken");
  };
  EXPECT_THROW(loaders.load(parameters), std::runtime_error);
  ASSERT_EQ(parameters->attempts().size(), 2u);
  EXPECT_TRUE(parameters->attempts()[0].outcome == Outcome::Refused &&
              parameters->attempts()[1].outcome == Outcome::Threw);
  EXPECT_EQ(parameters->attempts()[1].reason, "bad header");
  EXPECT_EQ(loaders.order[1]->lastParameters.strongCount(), 4) << "no hold is left behind";

  // It loads another file through the same parameters, and so resets the text that they carry.
  struct Inner {};
  loaders.order[2]->onRun = nullptr;
  loaders.order[1]->onRun = [](const Parameters& p) { return LoaderRegistry<Inner>::load(p); };
  EXPECT_FALSE(loaders.load(parameters));
  EXPECT_EQ(parameters->describeAttempts(),
            tooShort + loader + "No loader available. \n" + withoutReason);
}

struct Progress : LoaderProgress {
  explicit Progress(std::string left = "") : vetoed(std::move(left)) {}
  bool tryLoader(const WeakPtr<LoaderBase>& loader, const std::type_info& domain, int index,
                 int count) override {
    const std::lock_guard lock(mutex());
    EXPECT_THROW(mutex().lock(), std::system_error);
    last = &domain;
    calls += StrongPtr<Scripted, LoaderBase>(loader)->name + std::to_string(index) +
             std::to_string(count) + ' ';
    return vetoed.find(std::to_string(index)) == std::string::npos;
  }
  const std::string vetoed;
  const std::type_info* last = nullptr;
  std::string calls;
};

TEST(LoaderRegistry, ProgressMayLeaveLoadersOut) {
  struct Domain {};
  ThreeLoaders<Domain> loaders;
  const std::string& n = loaders.names;
  loaders.order[2]->onRun = [](const Parameters&) { return true; };
  const auto load = [&](const StrongPtr<Progress, InterfaceBase>& progress) {
    const Parameters parameters = new LoaderParameters({"f"});
    parameters->addInterface(progress);
    const bool loaded = loaders.load(parameters);
    for (const char index : progress->vetoed)
      EXPECT_EQ(parameters->attempts().at(static_cast<unsigned char>(index - '0')).outcome,
                Outcome::Vetoed);
    EXPECT_EQ(*progress->last, typeid(Domain));
    return Scripted::asked + (loaded ? " loaded " : " refused ") + progress->calls;
  };
  const std::string all = n.substr(0, 1) + "03 " + n[1] + "13 " + n[2] + "23 ";
  EXPECT_EQ(load(new Progress), n + " loaded " + all);
  EXPECT_EQ(load(new Progress("0")), n.substr(1) + " loaded " + all);
  EXPECT_EQ(load(new Progress("02")), n.substr(1, 1) + " refused " + all);
  delete loaders.order[1]; // by hand: its entry is skipped from now on, and not counted
  EXPECT_EQ(load(new Progress("1")), n.substr(0, 1) + " refused " + n[0] + "03 " + n[2] + "13 ");
}

TEST(LoaderRegistry, SurvivesLoadersThatChangeIt) {
  struct Domain {};
  const int before = Scripted::alive;
  for (const Parameters& parameters : {Parameters(), Parameters(new LoaderParameters({"f"}))}) {
    ThreeLoaders<Domain> loaders;
    const std::string names = loaders.names;
    // The first loader takes all out, itself included, and adds others.
    loaders.order[0]->onRun = [&](const Parameters&) {
      LoaderRegistry<Key<9>>::load(nullptr);
      Base::forget(typeid(Domain));
      loaders.template append<3>("d", {});
      loaders.template append<4>("e", {});
      return false;
    };
    EXPECT_FALSE(loaders.load(parameters));
    EXPECT_EQ(Scripted::asked, names.substr(0, 1)) << "what is gone or new is not asked";
    EXPECT_EQ(Base::loaders(typeid(Domain)).size(), 2u);
  }
  EXPECT_EQ(Scripted::alive, before);
}

TEST(LoaderRegistry, RegistrationComesAndGoes) {
  struct Domain {};
  const auto count = [] { return Base::loaders(typeid(Domain)).size(); };
  const int before = Scripted::alive;
  {
    const LoaderRegistry<Domain>::Registration<First> first("first", Extensions{".f"});
    EXPECT_EQ(first.loader()->extensions(), Extensions{".f"});
    {
      const LoaderRegistry<Domain>::Registration<Second> second("second");
      EXPECT_EQ(count(), 2u);
    }
    EXPECT_EQ(count(), 1u);
    LoaderRegistry<Domain>::append(new First("replaces it"));
    LoaderRegistry<Domain>::append(nullptr);
    EXPECT_FALSE(first.loader());
  }
  EXPECT_EQ(count(), 1u) << "the one that replaced it stays";
  EXPECT_TRUE(Base::domain_remove(typeid(First), typeid(Domain)));
  EXPECT_EQ(Scripted::alive, before);
}

TEST(LoaderBase, ComparesExtensions) {
  using E = Extensions;
  ASSERT_STREQ(std::setlocale(LC_CTYPE, nullptr), "C"); // where bytes above 127 have no case
  for (const auto& [names, extensions, supported] :
       {std::tuple(E{"A.DAT", "b.dat"}, E{".dat"}, true),
        std::tuple(E{"A.DAT", "b.dat"}, E{".DAT"}, false),
        std::tuple(E{"a.dat", "b.txt"}, E{".dat"}, false),
        std::tuple(E{"a.dat", "b.txt"}, E{".dat", ".txt"}, true),
        std::tuple(E{"ab"}, E{"", "b", "ab"}, false), std::tuple(E{"abc"}, E{""}, true),
        std::tuple(E{"abc"}, E{"abcd", "xabc"}, false), std::tuple(E{"abc"}, E{"ABC", "abc"}, true),
        std::tuple(E{}, E{}, true), std::tuple(E{"abc"}, E{}, false),
        std::tuple(E{std::string("a\0.DAT", 6)}, E{".dat"}, true),
        std::tuple(E{"a.D\xc4\xff"}, E{".d\xc4\xff"}, true)})
    EXPECT_EQ(LoaderBase::checkIfAllExtensionsAreSupported(names, extensions), supported)
        << testing::PrintToString(names) << testing::PrintToString(extensions);
}

using Slot = StrongPtr<SaveInterfaceCreatorBase>;
using Savers = SaveRegistryBase;

struct Creator : SaveInterfaceCreatorBase {
  explicit Creator(std::string name = "n") : SaveInterfaceCreatorBase(std::move(name), "text") {
    ++alive;
  }
  ~Creator() override { --alive; }
  static inline int alive = 0;
};

struct Visitor : Savers::Iterator {
  bool visitCreator(TypeInfo, Slot& creator) override {
    seen += creator ? creator->name() : "-";
    return !onVisit || onVisit(creator);
  }
  std::string seen;
  std::function<bool(Slot&)> onVisit;
};

bool knows(const std::type_info& type) {
  return Savers::BaseSaveList().contains(TypeInfo(type));
}

TEST(SaveRegistry, LookUpsMakeEntries) {
  struct A {};
  Visitor visitor;
  EXPECT_EQ(Savers::iterate(typeid(A), visitor), 0);
  EXPECT_FALSE(Savers::findInterfaceCreator(typeid(A), typeid(Key<0>)));
  EXPECT_FALSE(Savers::removeCreator(typeid(A), typeid(Key<0>)));
  EXPECT_FALSE(knows(typeid(A))) << "walks, mere look-ups and removals make none";
  EXPECT_TRUE(visitor.seen.empty() && Savers::SaveMethods(typeid(A)).empty() && knows(typeid(A)));

  Slot& slot = Savers::getInterfaceCreator(typeid(A), typeid(Key<0>));
  EXPECT_FALSE(slot);
  slot = new Creator("saver");
  const Slot found = Savers::findInterfaceCreator(typeid(A), typeid(Key<0>));
  EXPECT_EQ(found->name() + '/' + found->description(), "saver/text");
  EXPECT_FALSE(Savers::removeCreator(typeid(A), typeid(Key<0>), Slot(new Creator)));
  EXPECT_TRUE(Savers::removeCreator(typeid(A), typeid(Key<0>), found));
  EXPECT_EQ(found.strongCount(), 1);
  Savers::forget(typeid(A));
  EXPECT_FALSE(knows(typeid(A)));
}

TEST(SaveRegistry, WalksOnIntoTheTypesThatFollow) {
  struct A {};
  struct B {};
  struct C {};
  const std::pair<const std::type_info*, const char*> types[] = {
      {&typeid(A), "a"}, {&typeid(B), "b"}, {&typeid(C), "c"}};
  for (const auto& [type, name] : types)
    for (const std::type_info* key : {&typeid(Key<0>), &typeid(Key<1>)})
      Savers::getInterfaceCreator(*type, *key) = new Creator(name);
  Savers::getInterfaceCreator(typeid(B), typeid(Key<2>)); // empty, and visited as well
  std::string all;
  std::map<std::type_index, std::size_t> starts;
  for (const auto& [type, methods] : Savers::BaseSaveList()) {
    starts[type.get()] = all.size();
    for (const auto& [interfaceType, creator] : methods)
      all += creator ? creator->name() : "-";
  }
  for (const auto& [type, name] : types) {
    const std::string rest = all.substr(starts.at(*type));
    Visitor visitor, stops;
    EXPECT_EQ(Savers::iterate(*type, visitor), static_cast<int>(rest.size()));
    EXPECT_EQ(visitor.seen, rest);
    stops.onVisit = [&](Slot&) { return stops.seen.size() < 2; };
    EXPECT_EQ(Savers::iterate(*type, stops), 1);
    EXPECT_EQ(stops.seen, rest.substr(0, 2));
  }
  struct Traverser : SaveRegistry<A> {
    bool visitCreator(TypeInfo, Slot& creator) override { return creator && ++calls != 1; }
    int calls = 0;
  } traverser;
  EXPECT_EQ(traverser.traverseCreators(), 1);
  EXPECT_EQ(traverser.calls, 2) << "it visits all of its own type, whatever is answered";
  Savers::forget(typeid(Key<0>));
  Savers::forget(typeid(Key<1>));
  EXPECT_EQ(Savers::SaveMethods(typeid(B)).size(), 1u);
  for (const auto& [type, name] : types)
    Savers::forget(*type);
  EXPECT_EQ(Creator::alive, 0);
}

TEST(SaveRegistry, SurvivesVisitorsThatChangeIt) {
  struct A {};
  const std::type_info* const keys[] = {&typeid(Key<2>), &typeid(Key<3>), &typeid(Key<4>),
                                        &typeid(Key<5>), &typeid(Key<6>), &typeid(Key<7>)};
  Savers::getInterfaceCreator(typeid(A), typeid(Key<0>)) = new Creator;
  Savers::getInterfaceCreator(typeid(A), typeid(Key<1>)) = new Creator;
  Visitor visitor;
  visitor.onVisit = [&](Slot& slot) {
    slot = nullptr;
    Savers::forget(typeid(A));
    for (const std::type_info* type : keys) {
      Savers::getInterfaceCreator(*type, *type) = new Creator;
      Savers::getInterfaceCreator(typeid(A), *type) = new Creator;
    }
    return true;
  };
  EXPECT_EQ(Savers::iterate(typeid(A), visitor), 1) << visitor.seen;
  Savers::forget(typeid(A));
  for (const std::type_info* type : keys)
    Savers::forget(*type);
  EXPECT_EQ(Creator::alive, 0);
}

TEST(SaveRegistry, InterfacesAreFoundUnderTheirTag) {
  struct A {};
  struct Stream : StreamSaverInterface {};
  {
    const SaveRegistry<A>::Registration<Stream, Creator> registration("s");
    const Slot creator = registration.creator();
    EXPECT_TRUE(creator && Savers::findInterfaceCreator(typeid(A), typeid(StreamSaver)) == creator);
    EXPECT_EQ(SaveRegistry<A>::findInterfaceCreator<StreamSaverInterface>(), creator);
    EXPECT_EQ(SaveRegistry<A>::getInterfaceCreator<StreamSaver>(), creator);
    EXPECT_EQ(SaveRegistry<A>::SaveMethods().size(), 1u);
  }
  EXPECT_FALSE(SaveRegistry<A>::findInterfaceCreator<Stream>());
  EXPECT_EQ(Creator::alive, 0);
  Intercube object;
  object.addInterface(new Stream);
  EXPECT_TRUE(object.findInterface<StreamSaverInterface>() && object.findInterface<Stream>() &&
              object.hasInterface<StreamSaver>());
  Savers::forget(typeid(A));
}

TEST(SaveParameters, CopyTheDestinationOnly) {
  struct Option : Interface<Option> {};
  SaveParameters parameters("file");
  parameters.addInterface(new Option);
  parameters.setUserValue(std::int64_t{1} << 40);
  parameters.setUserText("t");
  const SaveParameters copy = parameters;
  EXPECT_EQ(copy.destination() + copy.userText(), "file");
  EXPECT_FALSE(copy.userValue() || copy.hasInterface<Option>());
  EXPECT_EQ(parameters.userValue(), std::int64_t{1} << 40);
}

TEST(Attributes, KeepsOneValuePerNameInByteOrder) {
  const std::pair<std::vector<std::string>, const char*> cases[] = {
      {{}, "( )"},
      {{"b", "ab", "a", "ab"}, "( a ab b )"},
      {{"a", "B", "_", ""}, "(  B _ a )"},
      {{"\xe4", "z"}, "( z \xe4 )"}};
  for (const auto& [names, text] : cases) {
    Attributes attributes;
    for (const std::string& name : names)
      attributes.setAttribute(name, makeChunk(1));
    EXPECT_EQ(attributes.toString(), text);
    EXPECT_EQ(std::to_string(attributes), text);
  }
  Attributes attributes;
  const StrongPtr<ChunkBase> first = makeChunk(1);
  attributes.setAttribute("n", first);
  attributes.setAttribute("n", attributes.getAttribute("n"));
  EXPECT_EQ(first.strongCount(), 2);
  attributes.setAttribute("n", makeChunk(2));
  EXPECT_TRUE(first.strongCount() == 1 && chunkValue<int>(attributes.getAttribute("n")) == 2);
  attributes.setAttribute("empty", nullptr);
  EXPECT_TRUE(attributes.hasAttribute("empty") && !attributes.getAttribute("empty"));
  EXPECT_FALSE(attributes.hasAttribute("absent") || attributes.getAttribute("absent"));

  ++Ageable::GlobalTime;
  Attributes copy = attributes;
  EXPECT_EQ(attributes.stamp() + 1, copy.stamp());
  EXPECT_EQ(attributes.getAttribute("n"), copy.getAttribute("n"));
  copy.setAttribute("b", nullptr);
  attributes = copy;
  EXPECT_EQ(attributes.toString(), "( b empty n )");
  EXPECT_EQ(attributes.stamp() + 1, copy.stamp()) << "the stamp tells when the set was made";
}

TEST(Attributes, WalksInOrderAndStops) {
  struct : Attributes::Iterator {
    bool visitAttribute(const std::string& name, StrongPtr<ChunkBase>& value) override {
      names += name;
      value = makeChunk(names);
      attributes.setAttribute("bb", nullptr); // added on the way, ahead of the walk
      attributes.setAttribute("0", nullptr);  // and behind it
      return names.size() < 5;
    }
    Attributes attributes;
    std::string names;
  } visitor;
  for (const char* name : {"c", "a", "b"})
    visitor.attributes.setAttribute(name, nullptr);
  EXPECT_EQ(visitor.attributes.iterate(visitor), 3);
  EXPECT_EQ(visitor.names, "abbbc");
  EXPECT_EQ(chunkValue<std::string>(visitor.attributes.getAttribute("c")), "abbbc");
  EXPECT_EQ(visitor.attributes.iterate(visitor), 0);
}

TEST(Attributes, ReleasesOldChunksWhenTheSetIsWhole) {
  struct Asking : ChunkBase {
    explicit Asking(Attributes& attributes) : owner(attributes) {}
    ~Asking() override {
      EXPECT_EQ(chunkValue<int>(owner.getAttribute("a")), 2);
      owner.setAttribute("from inside", nullptr);
    }
    Attributes& owner;
  };
  Attributes attributes;
  attributes.setAttribute("a", new Asking(attributes));
  attributes.setAttribute("a", makeChunk(2));
  EXPECT_EQ(attributes.toString(), "( a from inside )");
  Attributes next = attributes;
  attributes.setAttribute("b", new Asking(attributes));
  attributes = next;
  EXPECT_EQ(attributes.size(), 2u);
}

TEST(Chunk, AccountsForWhatItHolds) {
  const memsize_t before = ChunkBase::TotalMemsize;
  {
    const auto number = makeChunk(2.5);
    const auto text = makeChunk(std::string_view("abcd", 3)); // owns a copy
    const auto wide = makeChunk(std::u32string(U"ab"));
    EXPECT_EQ(ChunkBase::TotalMemsize - before,
              sizeof(double) + sizeof(std::string) + 3 + sizeof(std::u32string) + 8);
    text->setValue(std::string(1000, 'x'));
    text->setValue("y");
    EXPECT_EQ(text->memsize(), sizeof(std::string) + 1);
    EXPECT_EQ(ChunkBase::TotalMemsize - before,
              number->memsize() + text->memsize() + wide->memsize());
    EXPECT_EQ(chunkValue<std::string>(text), "y");
    EXPECT_FALSE(chunkValue<float>(number) || chunkValue<float>(nullptr)) << "of another type";
  }
  EXPECT_EQ(ChunkBase::TotalMemsize, before);
}

} // namespace
