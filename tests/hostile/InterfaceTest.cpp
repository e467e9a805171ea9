// Interfaces and attributes that do what none should: what carries them stays whole, and nothing is
// left behind.

#include "support/Hostile.hpp"

#include <tolvane/Attributes.hpp>
#include <tolvane/Chunk.hpp>
#include <tolvane/Intercube.hpp>

#include <algorithm>

namespace {

using namespace Tolvane;
using namespace hostile;

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
  const std::vector<Deed> operations = {
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
  const std::vector<Deed> deeds =
      joined(operations, {throwing(),
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
    doTheWorst(operations, deeds, fill, check);
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
  const std::vector<Deed> operations = {
      {"walk", [&] { walk(false); }},
      {"walk and empty", [&] { walk(true); }},
      {"set", refill},
      {"assign", [&] { *set = Attributes(); }},
  };
  const std::vector<Deed> deeds =
      joined(operations, {throwing(),
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
      operations, deeds,
      [&] {
        set = std::make_unique<Attributes>();
        refill();
      },
      end);
}
