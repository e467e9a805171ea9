// Names of types, and interfaces by type.
#include "TypesBench.hpp"

#include <tolvane/Intercube.hpp>
#include <tolvane/Typename.hpp>

namespace bench {
namespace {

using namespace Tolvane;

template <int... N>
std::vector<const std::type_info*> types(std::integer_sequence<int, N...>) {
  return {&typeid(SomeInterfaceOfAHost<N>)...};
}

struct Filed : InterfaceBase {
  explicit Filed(const std::type_info& type) : type_(type) {}
  const std::type_info& interfaceType() const override { return type_; }

private:
  const std::type_info& type_;
};

std::shared_ptr<Intercube> cube(std::uint32_t slots) {
  auto made = std::make_shared<Intercube>();
  for (std::uint32_t slot = 0; slot < slots; ++slot) {
    made->addInterface(new Filed(*someTypes()[slot]));
  }
  return made;
}

/// A key by address alone: right only where a type has one address.
struct Address {
  Address(const std::type_info& type) : type_(&type) {}
  friend bool operator==(Address a, Address b) { return a.type_ == b.type_; }
  struct Hash {
    std::size_t operator()(Address key) const {
      return reinterpret_cast<std::size_t>(key.type_) >> 4;
    }
  };
  const std::type_info* type_;
};

void addName(const std::string& length, const std::type_info& type, const std::string& name) {
  DefineTypenameBase::setTypename(type, name);
  add("name of a type/" + length + "/tolvane", [&type](benchmark::State& state) {
    for (auto _ : state) {
      benchmark::DoNotOptimize(Typename(type));
    }
  });
  add("name of a type/" + length + "/std::unordered_map, copy",
      [&type, name](benchmark::State& state) {
        std::unordered_map<std::type_index, std::string> names{{type, name}};
        for (const std::type_info* other : someTypes()) {
          names.emplace(*other, "other");
        }
        for (auto _ : state) {
          benchmark::DoNotOptimize(std::string(names.find(type)->second));
        }
      });
}

[[maybe_unused]] const bool added = [] {
  Typename(typeid(int)); // the names that are there from the first question on
  addName("short", typeid(ShortName), "int32_t");
  addName("long", typeid(LongName),
          "a map from the names of the bricks to the lists of their files");
  addSlots("slot by type", "tolvane", [](std::uint32_t slots) {
    return [cube = cube(slots)](const std::type_info& type) { return cube->hasInterface(type); };
  });
  addSlots("interface by type", "tolvane", [](std::uint32_t slots) {
    return [cube = cube(slots)](const std::type_info& type) { return cube->findInterface(type); };
  });
  addSlots("interface by type", "std::unordered_map, StrongPtr", [](std::uint32_t slots) {
    auto map = std::make_shared<std::unordered_map<std::type_index, StrongPtr<InterfaceBase>>>();
    for (std::uint32_t slot = 0; slot < slots; ++slot) {
      map->emplace(*someTypes()[slot], new Filed(*someTypes()[slot]));
    }
    return [map](const std::type_info& type) {
      const auto found = map->find(type);
      return found != map->end() ? found->second : nullptr;
    };
  });
  note("interface slot, empty", 64, [] {
    auto made = std::make_shared<Intercube>();
    for (const std::type_info* type : someTypes()) {
      made->registerInterface(*type);
    }
    return made;
  });
  addMap<std::unordered_map<std::type_index, int>>("std::unordered_map");
  addMap<std::unordered_map<Address, int, Address::Hash>>("floor, by address");
  return true;
}();

} // namespace

const std::vector<const std::type_info*>& someTypes() {
  static const auto& all = *new auto(types(std::make_integer_sequence<int, 64>()));
  return all;
}

} // namespace bench
