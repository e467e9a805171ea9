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

namespace {

using namespace Tolvane;
using Parameters = StrongPtr<LoaderParameters>;
using Extensions = std::list<std::string>;
using Base = LoaderRegistryBase;

template <int>
struct Key {};
struct Domain {};
struct A {};
struct B {};
struct C {};

/// A loader that does what its name says and counts itself.
struct Scripted : LoaderBase {
  explicit Scripted(std::string loaderName = "-", Extensions extensions = {})
      : LoaderBase(std::move(extensions)), name(std::move(loaderName)) {
    ++alive;
  }
  ~Scripted() override { --alive; }
  using LoaderBase::setExtensions;
  bool isloadable(const Parameters& given) override { return run(given, nullptr); }
  bool load(const Parameters& given, ldrpar* special) override { return run(given, special); }
  StrongPtr<LoaderRequest> loadrequest(const Parameters& given, ldrpar* special) override {
    return run(given, special) ? new LoaderRequest(name) : nullptr;
  }
  bool run(const Parameters& given, ldrpar* special) {
    lastParameters = given.get();
    lastSpecial = special;
    asked += name;
    if (name == "r" || name == "t")
      given->setStatusText("too short");
    if (name == "s")
      given->setStatusText(given->statusText()); // the same words are a reason of its own
    if (name == "t" || name == "T")
      throw std::runtime_error("broken");
    if (name == "i") // loads another file through the same parameters, and so resets their text
      return LoaderRegistry<Key<9>>::load(given);
    return name == "+";
  }
  static inline int alive = 0;
  static inline std::string asked;
  std::string name;
  const LoaderParameters* lastParameters = nullptr;
  ldrpar* lastSpecial = nullptr;
};

struct Progress : LoaderProgress {
  bool tryLoader(const WeakPtr<LoaderBase>& loader, const std::type_info& domain, int index,
                 int count) override {
    const std::lock_guard lock(mutex());
    EXPECT_THROW(mutex().lock(), std::system_error);
    EXPECT_TRUE(domain == typeid(Domain) && count == 3);
    const std::string name = StrongPtr<Scripted, LoaderBase>(loader)->name;
    calls += name + std::to_string(index) + ' ';
    parameters->setStatusText("asking"); // no loader's reason
    return name != "v";
  }
  LoaderParameters* parameters = nullptr;
  std::string calls;
};

/// Three loaders in a domain. They are asked in the order of the registry, whatever it is: a test
/// gives them their names, and so their ways, in this order.
class LoaderRegistryTest : public testing::Test {
protected:
  LoaderRegistryTest() {
    append<0>();
    append<1>();
    append<2>();
    for (const auto& loader : Base::loaders(typeid(Domain)))
      order.push_back(static_cast<Scripted*>(loader.get()));
  }
  ~LoaderRegistryTest() override {
    Base::forget(typeid(Domain));
    EXPECT_EQ(Scripted::alive, 0);
  }
  template <int I>
  static void append() {
    Base::domain_append(typeid(Key<I>), new Scripted, typeid(Domain));
  }
  void name(const std::string& names) {
    for (std::size_t i = 0; i < order.size(); ++i) {
      order[i]->name = names[i];
      order[i]->setExtensions({'.' + order[i]->name, ".all"});
    }
  }
  static bool load(const Parameters& parameters, LoaderBase::ldrpar* special = nullptr) {
    Scripted::asked.clear();
    return LoaderRegistry<Domain>::load(parameters, special);
  }
  std::vector<Scripted*> order;
};

TEST_F(LoaderRegistryTest, KeepsOneLoaderPerKeyAndDomain) {
  const StrongPtr<LoaderBase> loader = new Scripted;
  const auto loaders = [] {
    return std::to_string(Base::loaders(typeid(A)).size()) + " and " +
           std::to_string(Base::loaders(typeid(B)).size());
  };
  Base::domain_append(typeid(Key<0>), new Scripted("replaced"), typeid(A));
  Base::domain_append(typeid(Key<0>), loader, typeid(A));
  Base::domain_append(typeid(Key<1>), loader, typeid(B));
  EXPECT_TRUE(Scripted::alive == 4 && loader.strongCount() == 3);
  EXPECT_EQ(loaders(), "1 and 1");
  EXPECT_FALSE(Base::domain_remove(typeid(Key<1>), typeid(A)) ||
               Base::domain_remove(typeid(Key<1>), typeid(Key<1>)));
  EXPECT_TRUE(Base::domain_remove(typeid(Key<0>), typeid(A)));
  Base::forget(typeid(Key<1>));
  EXPECT_EQ(loaders(), "0 and 0");
  EXPECT_EQ(loader.strongCount(), 1);

  const LoaderRegistry<A>::Registration<Scripted> registration("s", Extensions{".s"});
  LoaderRegistry<A>::append(nullptr);
  EXPECT_EQ(registration.loader()->extensions(), Extensions{".s"});
  EXPECT_EQ(loaders(), "1 and 0");
  Base::forget(typeid(A));

  const auto knowsA = [] { return std::ranges::count(Base::domains(), TypeInfo(typeid(A))); };
  Base::loaders(typeid(A));
  EXPECT_EQ(knowsA(), 0);
  const Parameters parameters = new LoaderParameters({"f"});
  EXPECT_FALSE(LoaderRegistry<A>::load(parameters) || LoaderRegistry<A>::isloadable(parameters) ||
               LoaderRegistry<A>::loadrequest(parameters));
  EXPECT_EQ(parameters->statusText() + parameters->describeAttempts(), "No loader available. ");
  EXPECT_EQ(knowsA(), 1) << "asking for a load makes the domain known";
}

TEST_F(LoaderRegistryTest, AsksUntilOneSucceeds) {
  name("-+-");
  const Parameters parameters = new LoaderParameters({"f"});
  LoaderBase::ldrpar special;
  Scripted::asked.clear();
  EXPECT_TRUE(LoaderRegistry<Domain>::isloadable(parameters));
  EXPECT_EQ(LoaderRegistry<Domain>::loadrequest(parameters, &special)->url(), "+");
  EXPECT_EQ(Scripted::asked + parameters->statusText(), "-+-+") << "only a load writes a text";
  // Without parameters the loaders are asked all the same.
  for (const Parameters& given : {parameters, Parameters()}) {
    EXPECT_TRUE(load(given, &special) && Scripted::asked == "-+");
    EXPECT_TRUE(order[0]->lastParameters == given.get() && order[0]->lastSpecial == &special);
  }
  Extensions extensions{"before"};
  Base::getSupportedDomainExtensions(extensions, typeid(Domain));
  EXPECT_EQ(extensions, (Extensions{"before", ".-", ".all", ".+", ".all", ".-", ".all"}));
}

TEST_F(LoaderRegistryTest, TellsWhoWasAskedAndWhyEachRefused) {
  const std::string none = "No loader available. ";
  const struct {
    std::string names, asked, outcome, status, account;
    std::string calls = {}; // of the progress interface, which is there when they are
  } cases[] = {
      {"r-s", "r-s", "refused", "too short", "r-r"},
      {"-rs", "-rs", "refused", "too short", "-rr"},
      {"--s", "--s", "refused", none, "--n"},
      {"r+-", "r+", "loaded", "too short", "r+"},
      {"-t+", "-t", "thrown", "too short", "-r"},
      {"T--", "T", "thrown", none, "T"},
      {"ri-", "ri-", "refused", none, "rn-"},
      {"--+", "--+", "loaded", "asking", "--+", "-0 -1 +2 "},
      {"v-+", "-+", "loaded", "asking", "v-+", "v0 -1 +2 "},
      {"v-v", "-", "refused", "asking", "v-v", "v0 -1 v2 "},
      // Destroyed by hand: the entry is skipped from now on, and not counted.
      {"-dv", "-", "refused", "asking", "-v", "-0 v1 "},
  };
  const std::map<char, std::string> reasons = {
      {'-', "refused without a reason"},
      {'r', "too short"},
      {'n', none},
      {'T', "ended with an exception"},
      {'v', "not asked, because the progress interface left it out"},
      {'+', "loaded"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.names);
    name(c.names);
    if (c.names[1] == 'd')
      delete order[1];
    const Parameters parameters = new LoaderParameters({"f"});
    const StrongPtr<Progress, InterfaceBase> progress = new Progress;
    progress->parameters = parameters.get();
    if (!c.calls.empty())
      parameters->addInterface(progress);
    std::string account;
    for (const char reason : c.account)
      account += "(anonymous namespace)::Scripted: " + reasons.at(reason) + '\n';
    for (int round = 0; round < 2; ++round) { // the second load starts afresh
      progress->calls.clear();
      std::string outcome = "thrown";
      try {
        outcome = load(parameters) ? "loaded" : "refused";
      } catch (const std::runtime_error&) {
      }
      EXPECT_EQ(Scripted::asked + ' ' + outcome, c.asked + ' ' + c.outcome);
      EXPECT_EQ(parameters->statusText(), c.status);
      EXPECT_EQ(parameters->describeAttempts(), account);
      EXPECT_EQ(progress->calls, c.calls);
      EXPECT_EQ(parameters.strongCount(), 1);
    }
  }
}

TEST(LoaderBase, ComparesExtensions) {
  ASSERT_STREQ(std::setlocale(LC_CTYPE, nullptr), "C"); // where bytes above 127 have no case
  const struct {
    Extensions names, extensions;
    bool supported;
  } cases[] = {{{"A.DAT", "b.dat"}, {".dat"}, true},
               {{"A.DAT", "b.dat"}, {".DAT"}, false},
               {{"a.dat", "b.txt"}, {".dat", ".txt"}, true},
               {{"ab"}, {"", "b", "ab"}, false},
               {{"abc"}, {""}, true},
               {{"abc"}, {"abcd", "xabc"}, false},
               {{"abc"}, {"ABC", "abc"}, true},
               {{}, {}, true},
               {{"abc"}, {}, false},
               {{std::string("a\0.DAT", 6)}, {".dat"}, true},
               {{"a.D\xc4\xff"}, {".d\xc4\xff"}, true}};
  for (const auto& c : cases)
    EXPECT_EQ(LoaderBase::checkIfAllExtensionsAreSupported(c.names, c.extensions), c.supported)
        << testing::PrintToString(c.names) << testing::PrintToString(c.extensions);
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
    return seen.size() < most;
  }
  std::string seen;
  std::size_t most = 99;
};

bool knows(const std::type_info& type) {
  return Savers::BaseSaveList().contains(TypeInfo(type));
}

TEST(SaveRegistry, LookUpsMakeEntries) {
  Visitor visitor;
  EXPECT_EQ(Savers::iterate(typeid(A), visitor), 0);
  EXPECT_FALSE(Savers::findInterfaceCreator(typeid(A), typeid(Key<0>)) ||
               Savers::removeCreator(typeid(A), typeid(Key<0>)));
  EXPECT_FALSE(knows(typeid(A))) << "walks, mere look-ups and removals make none";
  EXPECT_TRUE(Savers::SaveMethods(typeid(A)).empty() && knows(typeid(A)));
  Slot& slot = Savers::getInterfaceCreator(typeid(A), typeid(Key<0>));
  EXPECT_FALSE(slot);
  slot = new Creator("saver");
  const Slot found = Savers::findInterfaceCreator(typeid(A), typeid(Key<0>));
  EXPECT_FALSE(Savers::removeCreator(typeid(A), typeid(Key<0>), Slot(new Creator)));
  EXPECT_TRUE(Savers::removeCreator(typeid(A), typeid(Key<0>), found));
  EXPECT_EQ(found->name() + '/' + found->description(), "saver/text");
  EXPECT_EQ(found.strongCount(), 1);
  Savers::forget(typeid(A));
  EXPECT_FALSE(knows(typeid(A)));
}

TEST(SaveRegistry, WalksOnIntoTheTypesThatFollow) {
  const std::pair<const std::type_info*, const char*> types[] = {
      {&typeid(A), "a"}, {&typeid(B), "b"}, {&typeid(C), "c"}};
  for (const auto& [type, name] : types)
    for (const std::type_info* key : {&typeid(Key<0>), &typeid(Key<1>)})
      Savers::getInterfaceCreator(*type, *key) = new Creator(name);
  Savers::getInterfaceCreator(typeid(B), typeid(Key<2>)); // empty, and visited as well
  // From each type on through the list as it stands, whatever its order is.
  for (const auto& [type, name] : types) {
    std::string rest;
    for (const auto& [saved, methods] : Savers::BaseSaveList())
      for (const auto& [key, creator] : methods)
        if (!rest.empty() || saved == TypeInfo(*type))
          rest += creator ? creator->name() : "-";
    Visitor visitor, stops;
    EXPECT_EQ(Savers::iterate(*type, visitor), static_cast<int>(rest.size()));
    EXPECT_EQ(visitor.seen, rest);
    stops.most = 2;
    EXPECT_EQ(Savers::iterate(*type, stops), 1);
  }
  struct Traverser : SaveRegistry<A> {
    bool visitCreator(TypeInfo, Slot& creator) override { return creator && ++calls != 1; }
    int calls = 0;
  } traverser;
  EXPECT_EQ(traverser.traverseCreators(), 1);
  EXPECT_EQ(traverser.calls, 2) << "it visits all of its own type, whatever is answered";
  Savers::forget(typeid(Key<0>));
  Savers::forget(typeid(Key<1>));
  EXPECT_TRUE(Savers::SaveMethods(typeid(B)).size() == 1 && Creator::alive == 0);
  for (const auto& [type, name] : types)
    Savers::forget(*type);
}

TEST(SaveRegistry, InterfacesAreFoundUnderTheirTag) {
  struct Stream : StreamSaverInterface {};
  {
    const SaveRegistry<A>::Registration<Stream, Creator> registration("s");
    const Slot creator = registration.creator();
    EXPECT_TRUE(creator && Savers::findInterfaceCreator(typeid(A), typeid(StreamSaver)) == creator);
    EXPECT_EQ(SaveRegistry<A>::findInterfaceCreator<StreamSaverInterface>(), creator);
    EXPECT_EQ(SaveRegistry<A>::getInterfaceCreator<StreamSaver>(), creator);
  }
  EXPECT_TRUE(!SaveRegistry<A>::findInterfaceCreator<Stream>() && Creator::alive == 0);
  Intercube object;
  object.addInterface(new Stream);
  EXPECT_TRUE(object.findInterface<StreamSaverInterface>() && object.hasInterface<StreamSaver>());
  Savers::forget(typeid(A));
}

TEST(SaveParameters, CopyTheDestinationOnly) {
  SaveParameters parameters("file");
  parameters.registerInterface(typeid(A));
  parameters.setUserValue(1);
  parameters.setUserText("t");
  const SaveParameters copy = parameters;
  EXPECT_EQ(copy.destination() + copy.userText(), "file");
  EXPECT_FALSE(copy.userValue() || copy.hasInterface(typeid(A)));
}

const long long clockAtStart = Ageable::GlobalTime;

TEST(Ageable, ClockStartsAtOneAndWritesStamps) {
  EXPECT_EQ(clockAtStart, 1);
  EXPECT_EQ(Ageable().stamp(), Ageable::GlobalTime);
  const std::pair<long long, const char*> cases[] = {
      {std::numeric_limits<long long>::min(), "t=-infinitely old"},
      {Ageable::Ooooold + 1, "t=-9223372036854775807"},
      {0, "t=0"},
      {Ageable::InfinitelyNew() - 1, "t=9223372036854775805"},
      {Ageable::InfinitelyNew(), "t=+infinitely new"},
      {Ageable::InfinitelyNew() + 1, "t=9223372036854775807"},
  };
  for (const auto& [stamp, text] : cases)
    EXPECT_EQ(Ageable(stamp).str(), text);
}

TEST(Attributes, KeepsOneValuePerNameInByteOrder) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{}, "( )"},
      {{"b", "ab", "a", "ab"}, "( a ab b )"},
      {{"a", "B", "_", ""}, "(  B _ a )"},
      {{"\xe4", "z"}, "( z \xe4 )"}};
  for (const auto& [names, text] : cases) {
    Attributes attributes;
    for (const std::string& name : names)
      attributes.setAttribute(name, nullptr);
    EXPECT_EQ(attributes.toString() + std::to_string(attributes), text + text);
  }
  Attributes attributes;
  attributes.setAttribute("n", makeChunk(1));
  attributes.setAttribute("n", attributes.getAttribute("n"));
  EXPECT_EQ(chunkValue<int>(attributes.getAttribute("n")), 1);
  attributes.setAttribute("empty", nullptr);
  EXPECT_TRUE(attributes.hasAttribute("empty") && !attributes.getAttribute("empty"));

  ++Ageable::GlobalTime;
  Attributes copy = attributes;
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
      return names.size() < 5;
    }
    Attributes attributes;
    std::string names;
  } visitor;
  for (const char* name : {"c", "a", "b"})
    visitor.attributes.setAttribute(name, nullptr);
  EXPECT_EQ(visitor.attributes.iterate(visitor), 3);
  EXPECT_EQ(chunkValue<std::string>(visitor.attributes.getAttribute("c")), "abbbc");
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
    EXPECT_EQ(ChunkBase::TotalMemsize - before,
              sizeof(double) + sizeof(std::string) + 1 + sizeof(std::u32string) + 8);
    EXPECT_EQ(chunkValue<std::string>(text), "y");
    EXPECT_FALSE(chunkValue<float>(number) || chunkValue<float>(nullptr)) << "of another type";
  }
  EXPECT_EQ(ChunkBase::TotalMemsize, before);
}

} // namespace
