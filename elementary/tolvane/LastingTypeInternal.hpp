#pragma once

#include <typeinfo>

/// @file
/// Type identities for keys that outlive the module they came from. Internal to the library, not
/// installed.
///
/// Each module has its own `std::type_info` of a type that several modules use; on Windows that is
/// the rule. A process-wide container whose key refers to the one of the module that happened to
/// come first would break when that module is unloaded, though the others still use the entry.

namespace Tolvane::detail {

/// A type identity that equals `type` and is never destroyed. A type that is local to its module
/// equals nothing but itself: it is returned as it is, and leaves containers with its module.
///
/// Thread safety: any thread may call. Throws std::bad_alloc.
const std::type_info& lastingType(const std::type_info& type);

/// Whether `type` is local to its module, such as one of an anonymous namespace.
bool isLocalType(const std::type_info& type) noexcept;

/// The entry for `type` in a map by type, made under a lasting key when there is none.
template <class Map>
typename Map::mapped_type& entryFor(Map& map, const std::type_info& type) {
  const auto found = map.find(type);
  return found != map.end() ? found->second : map[lastingType(type)];
}

/// Takes the entry for `inner` out of the map for `outer`; the result is empty when there is none.
/// The map for a local `outer` goes with its last entry: its key must not outlive the module.
template <class Map>
typename Map::mapped_type::node_type extractEntry(Map& map, const std::type_info& outer,
                                                  const std::type_info& inner) {
  const auto found = map.find(outer);
  if (found == map.end()) {
    return {};
  }
  auto removed = found->second.extract(inner);
  if (found->second.empty() && isLocalType(outer)) {
    map.erase(found);
  }
  return removed;
}

} // namespace Tolvane::detail
