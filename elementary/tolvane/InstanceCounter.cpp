#include <tolvane/InstanceCounter.hpp>
#include <tolvane/UnloadLockInternal.hpp>

#include <mutex>
#include <string>
#include <unordered_map>

namespace Tolvane::detail {

std::atomic<std::uint64_t>& instanceCounter(const std::type_info& type) {
  struct Table {
    std::mutex mutex;
    std::unordered_map<std::string, std::atomic<std::uint64_t>> counters;
  };
  // Never destroyed: objects may still be made while the process ends.
  static Table& table = *new Table;
  const auto lock = lockUnlessEnding(table.mutex);
  if (!lock.owns_lock()) {
    static constinit std::atomic<std::uint64_t> lateInstances{0};
    return lateInstances;
  }
  return table.counters[type.name()];
}

} // namespace Tolvane::detail
