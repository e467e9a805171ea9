#include "LastingTypeInternal.hpp"
#include "UnloadLockInternal.hpp"

#include <tolvane/InstanceCounter.hpp>

#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>

namespace Tolvane::detail {
namespace {

/// What tells a type from all others. The name does, but for types that are local to their source,
/// of an unnamed namespace or of a static function: those of two sources may share it. Not every
/// compiler marks their identities as local; the unnamed namespace can be told by the name.
std::string keyOf(const std::type_info& type) {
  std::string key = type.name();
  if (isLocalType(type) || key.find("_GLOBAL__N_") != std::string::npos) {
    key += '@' + std::to_string(reinterpret_cast<std::uintptr_t>(&type));
  }
  return key;
}

} // namespace

std::atomic<std::uint64_t>& instanceCounter(const std::type_info& type) {
  struct Table {
    std::mutex mutex;
    std::unordered_map<std::string, std::atomic<std::uint64_t>> counters;
  };
  // Never destroyed: objects may still be made while the process ends.
  static Table& table = *new Table;
  std::string key = keyOf(type);
  const auto lock = lockUnlessEnding(table.mutex);
  if (!lock.owns_lock()) {
    static constinit std::atomic<std::uint64_t> spare{0};
    return spare; // Some number for what is made in the last moments of a process.
  }
  return table.counters[std::move(key)];
}

} // namespace Tolvane::detail
