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

/// The same for as long as this lives; from then on too when it was there before, or is kept. For
/// an entry that makes sense only together with what comes after it and may throw.
template <class Map>
class Entry {
public:
  Entry(Map& map, const std::type_info& type)
      : map_(map), type_(type), isNew_(!map.contains(type)), value_(entryFor(map, type)) {}
  ~Entry() {
    if (isNew_) {
      map_.erase(type_);
    }
  }

  Entry(const Entry&) = delete;
  Entry& operator=(const Entry&) = delete;

  void keep() noexcept { isNew_ = false; }

  typename Map::mapped_type& operator*() const noexcept { return value_; }
  typename Map::mapped_type* operator->() const noexcept { return &value_; }

private:
  Map& map_;
  const std::type_info& type_;
  bool isNew_;
  typename Map::mapped_type& value_;
};

} // namespace Tolvane::detail
