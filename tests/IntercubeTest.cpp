#include <tolvane/Intercube.hpp>

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace N {
struct A {};
} // namespace N

using namespace Tolvane;

namespace {

using Slot = StrongPtr<InterfaceBase>;
using Parameter = InterfaceIterationParameter;

template <int>
struct Key {};

const std::type_info& key(std::size_t i) {
  static const std::type_info* const keys[] = {&typeid(Key<0>), &typeid(Key<1>), &typeid(Key<2>),
                                               &typeid(Key<3>), &typeid(Key<4>)};
  return *keys[i];
}

/// An interface under any type, which counts itself and does what it is told.
struct Item : InterfaceBase {
  explicit Item(const std::type_info& filedUnder) : type(filedUnder) { ++alive; }
  ~Item() override { --alive; }
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
  std::function<bool()> onApply;
  const Intercube* applied = nullptr;
  StrongPtr<Parameter> lastParameter;
};

struct Visitor : IntercubeIterator {
  explicit Visitor(std::function<bool(Slot&)> action = nullptr) : onVisit(std::move(action)) {}
  bool visit(TypeInfo type, Slot& slot) override {
    names += std::string(type.name()) + ',';
    return !onVisit || onVisit(slot);
  }
  std::string names;
  std::function<bool(Slot&)> onVisit;
};

struct Maker : Intercube {
  Slot createInterface(const std::type_info& type) override {
    asked = true;
    return makes ? new Item(type) : nullptr;
  }
  bool asked = false, makes = true;
};

} // namespace

TEST(Intercube, KeepsOneInterfacePerType) {
  {
    Intercube cube;
    cube.removeInterfaceBase(key(0));
    cube.addInterface(nullptr);
    const Slot first = new Item(key(0));
    for (int i = 0; i < 2; ++i)
      std::as_const(cube).addInterface(first); // companions may be attached to a const object
    EXPECT_EQ(cube.findInterface(key(0)), first);
    EXPECT_EQ(first.strongCount(), 2);
    cube.addInterface(new Item(key(0)));
    EXPECT_TRUE(cube.getInterface(key(0)) != first && first.strongCount() == 1);
    Slot& slot = cube.registerInterface(key(0));
    EXPECT_EQ(Item::alive, 1);
    EXPECT_TRUE(cube.hasInterface(key(0)) && !cube.findInterface(key(0)));
    slot = first;
    EXPECT_EQ(cube.findInterface(key(0)), first);
    cube.removeInterfaceBase(key(0));
    EXPECT_FALSE(cube.hasInterface(key(0)));
    cube.addInterface(new Item(key(1)));
    cube.clearInterfaces();
    EXPECT_EQ(Item::alive, 1);
    cube.addInterface(new Item(key(2)));
  }
  EXPECT_EQ(Item::alive, 0);
}

class Tag {};
struct ByTag : Interface<Tag> {};
struct OtherByTag : Interface<Tag> {};
struct BySelf : Interface<BySelf> {};
struct Derived : BySelf {};

TEST(Intercube, TypedLookUpsUseTheKeyOfTheInterface) {
  Intercube cube;
  const StrongPtr<ByTag, InterfaceBase> byTag = new ByTag;
  cube.addInterface(byTag);
  cube.addInterface(new Derived);
  EXPECT_TRUE(cube.hasInterface(typeid(Tag)) && cube.hasInterface<Tag>());
  EXPECT_TRUE(cube.findInterface<ByTag>() == byTag && cube.getInterface<ByTag>() == byTag);
  EXPECT_FALSE(cube.findInterface<OtherByTag>()) << "filed there, but of another class";
  EXPECT_TRUE(cube.findInterface<BySelf>() && cube.findInterface<Derived>());
  cube.registerInterface<OtherByTag>() = new OtherByTag;
  EXPECT_TRUE(cube.findInterface<OtherByTag>());
  cube.removeInterface<Derived>();
  EXPECT_FALSE(cube.hasInterface<BySelf>());
}

TEST(Intercube, MakesInterfacesForEmptySlotsOnly) {
  Maker maker;
  EXPECT_FALSE(maker.getInterface(key(0)));
  EXPECT_FALSE(maker.asked) << "no slot, nothing to fill";
  maker.registerInterface(key(0));
  EXPECT_FALSE(maker.findInterface(key(0)));
  const Slot made = maker.getInterface(key(0));
  EXPECT_TRUE(made && maker.findInterface(key(0)) == made && maker.getInterface(key(0)) == made);

  // A dead interface is none; where nobody makes any, the slot stays as it is.
  maker.makes = false;
  maker.clearInterfaces();
  Intercube plain;
  for (const auto& [cube, count] :
       {std::pair<Intercube*, int>(&plain, -111), std::pair<Intercube*, int>(&maker, 0)}) {
    auto* item = new Item(key(0));
    cube->addInterface(item);
    delete item;
    EXPECT_FALSE(cube->findInterface(key(0)) || cube->getInterface(key(0)));
    EXPECT_TRUE(cube->iterateInterfaces(nullptr));
    Visitor visitor([expected = count](Slot& slot) { return slot.strongCount() == expected; });
    EXPECT_EQ(cube->iterateInterfaces(visitor), 1);
  }
}

TEST(Intercube, WalksSlotsAndInterfaces) {
  Intercube cube;
  std::vector<StrongPtr<Item, InterfaceBase>> items;
  int calls = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    items.emplace_back(new Item(key(i)));
    items[i]->onApply = [&] { return ++calls != 3; };
    cube.addInterface(items[i]);
  }
  cube.registerInterface(key(4));
  Visitor all;
  EXPECT_EQ(cube.iterateInterfaces(all), 5);
  for (const int last : {0, 3}) {
    int left = last;
    Visitor some([&](Slot&) { return left-- > 0; });
    EXPECT_EQ(cube.iterateInterfaces(some), last);
    EXPECT_TRUE(left == -1 && all.names.starts_with(some.names));
  }
  const StrongPtr<Parameter> parameter = new Parameter;
  EXPECT_TRUE(cube.iterateInterfaces(nullptr));
  EXPECT_EQ(calls, 3) << "the third call ended the walk";
  EXPECT_TRUE(std::as_const(cube).const_iterateInterfaces(parameter));
  EXPECT_EQ(calls, 7);
  EXPECT_TRUE(items[2]->applied == &cube && items[2]->lastParameter == parameter);
  Visitor emptier([](Slot& slot) { return slot = nullptr, true; });
  EXPECT_EQ(cube.iterateInterfaces(emptier), 5);
  EXPECT_TRUE(cube.hasInterface(key(0)) && !cube.findInterface(key(0)));
}

TEST(Intercube, ListsMangledNames) {
  Intercube cube;
  EXPECT_EQ(cube.getInterfaceNames(','), "");
  cube.registerInterface(typeid(N::A));
  EXPECT_EQ(cube.getInterfaceNames(','), "N1N1AE,");
  cube.registerInterface(typeid(int));
  Visitor visitor;
  cube.iterateInterfaces(visitor);
  EXPECT_EQ(cube.getInterfaceNames(','), visitor.names);
  cube.removeInterfaceBase(typeid(int));
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
