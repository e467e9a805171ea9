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
/// Every insertion into a cache looks its domain up, and every report the names of types; on
/// several threads even a shared lock would be the place where they meet. So looking up takes no
/// lock, and nothing that a look-up may be in is freed before the map: an entry that is taken out
/// is marked and stays, and so does a table that became too small.
///
/// Thread safety: any thread may call any operation.
template <class Value>
class TypeMap {
public:
  class Entry {
  public:
    template <class Make>
    Entry(const std::type_info& of, Make make)
        : type(lastingType(of)), value(make()), hash_(of.hash_code()), local_(isLocalType(of)) {}

    const TypeInfo type;
    Value value;

  private:
    friend class TypeMap;

    bool isFor(const std::type_info& wanted) const noexcept {
      return &type.get() == &wanted || (!local_ && type == wanted);
    }

    const std::size_t hash_;
    const bool local_; // only the same address is the same type, which may be gone by now
    std::atomic<bool> open_{true};
    std::atomic<Entry*> next_{nullptr};
  };

  TypeMap() { grow(); }

  /// The value of a type; null when there is none.
  Value* find(const std::type_info& type) const noexcept {
    Entry* const entry = look(type);
    return entry != nullptr ? &entry->value : nullptr;
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
    if (2 * (entries_.size() + 1) > tables_.back()->slots.size()) {
      grow();
    }
    Entry& entry = *entries_.emplace_back(std::make_unique<Entry>(type, make));
    enter(*tables_.back(), entry);
    Entry* const last = last_.load(std::memory_order_relaxed);
    (last != nullptr ? last->next_ : first_).store(&entry, std::memory_order_release);
    last_.store(&entry, std::memory_order_release);
    return entry.value;
  }

  /// Visits the entries as they are now, in the order of their first use, until a visit returns
  /// true; what is added meanwhile is not among them. Returns whether one did.
  template <class Visit>
  bool any(Visit visit) const {
    const Entry* const last = last_.load(std::memory_order_acquire);
    if (last == nullptr) {
      return false;
    }
    for (Entry* entry = first_.load(std::memory_order_acquire);;
         entry = entry->next_.load(std::memory_order_acquire)) {
      if (entry->open_.load(std::memory_order_acquire) && visit(*entry)) {
        return true;
      }
      if (entry == last) {
        return false;
      }
    }
  }

  /// Visits all entries.
  template <class Visit>
  void each(Visit visit) const {
    any([&](Entry& entry) {
      visit(entry);
      return false;
    });
  }

  /// Takes a type out, so that its value is not found any more; null when there is none.
  Value* take(const std::type_info& type) noexcept {
    Entry* const entry = look(type);
    return entry != nullptr && entry->open_.exchange(false) ? &entry->value : nullptr;
  }

  /// Calls `call()` before any later entry is made.
  template <class Call>
  void beforeLaterOnes(Call call) {
    const std::lock_guard lock(mutex_);
    call();
  }

private:
  /// Open addressing; never more than half full.
  struct Table {
    explicit Table(std::size_t size) : slots(size) {}
    std::vector<std::atomic<Entry*>> slots;
  };

  Entry* look(const std::type_info& type) const noexcept {
    // The hash of a name costs more than all the rest; where a type stands in memory leads to the
    // same entry mostly, and the comparison tells whether it does.
    const auto address = reinterpret_cast<std::uintptr_t>(&type);
    std::atomic<Entry*>& hint = hints_[(address >> 4 ^ address >> 8) % hints_.size()];
    Entry* const guess = hint.load(std::memory_order_acquire);
    const bool found =
        guess != nullptr && guess->open_.load(std::memory_order_acquire) && guess->isFor(type);
    return found ? guess : lookFurther(type, hint, guess);
  }

  [[gnu::noinline]] Entry* lookFurther(const std::type_info& type, std::atomic<Entry*>& hint,
                                       const Entry* guess) const noexcept {
    Entry* const entry = lookByHash(type);
    // The first one stays, lest threads take turns in replacing each other's.
    if (entry != nullptr && (guess == nullptr || !guess->open_.load(std::memory_order_relaxed))) {
      hint.store(entry, std::memory_order_release);
    }
    return entry;
  }

  Entry* lookByHash(const std::type_info& type) const noexcept {
    const std::size_t hash = type.hash_code();
    const Table& table = *table_.load(std::memory_order_acquire);
    for (std::size_t place = hash;; ++place) {
      Entry* const entry =
          table.slots[place & (table.slots.size() - 1)].load(std::memory_order_acquire);
      if (entry == nullptr) {
        return nullptr;
      }
      if (entry->hash_ == hash && entry->open_.load(std::memory_order_acquire) &&
          entry->isFor(type)) {
        return entry;
      }
    }
  }

  static void enter(Table& table, Entry& entry) noexcept {
    std::size_t place = entry.hash_;
    while (table.slots[place & (table.slots.size() - 1)].load(std::memory_order_relaxed)) {
      ++place;
    }
    table.slots[place & (table.slots.size() - 1)].store(&entry, std::memory_order_release);
  }

  void grow() {
    auto table = std::make_unique<Table>(tables_.empty() ? 4 : 2 * tables_.back()->slots.size());
    for (const auto& entry : entries_) {
      if (entry->open_.load(std::memory_order_relaxed)) {
        enter(*table, *entry);
      }
    }
    table_.store(tables_.emplace_back(std::move(table)).get(), std::memory_order_release);
  }

  std::atomic<Table*> table_{nullptr};
  mutable std::array<std::atomic<Entry*>, 16> hints_{};
  std::atomic<Entry*> first_{nullptr};
  std::atomic<Entry*> last_{nullptr};

  PosixMutex mutex_{PosixMutex::Kind::Plain}; // guards what follows
  std::vector<std::unique_ptr<Entry>> entries_;
  std::vector<std::unique_ptr<Table>> tables_;
};

} // namespace Tolvane::detail
