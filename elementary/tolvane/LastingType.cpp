#include "LastingTypeInternal.hpp"
#include "UnloadLockInternal.hpp"

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
    std::mutex mutex;
    std::unordered_map<std::string, const Lasting*> types;
  };
  static Table& table = *new Table;
  const auto lock = lockUnlessEnding(table.mutex);
  if (!lock.owns_lock()) {
    return type; // The process ends, and no module goes away any more.
  }
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
