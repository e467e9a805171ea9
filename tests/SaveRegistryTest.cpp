#include <tolvane/Intercube.hpp>
#include <tolvane/SaveParameters.hpp>
#include <tolvane/SaveRegistry.hpp>
#include <tolvane/StreamSaverInterface.hpp>

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Tolvane;
using Slot = StrongPtr<SaveInterfaceCreatorBase>;

template <int>
struct Key {};

struct Creator : SaveInterfaceCreatorBase {
  explicit Creator(std::string name = "n") : SaveInterfaceCreatorBase(std::move(name), "text") {
    ++alive;
  }
  ~Creator() override { --alive; }
  static inline int alive = 0;
};

struct Visitor : SaveRegistryBase::Iterator {
  bool visitCreator(TypeInfo, Slot& creator) override {
    seen += creator ? creator->name() : "-";
    return !onVisit || onVisit(creator);
  }
  std::string seen;
  std::function<bool(Slot&)> onVisit;
};

bool knows(const std::type_info& type) {
  return SaveRegistryBase::BaseSaveList().contains(TypeInfo(type));
}

TEST(SaveRegistry, LookUpsMakeEntries) {
  struct A {};
  Visitor visitor;
  EXPECT_EQ(SaveRegistryBase::iterate(typeid(A), visitor), 0);
  EXPECT_FALSE(SaveRegistryBase::findInterfaceCreator(typeid(A), typeid(Key<0>)));
  EXPECT_FALSE(SaveRegistryBase::removeCreator(typeid(A), typeid(Key<0>)));
  EXPECT_FALSE(knows(typeid(A))) << "walks, mere look-ups and removals make none";
  EXPECT_EQ(visitor.seen, "");
  EXPECT_TRUE(SaveRegistryBase::SaveMethods(typeid(A)).empty());
  EXPECT_TRUE(knows(typeid(A)));

  Slot& slot = SaveRegistryBase::getInterfaceCreator(typeid(A), typeid(Key<0>));
  EXPECT_FALSE(slot);
  slot = new Creator("saver");
  EXPECT_EQ(SaveRegistryBase::SaveMethods(typeid(A)).size(), 1u);
  const Slot found = SaveRegistryBase::findInterfaceCreator(typeid(A), typeid(Key<0>));
  EXPECT_EQ(found->name() + '/' + found->description(), "saver/text");
  EXPECT_FALSE(SaveRegistryBase::removeCreator(typeid(A), typeid(Key<0>), Slot(new Creator)));
  EXPECT_TRUE(SaveRegistryBase::removeCreator(typeid(A), typeid(Key<0>), found));
  EXPECT_EQ(found.strongCount(), 1);
  SaveRegistryBase::forget(typeid(A));
  EXPECT_FALSE(knows(typeid(A)));
}

TEST(SaveRegistry, WalksOnIntoTheTypesThatFollow) {
  struct A {};
  struct B {};
  struct C {};
  const std::pair<const std::type_info*, const char*> types[] = {
      {&typeid(A), "a"}, {&typeid(B), "b"}, {&typeid(C), "c"}};
  for (const auto& [type, name] : types) {
    SaveRegistryBase::getInterfaceCreator(*type, typeid(Key<0>)) = new Creator(name);
    SaveRegistryBase::getInterfaceCreator(*type, typeid(Key<1>)) = new Creator(name);
  }
  SaveRegistryBase::getInterfaceCreator(typeid(B), typeid(Key<2>)); // empty, and visited as well

  std::string all;
  const auto& list = SaveRegistryBase::BaseSaveList();
  for (const auto& [type, methods] : list) {
    for (const auto& [interfaceType, creator] : methods) {
      all += creator ? creator->name() : "-";
    }
  }
  for (const auto& [type, name] : types) {
    std::size_t before = 0;
    for (auto it = list.begin(); it->first.get() != *type; ++it) {
      before += it->second.size();
    }
    Visitor visitor;
    EXPECT_EQ(SaveRegistryBase::iterate(*type, visitor), static_cast<int>(all.size() - before));
    EXPECT_EQ(visitor.seen, all.substr(before));
    Visitor stops;
    stops.onVisit = [&](Slot&) { return stops.seen.size() < 2; };
    EXPECT_EQ(SaveRegistryBase::iterate(*type, stops), 1);
    EXPECT_EQ(stops.seen, all.substr(before, 2));
  }
  SaveRegistryBase::forget(typeid(Key<0>));
  SaveRegistryBase::forget(typeid(Key<1>));
  EXPECT_EQ(SaveRegistryBase::SaveMethods(typeid(B)).size(), 1u);
  for (const auto& [type, name] : types) {
    SaveRegistryBase::forget(*type);
  }
  EXPECT_EQ(Creator::alive, 0);
}

TEST(SaveRegistry, TraversesAllCreatorsOfOneType) {
  struct A {};
  struct Other {};
  struct Traverser : SaveRegistry<A> {
    bool visitCreator(TypeInfo, Slot& creator) override {
      EXPECT_TRUE(creator);
      return ++calls != 1;
    }
    int calls = 0;
  } traverser;
  EXPECT_EQ(traverser.traverseCreators(), 0);
  EXPECT_TRUE(knows(typeid(A)));
  for (const std::type_info* type : {&typeid(Key<0>), &typeid(Key<1>), &typeid(Key<2>)}) {
    SaveRegistryBase::getInterfaceCreator(typeid(A), *type) = new Creator;
    SaveRegistryBase::getInterfaceCreator(typeid(Other), *type) = new Creator;
  }
  EXPECT_EQ(traverser.traverseCreators(), 2);
  EXPECT_EQ(traverser.calls, 3);
  SaveRegistryBase::forget(typeid(A));
  SaveRegistryBase::forget(typeid(Other));
}

TEST(SaveRegistry, SurvivesVisitorsThatChangeIt) {
  struct A {};
  SaveRegistryBase::getInterfaceCreator(typeid(A), typeid(Key<0>)) = new Creator;
  SaveRegistryBase::getInterfaceCreator(typeid(A), typeid(Key<1>)) = new Creator;
  Visitor visitor;
  visitor.onVisit = [&](Slot& slot) {
    slot = nullptr;
    SaveRegistryBase::forget(typeid(A));
    for (const std::type_info* type : {&typeid(Key<2>), &typeid(Key<3>), &typeid(Key<4>),
                                       &typeid(Key<5>), &typeid(Key<6>), &typeid(Key<7>)}) {
      SaveRegistryBase::getInterfaceCreator(*type, *type) = new Creator;
      SaveRegistryBase::getInterfaceCreator(typeid(A), *type) = new Creator;
    }
    return true;
  };
  EXPECT_EQ(SaveRegistryBase::iterate(typeid(A), visitor), 1) << visitor.seen;
  for (const std::type_info* type : {&typeid(A), &typeid(Key<2>), &typeid(Key<3>), &typeid(Key<4>),
                                     &typeid(Key<5>), &typeid(Key<6>), &typeid(Key<7>)}) {
    SaveRegistryBase::forget(*type);
  }
  EXPECT_EQ(Creator::alive, 0);
}

TEST(SaveRegistry, InterfacesAreFoundUnderTheirTag) {
  struct A {};
  struct Stream : StreamSaverInterface {};
  {
    const SaveRegistry<A>::Registration<Stream, Creator> registration("s");
    EXPECT_TRUE(SaveRegistryBase::findInterfaceCreator(typeid(A), typeid(StreamSaver)));
    EXPECT_EQ(SaveRegistry<A>::findInterfaceCreator<StreamSaverInterface>(),
              registration.creator());
    EXPECT_EQ(SaveRegistry<A>::getInterfaceCreator<StreamSaver>(), registration.creator());
    EXPECT_EQ(SaveRegistry<A>::SaveMethods().size(), 1u);
  }
  EXPECT_FALSE(SaveRegistry<A>::findInterfaceCreator<Stream>());
  EXPECT_EQ(Creator::alive, 0);
  Intercube object;
  object.addInterface(new Stream);
  EXPECT_TRUE(object.findInterface<StreamSaverInterface>());
  EXPECT_TRUE(object.findInterface<Stream>());
  EXPECT_TRUE(object.hasInterface<StreamSaver>());
  SaveRegistryBase::forget(typeid(A));
}

TEST(SaveParameters, CopyTheDestinationOnly) {
  SaveParameters parameters("file");
  EXPECT_EQ(parameters.userValue(), 0);
  EXPECT_EQ(parameters.userText(), "");
  struct Option : Interface<Option> {};
  parameters.addInterface(new Option);
  parameters.setUserValue(std::int64_t{1} << 40);
  parameters.setUserText("t");
  const SaveParameters copy = parameters;
  EXPECT_EQ(copy.destination(), "file");
  EXPECT_EQ(copy.userValue(), 0);
  EXPECT_EQ(copy.userText(), "");
  EXPECT_FALSE(copy.hasInterface<Option>());
  EXPECT_EQ(parameters.userValue(), std::int64_t{1} << 40);
}

} // namespace
