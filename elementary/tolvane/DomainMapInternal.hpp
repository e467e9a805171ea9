#pragma once

#include <tolvane/TypeInfo.hpp>

#include <algorithm>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>
#include <utility>
#include <vector>

/// @file
/// Values by type, made on first use. Internal to the library, not installed.

namespace Tolvane::detail {

/// A map from types to values that stay where they are, in the order of their first use. Who has
/// got a value shares it, so that it may be taken out while it is in use.
///
/// Thread safety: any thread may call any operation. The lock is held for the look-up only.
template <class Value>
class DomainMap {
public:
  struct Domain {
    TypeInfo type;
    std::shared_ptr<Value> value;
  };

  /// The value of a type; null when there is none.
  std::shared_ptr<Value> find(const std::type_info& type) const {
    const std::shared_lock lock(mutex_);
    const auto found = values_.find(TypeInfo(type));
    return found != values_.end() ? found->second : nullptr;
  }

  /// The value of a type, made by `make()` on first use.
  template <class Make>
  std::shared_ptr<Value> obtain(const std::type_info& type, Make make) {
    if (std::shared_ptr<Value> value = find(type)) {
      return value;
    }
    const std::lock_guard lock(mutex_);
    const auto found = values_.find(TypeInfo(type));
    if (found != values_.end()) {
      return found->second;
    }
    order_.reserve(order_.size() + 1);
    std::shared_ptr<Value> value = values_.emplace(TypeInfo(type), make()).first->second;
    order_.push_back({TypeInfo(type), value});
    return value;
  }

  /// All domains as they are now; what is added later is not among them.
  std::vector<Domain> all() const {
    const std::shared_lock lock(mutex_);
    return order_;
  }

  /// Takes the value of a type out; empty when there is none.
  std::shared_ptr<Value> take(const std::type_info& type) {
    const std::lock_guard lock(mutex_);
    const auto found = values_.find(TypeInfo(type));
    if (found == values_.end()) {
      return nullptr;
    }
    std::shared_ptr<Value> value = std::move(found->second);
    values_.erase(found);
    std::erase_if(order_, [&](const Domain& domain) { return domain.value == value; });
    return value;
  }

private:
  mutable std::shared_mutex mutex_;
  std::unordered_map<TypeInfo, std::shared_ptr<Value>> values_;
  std::vector<Domain> order_;
};

} // namespace Tolvane::detail
