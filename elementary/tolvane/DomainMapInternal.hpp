#pragma once

#include <tolvane/LastingTypeInternal.hpp>
#include <tolvane/PosixMutex.hpp>
#include <tolvane/TypeInfo.hpp>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

/// @file
/// Values by type, made on first use. Internal to the library, not installed.

namespace Tolvane::detail {

/// A map from types to values that stay where they are, in the order of their first use.
///
/// Every insertion and every touch of a cache looks a domain up, and on several threads even a
/// shared lock would be the place where they meet. So looking up takes no lock, and nothing that a
/// look-up may be in is freed before the map: a domain that is taken out is marked and stays, and
/// so does a table that became too small.
///
/// Thread safety: any thread may call any operation.
template <class Value>
class DomainMap {
public:
  class Domain {
  public:
    template <class Make>
    Domain(const std::type_info& of, Make make)
        : type(lastingType(of)), value(make()), hash_(of.hash_code()), local_(isLocalType(of)) {}

    const TypeInfo type;
    Value value;

  private:
    friend class DomainMap;
    const std::size_t hash_;
    const bool local_; // only the same address is the same type, which may be gone by now
    std::atomic<bool> open_{true};
    std::atomic<Domain*> next_{nullptr};
  };

  DomainMap() { grow(); }

  /// The value of a type; null when there is none.
  Value* find(const std::type_info& type) const noexcept {
    Domain* const domain = look(type);
    return domain != nullptr ? &domain->value : nullptr;
  }

  /// The value of a type, made by `make()` on first use.
  template <class Make>
  Value& obtain(const std::type_info& type, Make make) {
    if (Value* value = find(type)) {
      return *value;
    }
    const std::lock_guard lock(mutex_);
    if (Value* value = find(type)) {
      return *value;
    }
    if (2 * (domains_.size() + 1) > tables_.back()->slots.size()) {
      grow();
    }
    Domain& domain = *domains_.emplace_back(std::make_unique<Domain>(type, make));
    enter(*tables_.back(), domain);
    Domain* const last = last_.load(std::memory_order_relaxed);
    (last != nullptr ? last->next_ : first_).store(&domain, std::memory_order_release);
    last_.store(&domain, std::memory_order_release);
    return domain.value;
  }

  /// Visits the domains as they are now, in the order of their first use, until a visit returns
  /// true; what is added meanwhile is not among them. Returns whether one did.
  template <class Visit>
  bool any(Visit visit) const {
    const Domain* const last = last_.load(std::memory_order_acquire);
    if (last == nullptr) {
      return false;
    }
    for (Domain* domain = first_.load(std::memory_order_acquire);;
         domain = domain->next_.load(std::memory_order_acquire)) {
      if (domain->open_.load(std::memory_order_acquire) && visit(*domain)) {
        return true;
      }
      if (domain == last) {
        return false;
      }
    }
  }

  /// Visits all domains.
  template <class Visit>
  void each(Visit visit) const {
    any([&](Domain& domain) {
      visit(domain);
      return false;
    });
  }

  /// Takes a type out, so that its value is not found any more; null when there is none.
  Value* take(const std::type_info& type) noexcept {
    Domain* const domain = look(type);
    return domain != nullptr && domain->open_.exchange(false) ? &domain->value : nullptr;
  }

  /// Calls `call()` before any later domain is made.
  template <class Call>
  void beforeLaterOnes(Call call) {
    const std::lock_guard lock(mutex_);
    call();
  }

private:
  /// Open addressing; never more than half full.
  struct Table {
    explicit Table(std::size_t size) : slots(size) {}
    std::vector<std::atomic<Domain*>> slots;
  };

  Domain* look(const std::type_info& type) const noexcept {
    // The hash of a name costs more than all the rest; where a type stands in memory leads to the
    // same domain mostly, and the comparison tells whether it does.
    const auto address = reinterpret_cast<std::uintptr_t>(&type);
    std::atomic<Domain*>& hint = hints_[(address >> 4 ^ address >> 8) % hints_.size()];
    Domain* const guess = hint.load(std::memory_order_acquire);
    if (guess != nullptr && guess->open_.load(std::memory_order_acquire) &&
        (&guess->type.get() == &type || (!guess->local_ && guess->type == type))) {
      return guess;
    }
    Domain* const domain = lookByHash(type);
    // The first one stays, lest threads take turns in replacing each other's.
    if (domain != nullptr && (guess == nullptr || !guess->open_.load(std::memory_order_relaxed))) {
      hint.store(domain, std::memory_order_release);
    }
    return domain;
  }

  Domain* lookByHash(const std::type_info& type) const noexcept {
    const std::size_t hash = type.hash_code();
    const Table& table = *table_.load(std::memory_order_acquire);
    for (std::size_t place = hash;; ++place) {
      Domain* const domain =
          table.slots[place & (table.slots.size() - 1)].load(std::memory_order_acquire);
      if (domain == nullptr) {
        return nullptr;
      }
      if (domain->hash_ == hash && domain->open_.load(std::memory_order_acquire) &&
          domain->type == type) {
        return domain;
      }
    }
  }

  static void enter(Table& table, Domain& domain) noexcept {
    std::size_t place = domain.hash_;
    while (table.slots[place & (table.slots.size() - 1)].load(std::memory_order_relaxed)) {
      ++place;
    }
    table.slots[place & (table.slots.size() - 1)].store(&domain, std::memory_order_release);
  }

  void grow() {
    auto table = std::make_unique<Table>(tables_.empty() ? 4 : 2 * tables_.back()->slots.size());
    for (const auto& domain : domains_) {
      if (domain->open_.load(std::memory_order_relaxed)) {
        enter(*table, *domain);
      }
    }
    table_.store(tables_.emplace_back(std::move(table)).get(), std::memory_order_release);
  }

  std::atomic<Table*> table_{nullptr};
  mutable std::array<std::atomic<Domain*>, 16> hints_{};
  std::atomic<Domain*> first_{nullptr};
  std::atomic<Domain*> last_{nullptr};

  PosixMutex mutex_{PosixMutex::Kind::Plain}; // guards what follows
  std::vector<std::unique_ptr<Domain>> domains_;
  std::vector<std::unique_ptr<Table>> tables_;
};

} // namespace Tolvane::detail
