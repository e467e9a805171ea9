#pragma once

#include "Bench.hpp"

#include <map>
#include <typeindex>
#include <unordered_map>

/// @file
/// Look-ups by type, the same for all: types of a host, in random order.

namespace bench {

template <int N>
struct SomeInterfaceOfAHost {};

/// The types whose names are asked for.
using ShortName = int;
using LongName = std::map<std::string, std::vector<std::string>>;

/// So many types.
const std::vector<const std::type_info*>& someTypes();

/// `find` is called with one of the first `slots` types; what it returns is kept from being left
/// out.
template <class Make>
void addSlots(const std::string& row, const std::string& name, Make make) {
  for (const std::uint32_t slots : {8U, 64U}) {
    add(row + "/" + std::to_string(slots) + "/" + name, [=](benchmark::State& state) {
      const auto find = make(slots);
      const std::vector<std::uint32_t>& order = sequence(slots);
      std::size_t at = 0;
      for (auto _ : state) {
        benchmark::DoNotOptimize(find(*someTypes()[order[at]]));
        at = (at + 1) & (order.size() - 1);
      }
    });
  }
}

/// Adds a map from some key of a type to a number.
template <class Map>
void addMap(const std::string& name) {
  addSlots("slot by type", name, [](std::uint32_t slots) {
    auto map = std::make_shared<Map>();
    for (std::uint32_t slot = 0; slot < slots; ++slot) {
      map->emplace(*someTypes()[slot], slot);
    }
    return [map](const std::type_info& type) { return map->find(type) != map->end(); };
  });
}

} // namespace bench
