#include "RunProbe.hpp"
#include "support/Guest.hpp"
#include "support/LoadedModule.hpp"

#include <tolvane/Verbose.hpp>

#include <gtest/gtest.h>

using namespace Tolvane;

namespace {

/// The module, and its guest as long as it is there.
class Loaded {
public:
  Loaded()
      : module_(TOLVANE_TEST_MODULE_DIR "/Guest" TOLVANE_TEST_MODULE_SUFFIX),
        guest_(module_.function<guest::Guest*()>("makeGuest")()) {}
  ~Loaded() { unload(); }

  guest::Guest* operator->() const { return guest_; }

  void unload() {
    if (guest_ != nullptr)
      module_.function<void(guest::Guest*)>("endGuest")(guest_);
    guest_ = nullptr;
    module_.unload();
  }

  bool isMapped() const { return module_.isMapped(); }

private:
  LoadedModule module_;
  guest::Guest* guest_;
};

template <class Act>
std::string printed(Act act) {
  testing::internal::CaptureStdout();
  act();
  return testing::internal::GetCapturedStdout();
}

struct Catcher : VerboseCatcher {
  void catchMessage(int, const std::string& location, const std::string& text, const std::string&,
                    int, char) override {
    seen += location + text + '\n';
  }
  std::string seen;
};

struct HostBrick : Cacheable {
  memsize_t memsize() const override { return 1000; }
};
struct HostMaker : guest::Maker {
  using Maker::Maker;
};

StrongPtr<HostMaker, Creature> makeHostMaker(const WeakPtr<Cache, CacheBase>& cache) {
  StrongPtr<HostMaker, Creature> maker = new HostMaker(cache);
  maker->data = new HostBrick;
  maker->data->setCreator(maker);
  maker->data->setName("of the host");
  return maker;
}

} // namespace

TEST(Module, AgreesWithItsHostOnTypes) {
  demangleSymbol("i"); // the plain types have their names from now on
  const Loaded guest;
  const auto ours = guest::types(), theirs = guest->types();
  ASSERT_EQ(theirs.size(), ours.size());
  int copies = 0;
  for (std::size_t i = 0; i < ours.size(); ++i) {
    EXPECT_EQ(theirs[i].name, ours[i].name);
    EXPECT_EQ(theirs[i].id, ours[i].id) << ours[i].name;
    const TypeInfo their = *theirs[i].type, our = *ours[i].type;
    EXPECT_TRUE(their == our && std::hash<TypeInfo>()(their) == std::hash<TypeInfo>()(our))
        << ours[i].name;
    copies += theirs[i].type != ours[i].type;
  }
  EXPECT_GT(copies, 0); // or nothing was compared
}

TEST(Module, SharesObjectsWithItsHost) {
  const Loaded guest;
  const std::uint64_t made = guest::Shape::instancesMade();
  const StrongPtr<guest::Shape> theirs = guest->makeSquare(3), ours = new guest::Square(4),
                                plain = new guest::Shape;
  EXPECT_TRUE(theirs->instanceNumber() == made && ours->instanceNumber() == made + 1);
  const StrongPtr<Cacheable> cacheable = new HostBrick;
  EXPECT_EQ(guest->made(), std::pair(made + 3, Cacheable::instancesMade()));
  // Down, on either side, whoever made the object.
  const StrongPtr<guest::Square, guest::Shape> square(theirs);
  ASSERT_TRUE(square && dynamic_cast<guest::Square*>(theirs.get()));
  EXPECT_TRUE(square->area() == 9 && typeid(*theirs) == typeid(guest::Square));
  EXPECT_TRUE(guest->areaOfSquare(theirs) == 9 && guest->areaOfSquare(ours) == 16 &&
              guest->areaOfSquare(plain) == -1);
  EXPECT_TRUE(theirs.strongCount() == 2 && theirs.weakCount() == 3);

  const StrongPtr<Catcher, VerboseCatcher> catcher = new Catcher;
  VerboseCatcher::theCatcher = catcher;
  guest->say("from outside");
  VerboseCatcher::theCatcher = nullptr;
  EXPECT_NE(catcher->seen.find("Guest.cpp:"), std::string::npos) << catcher->seen;
  EXPECT_TRUE(catcher->seen.ends_with("from outside\n")) << catcher->seen;
}

TEST(Module, ThrowsAcrossItsBorder) {
  const std::string square = " guest::Square guest::Shape";
  const std::string expected[guest::kindsOfExceptions] = {
      "Exception described file.cpp 12",
      "Failure described file.cpp 12",
      "NullPtrException" + square,
      "Tolvane::Out Of Memory",
      "Creature::Exception described file.cpp 12",
      "OutOfMemory Not enough memory to handle Unknown object",
      "MaxExceptionCount 2147483647 guest::Shape guest::Shape",
      "a text",
  };
  const Loaded guest;
  std::string ours, theirs;
  for (int kind = 0; kind < guest::kindsOfExceptions; ++kind) {
    // What they print on their way is the same as well.
    ours += printed([&] { EXPECT_EQ(guest->caught([&] { guest::raise(kind); }), expected[kind]); });
    theirs +=
        printed([&] { EXPECT_EQ(guest::caught([&] { guest->raise(kind); }), expected[kind]); });
  }
  EXPECT_EQ(theirs, ours);
  EXPECT_NE(ours.find("\n *** NULL POINTER ACCESS FROM [Tolvane::StrongPtr<guest::Square, "
                      "guest::Shape>::operator->()]"),
            std::string::npos)
      << ours;
}

TEST(Module, TakesItsTypesOutBeforeItGoes) {
  const StrongPtr<Cache, CacheBase> cache = new Cache(4000, "shared");
  Intercube cube;
  cube.addInterface(new guest::Unit);
  const auto host = makeHostMaker(cache);
  WeakPtr<Cacheable> brick;
  WeakPtr<Creature> creator;
  for (int round = 0; round < 2; ++round) {
    Loaded guest;
    guest->decorate(cube);
    StrongPtr<Creature> first = guest->makeMaker(cache, 1000),
                        second = guest->makeMaker(cache, 500);
    host->data = makeHostMaker(cache)->data;
    host->data->setCreator(host);
    host->enableCaching(false);
    EXPECT_TRUE(cache->nEntries() == 3 && cache->totalCost(true) == 2500);
    // The host's insertion evicts data of the module, by code of the module.
    brick = first->getCacheable();
    const auto other = makeHostMaker(cache);
    EXPECT_TRUE(cache->touch(second->getCacheable()) && cache->touch(host->data));
    EXPECT_TRUE(cache->adjust(brick->CreatorType(), brick->DomainType(), 2000));
    EXPECT_TRUE(!brick && second->getCacheable() && host->data);

    // All that is left dies when the module leaves: data, zombies, interfaces.
    brick = second->getCacheable();
    creator = second;
    cache->insert_zombie(guest->makeMaker(cache, 100)->getCacheable());
    guest->leave(*cache, cube);
    first = second = nullptr;
    guest.unload();
    EXPECT_FALSE(guest.isMapped()) << "round " << round;

    // And everything else goes on.
    EXPECT_FALSE(brick || creator.lock());
    EXPECT_TRUE(cache->nEntries() == 1 && cache->totalCost(true) == 1000);
    const std::string left =
        printed([&] { cache->list_info(); }) + printed([&] { cube.printInterfaces(); });
    EXPECT_TRUE(left.find("guest brick") == left.npos && left.find("HostBrick") != left.npos &&
                left.find(":\t 1 interfaces\n") != left.npos)
        << left;
    for (const char* name : {"guest brick", "guest maker"})
      EXPECT_EQ(detail::typeByName(name), typeid(void)) << name;
    EXPECT_TRUE(cache->touch(host->data) && cache->insert(other->data, true));
    EXPECT_TRUE(cache->purge() == 2000 && cache->nEntries() == 0);
  }
}

/// Modules bring loaders and savers and take them out again, whichever comes and goes first: what
/// another module registered for the same type of data stays, and nothing keeps a module mapped. A
/// type that is a module's own goes with it: new types have the registries read all their keys.
TEST(Module, LoadersAndSaversComeAndGoWithIt) {
  const std::string a = TOLVANE_TEST_MODULE_DIR "/BringsLoadersA" TOLVANE_TEST_MODULE_SUFFIX,
                    b = TOLVANE_TEST_MODULE_DIR "/BringsLoadersB" TOLVANE_TEST_MODULE_SUFFIX,
                    onlyA = "own of A, own saver of A, shared of A, stream of A, no more\n",
                    onlyB = "own of B, own saver of B, shared of B, stream of B, no more\n",
                    both = "own of A, own of B, own saver of A, own saver of B, ",
                    sharedA = both + "shared of A, stream of A, no more\n";
  const ProbeResult run = runProbe({"registry_modules", "+" + a, "+" + b, "-" + a, "+" + a, "-" + b,
                                    "-" + a, "+" + b, "+" + a, "-" + a, "-" + b});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(textOf(run.out), onlyA + both + "shared of B, stream of B, no more\n" + onlyB +
                                 sharedA + onlyA + "none\n" + onlyB + sharedA +
                                 "own of B, own saver of B, no more\n" + "none\n");
}
