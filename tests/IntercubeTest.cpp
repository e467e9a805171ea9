#include <tolvane/Intercube.hpp>

#include <algorithm>
#include <array>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace N {
struct A {};
} // namespace N

namespace {

using namespace Tolvane;
using Slot = StrongPtr<InterfaceBase>;
using Parameter = InterfaceIterationParameter;

template <int>
struct Key {};

template <int... I>
std::array<const std::type_info*, sizeof...(I)> makeKeys(std::integer_sequence<int, I...>) {
  return {&typeid(Key<I>)...};
}

/// The I-th of many types, more than a small hash table takes without growing.
const std::type_info& key(std::size_t i) {
  static const auto keys = makeKeys(std::make_integer_sequence<int, 64>());
  return *keys[i];
}

/// An interface under any type, which counts itself and does what it is told.
struct Item : InterfaceBase {
  explicit Item(const std::type_info& filedUnder, std::function<void()> atEnd = nullptr)
      : type(filedUnder), onEnd(std::move(atEnd)) {
    ++alive;
  }
  ~Item() override {
    --alive;
    if (onEnd) {
      onEnd();
    }
  }
  const std::type_info& interfaceType() const override { return type; }
  bool apply(Intercube& owner, const StrongPtr<Parameter>& parameter) override {
    applied = &owner;
    lastParameter = parameter;
    return !onApply || onApply();
  }
  bool apply_const(const Intercube& owner, const StrongPtr<Parameter>& parameter) override {
    return apply(const_cast<Intercube&>(owner), parameter);
  }

  static inline int alive = 0;
  const std::type_info& type;
  std::function<void()> onEnd;
  std::function<bool()> onApply;
  const Intercube* applied = nullptr;
  StrongPtr<Parameter> lastParameter;
};

struct Visitor : IntercubeIterator {
  bool visit(TypeInfo type, Slot& slot) override {
    types.push_back(type.name());
    return !onVisit || onVisit(type, slot);
  }
  std::vector<std::string> types;
  std::function<bool(TypeInfo, Slot&)> onVisit;
};

/// What the slot itself holds: 0 for an empty one, negative for a dead interface.
int strongCountIn(const Intercube& cube, const std::type_info& type) {
  int count = 12345;
  Visitor visitor;
  visitor.onVisit = [&](TypeInfo seen, Slot& slot) {
    count = seen == type ? slot.strongCount() : count;
    return true;
  };
  cube.iterateInterfaces(visitor);
  return count;
}

struct Maker : Intercube {
  Slot createInterface(const std::type_info& type) override {
    ++asked;
    return onCreate ? onCreate(type) : nullptr;
  }
  int asked = 0;
  std::function<Slot(const std::type_info&)> onCreate;
};

TEST(Intercube, KeepsOneInterfacePerType) {
  Intercube cube;
  EXPECT_FALSE(cube.findInterface(key(0)));
  EXPECT_FALSE(cube.getInterface(key(0)));
  EXPECT_FALSE(cube.hasInterface(key(0)));
  cube.removeInterfaceBase(key(0));
  cube.addInterface(nullptr);

  const StrongPtr<Item, InterfaceBase> first = new Item(key(0));
  const Intercube& observed = cube;
  observed.addInterface(first); // companions may be attached to a const object
  observed.addInterface(first); // and again: nothing changes
  EXPECT_EQ(cube.findInterface(key(0)), first);
  EXPECT_EQ(first.strongCount(), 2);
  cube.addInterface(new Item(key(0)));
  EXPECT_EQ(first.strongCount(), 1);
  EXPECT_NE(cube.getInterface(key(0)), first);
  EXPECT_EQ(Item::alive, 2);

  Slot& slot = cube.registerInterface(key(0));
  EXPECT_EQ(Item::alive, 1);
  EXPECT_TRUE(cube.hasInterface(key(0)));
  EXPECT_FALSE(cube.findInterface(key(0)));
  slot = first;
  EXPECT_EQ(cube.findInterface(key(0)), first);
  cube.removeInterfaceBase(key(0));
  EXPECT_FALSE(cube.hasInterface(key(0)));
  cube.addInterface(new Item(key(1)));
  cube.addInterface(new Item(key(2)));
  cube.clearInterfaces();
  EXPECT_EQ(Item::alive, 1);
  EXPECT_EQ(cube.getInterfaceNames(','), "");
  {
    Intercube other;
    other.addInterface(new Item(key(1)));
  }
  EXPECT_EQ(Item::alive, 1);
}

class Tag {};
struct ByTag : Interface<Tag> {};
struct OtherByTag : Interface<Tag> {};
struct BySelf : Interface<BySelf> {};
struct Derived : BySelf {};

TEST(Intercube, TypedLookUpsUseTheKeyOfTheInterface) {
  Intercube cube;
  EXPECT_FALSE(cube.hasInterface<ByTag>());
  const StrongPtr<ByTag, InterfaceBase> byTag = new ByTag;
  cube.addInterface(byTag);
  cube.addInterface(new Derived);
  EXPECT_TRUE(cube.hasInterface(typeid(Tag)));
  EXPECT_TRUE(cube.hasInterface<Tag>());
  EXPECT_EQ(cube.findInterface<ByTag>(), byTag);
  EXPECT_EQ(cube.getInterface<ByTag>(), byTag);
  EXPECT_FALSE(cube.findInterface<OtherByTag>()) << "filed there, but of another class";
  EXPECT_TRUE(cube.findInterface<BySelf>());
  EXPECT_TRUE(cube.findInterface<Derived>());
  EXPECT_FALSE(cube.hasInterface(typeid(Derived)));
  cube.registerInterface<OtherByTag>() = new OtherByTag;
  EXPECT_TRUE(cube.findInterface<OtherByTag>());
  cube.removeInterface<Derived>();
  EXPECT_FALSE(cube.hasInterface<BySelf>());
}

TEST(Intercube, MakesInterfacesForEmptySlotsOnly) {
  Intercube plain;
  plain.registerInterface(key(0));
  EXPECT_FALSE(plain.getInterface(key(0)));
  EXPECT_TRUE(plain.hasInterface(key(0)));

  Maker maker;
  EXPECT_FALSE(maker.getInterface(key(0)));
  EXPECT_EQ(maker.asked, 0) << "no slot, nothing to fill";
  maker.registerInterface(key(0));
  EXPECT_FALSE(maker.getInterface(key(0)));
  EXPECT_TRUE(maker.hasInterface(key(0)));
  maker.onCreate = [](const std::type_info& type) { return new Item(type); };
  EXPECT_FALSE(maker.findInterface(key(0)));
  const Slot made = maker.getInterface(key(0));
  EXPECT_TRUE(made);
  EXPECT_EQ(maker.findInterface(key(0)), made);
  EXPECT_EQ(maker.getInterface(key(0)), made);
  EXPECT_EQ(maker.asked, 2);
}

TEST(Intercube, TreatsDeadInterfacesAsNone) {
  const auto putDead = [](const Intercube& cube) {
    Item* item = new Item(key(0));
    cube.addInterface(item);
    delete item;
  };
  Intercube plain;
  putDead(plain);
  EXPECT_FALSE(plain.findInterface(key(0)));
  EXPECT_FALSE(plain.getInterface(key(0)));
  EXPECT_EQ(strongCountIn(plain, key(0)), -111) << "nobody makes interfaces: the slot stays as is";
  EXPECT_TRUE(plain.iterateInterfaces(nullptr));

  Maker maker;
  putDead(maker);
  EXPECT_FALSE(maker.getInterface(key(0)));
  EXPECT_EQ(strongCountIn(maker, key(0)), 0) << "what was made, here nothing, is stored";
  putDead(maker);
  maker.onCreate = [](const std::type_info& type) { return new Item(type); };
  EXPECT_TRUE(maker.getInterface(key(0)));
}

TEST(Intercube, WalksSlotsAndInterfaces) {
  Intercube cube;
  for (std::size_t i = 0; i < 4; ++i) {
    cube.addInterface(new Item(key(i)));
  }
  cube.registerInterface(key(4));

  Visitor all;
  EXPECT_EQ(cube.iterateInterfaces(all), 5);
  Visitor second;
  second.onVisit = [&](TypeInfo, Slot&) { return second.types.size() < 2; };
  EXPECT_EQ(cube.iterateInterfaces(second), 1);
  EXPECT_EQ(second.types, std::vector(all.types.begin(), all.types.begin() + 2));
  second.onVisit = [](TypeInfo, Slot&) { return false; };
  EXPECT_EQ(cube.iterateInterfaces(second), 0);
  std::string names;
  for (const std::string& name : all.types) {
    names += name + '|';
  }
  EXPECT_EQ(cube.getInterfaceNames('|'), names);

  int calls = 0;
  const StrongPtr<Parameter> parameter = new Parameter;
  for (std::size_t i = 0; i < 4; ++i) {
    StrongPtr<Item, InterfaceBase>(cube.findInterface(key(i)))->onApply = [&] {
      return ++calls != 3;
    };
  }
  EXPECT_TRUE(cube.iterateInterfaces(parameter));
  EXPECT_EQ(calls, 3) << "the third call ended the walk";
  EXPECT_TRUE(cube.const_iterateInterfaces(nullptr));
  EXPECT_EQ(calls, 7);
  calls = 10;
  EXPECT_TRUE(std::as_const(cube).const_iterateInterfaces(parameter));
  const StrongPtr<Item, InterfaceBase> item(cube.findInterface(key(2)));
  EXPECT_EQ(item->applied, &cube);
  EXPECT_EQ(item->lastParameter, parameter);

  Visitor emptier;
  emptier.onVisit = [](TypeInfo, Slot& slot) {
    slot = nullptr;
    return true;
  };
  EXPECT_EQ(std::as_const(cube).iterateInterfaces(emptier), 5);
  EXPECT_FALSE(cube.findInterface(key(0))) << "the visitor is given the slot itself";
  EXPECT_TRUE(cube.hasInterface(key(0)));
}

TEST(Intercube, ListsMangledNames) {
  Intercube cube;
  EXPECT_EQ(cube.getInterfaceNames(','), "");
  cube.registerInterface(typeid(N::A));
  EXPECT_EQ(cube.getInterfaceNames(','), "N1N1AE,");
  cube.registerInterface(typeid(Tag)); // local to this file: marked with a "*" that is not shown
  EXPECT_EQ(cube.getInterfaceNames(' ').find('*'), std::string::npos);
  cube.removeInterface<Tag>();

  testing::internal::CaptureStdout();
  cube.printInterfaces();
  std::fflush(stdout);
  char expected[99];
  std::snprintf(expected, sizeof expected, "intercube [%p]:\t 1 interfaces\nN1N1AE\n",
                static_cast<void*>(&cube));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);
}

/// Code of users that is called in the middle of an operation and changes the same object.
TEST(Intercube, SurvivesChangesFromInside) {
  using Change = std::function<void(Intercube&)>;
  const std::pair<const char*, Change> changes[] = {
      {"nothing", [](Intercube&) {}},
      {"grow",
       [](Intercube& cube) {
         for (std::size_t i = 2; i < 64; ++i) {
           cube.addInterface(new Item(key(i)));
         }
       }},
      {"remove", [](Intercube& cube) { cube.removeInterfaceBase(key(0)); }},
      {"replace", [](Intercube& cube) { cube.addInterface(new Item(key(0))); }},
      {"register", [](Intercube& cube) { cube.registerInterface(key(0)); }},
      {"get", [](Intercube& cube) { cube.getInterface(key(1)); }},
      {"clear", [](Intercube& cube) { cube.clearInterfaces(); }},
      {"remove all one by one",
       [](Intercube& cube) {
         for (std::size_t i = 0; i < 64; ++i) {
           cube.removeInterfaceBase(key(i));
         }
       }},
  };
  // Each operation releases or calls the interface under key 0, whose code makes the change.
  const std::pair<const char*, Change> operations[] = {
      {"add", [](Intercube& cube) { cube.addInterface(new Item(key(0))); }},
      {"register", [](Intercube& cube) { cube.registerInterface(key(0)) = new Item(key(0)); }},
      {"remove", [](Intercube& cube) { cube.removeInterfaceBase(key(0)); }},
      {"clear", [](Intercube& cube) { cube.clearInterfaces(); }},
      {"apply", [](Intercube& cube) { EXPECT_TRUE(cube.iterateInterfaces(nullptr)); }},
      {"apply const", [](Intercube& cube) { EXPECT_TRUE(cube.const_iterateInterfaces(nullptr)); }},
      {"visit",
       [](Intercube& cube) {
         Visitor visitor;
         visitor.onVisit = [](TypeInfo, Slot& slot) {
           slot = nullptr;
           return true;
         };
         EXPECT_GE(cube.iterateInterfaces(visitor), 1);
       }},
      {"destroy", [](Intercube&) {}},
  };
  for (const auto& [operationName, operate] : operations) {
    for (const auto& [changeName, change] : changes) {
      SCOPED_TRACE(std::string(operationName) + " / " + changeName);
      {
        Maker cube;
        cube.onCreate = [](const std::type_info& type) { return new Item(type); };
        cube.registerInterface(key(1));
        Item* item = new Item(key(0));
        cube.addInterface(item);
        int changed = 0;
        const auto act = [&, makeChange = change] {
          if (++changed <= 2) {
            makeChange(cube);
          }
          return true;
        };
        item->onEnd = act;
        item->onApply = act;
        operate(cube);
        Visitor visitor;
        const int slots = cube.iterateInterfaces(visitor);
        const std::string names = cube.getInterfaceNames(',');
        EXPECT_EQ(std::count(names.begin(), names.end(), ','), slots);
        for (std::size_t i = 0; i < 64; ++i) {
          EXPECT_EQ(cube.hasInterface(key(i)),
                    std::count(visitor.types.begin(), visitor.types.end(), key(i).name()) == 1);
        }
      }
      EXPECT_EQ(Item::alive, 0);
    }
  }
}

TEST(Intercube, SurvivesChangesWhileAnInterfaceIsMade) {
  for (const bool makes : {true, false}) {
    for (const char* change : {"remove", "grow", "same", "clear"}) {
      SCOPED_TRACE(std::string(change) + (makes ? " and make" : ""));
      {
        Maker cube;
        Slot inside;
        cube.onCreate = [&](const std::type_info& type) -> Slot {
          const std::string what = change;
          if (what == "remove") {
            cube.removeInterfaceBase(type);
          } else if (what == "clear") {
            cube.clearInterfaces();
          } else if (what == "same") {
            cube.addInterface(inside = new Item(type));
          } else {
            for (std::size_t i = 1; i < 64; ++i) {
              cube.registerInterface(key(i));
            }
          }
          return makes ? new Item(type) : nullptr;
        };
        cube.registerInterface(key(0));
        const Slot made = cube.getInterface(key(0));
        EXPECT_EQ(static_cast<bool>(made), makes);
        EXPECT_EQ(cube.findInterface(key(0)), made);
        EXPECT_EQ(inside.strongCount(), inside ? 1 : 0) << "gave way to what was made";
      }
      EXPECT_EQ(Item::alive, 0);
    }
  }
}

} // namespace
