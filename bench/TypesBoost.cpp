// Names of types and look-ups by type with Boost.
#include "TypesBench.hpp"

#include <boost/container/flat_map.hpp>
#include <boost/core/demangle.hpp>

namespace {

void addName(const std::string& length, const std::type_info& type) {
  bench::add("name of a type/" + length + "/boost::core::demangle",
             [&type](benchmark::State& state) {
               for (auto _ : state) {
                 benchmark::DoNotOptimize(boost::core::demangle(type.name()));
               }
             });
}

[[maybe_unused]] const bool added = [] {
  addName("short", typeid(bench::ShortName));
  addName("long", typeid(bench::LongName));
  bench::addMap<boost::container::flat_map<std::type_index, int>>("boost::flat_map");
  return true;
}();

} // namespace
