// Look-ups by type in the map of Abseil.
#include "TypesBench.hpp"

#include <absl/container/flat_hash_map.h>

namespace {

struct Hash {
  std::size_t operator()(std::type_index type) const { return type.hash_code(); }
};

[[maybe_unused]] const bool added =
    (bench::addMap<absl::flat_hash_map<std::type_index, int, Hash>>("absl::flat_hash_map"), true);

} // namespace
