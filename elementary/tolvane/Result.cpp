#include <tolvane/Result.hpp>

#include <algorithm>
#include <new>
#include <span>
#include <utility>

namespace Tolvane {
namespace {

/// Releases the results of a balanced tree over `results`, whose root stands in the middle.
void releaseTree(std::span<StrongPtr<Result>> results) noexcept {
  if (!results.empty()) {
    const std::size_t root = (results.size() - 1) / 2;
    releaseTree(results.first(root));
    releaseTree(results.subspan(root + 1));
    results[root].reset();
  }
}

} // namespace

Result::Result(const WeakPtr<Cluster>& cluster) : cluster_(cluster) {}

Result::~Result() = default;

Result::Cluster::Iterator::~Iterator() = default;

Result::Cluster::Cluster() = default;

Result::Cluster::~Cluster() {
  try {
    std::vector<StrongPtr<Result>> released = results();
    results_.clear();
    releaseTree(released);
  } catch (const std::bad_alloc&) {
    // The map releases them, in its own order.
  }
}

bool Result::Cluster::insert(const StrongPtr<Result>& result) {
  if (!result) {
    return false;
  }
  const StrongPtr<Result> held = result; // It may be the pointer in the cluster that it leaves.
  if (!results_.emplace(held->instanceNumber(), held).second) {
    return false;
  }
  if (Cluster* former = held->cluster_.get(); former != nullptr && former != this) {
    former->remove(held);
  }
  held->cluster_ = self();
  return true;
}

bool Result::Cluster::remove(const StrongPtr<Result>& result) {
  const auto entry = entryOf(result);
  if (entry == results_.end()) {
    return false;
  }
  // The entry goes first: a result that dies here finds the cluster without it.
  const auto released = results_.extract(entry);
  if (Result* leaving = released.mapped().get()) {
    leaving->cluster_.reset();
  }
  return true;
}

void Result::Cluster::clear() {
  const Map released = std::exchange(results_, {});
  for (const auto& [number, result] : released) {
    if (Result* leaving = result.get()) {
      leaving->cluster_.reset();
    }
  }
}

bool Result::Cluster::contains(const StrongPtr<Result>& result) const noexcept {
  return entryOf(result) != results_.end();
}

StrongPtr<Result> Result::Cluster::find(std::uint64_t instanceNumber) const {
  const auto entry = results_.find(instanceNumber);
  return entry != results_.end() ? entry->second : nullptr;
}

std::vector<StrongPtr<Result>> Result::Cluster::results() const {
  std::vector<StrongPtr<Result>> results;
  results.reserve(results_.size());
  for (const auto& [number, result] : results_) {
    results.push_back(result);
  }
  return results;
}

int Result::Cluster::iterate(Iterator& iterator) const {
  int visited = 0;
  for (const StrongPtr<Result>& result : results()) {
    if (!iterator.visitResult(result)) {
      break;
    }
    ++visited;
  }
  return visited;
}

Result::Cluster::Map::const_iterator
Result::Cluster::entryOf(const StrongPtr<Result>& result) const noexcept {
  if (const Result* live = result.get()) {
    return results_.find(live->instanceNumber());
  }
  if (result == StrongPtr<Result>()) {
    return results_.end();
  }
  return std::find_if(results_.begin(), results_.end(),
                      [&](const auto& entry) { return entry.second == result; });
}

} // namespace Tolvane
