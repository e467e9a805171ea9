#include "LastingTypeInternal.hpp"

#include <tolvane/PosixMutex.hpp>

#include <mutex>
#include <string>
#include <unordered_map>

namespace Tolvane::detail {
namespace {

/// The runtime compares type identities by name, so one with the same name stands for the type.
class Lasting : public std::type_info {
public:
  /// Refers to `name`, which must stay.
  explicit Lasting(const char* name) : std::type_info(name) {}
};

} // namespace

const std::type_info& lastingType(const std::type_info& type) {
  if (isLocalType(type)) {
    return type;
  }
  struct Table {
    PosixMutex mutex{PosixMutex::Kind::Plain};
    std::unordered_map<std::string, const Lasting*> types;
  };
  static Table& table = *new Table;
  const std::lock_guard lock(table.mutex);
  const auto entry = table.types.try_emplace(type.name(), nullptr).first;
  if (entry->second == nullptr) {
    entry->second = new Lasting(entry->first.c_str());
  }
  return *entry->second;
}

bool isLocalType(const std::type_info& type) noexcept {
  return !(type == Lasting(type.name())); // Such a one is compared by address.
}

} // namespace Tolvane::detail
