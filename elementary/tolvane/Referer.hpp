#pragma once

#include <tolvane/Api.hpp>

#include <atomic>
#include <cstdint>
#include <limits>

/// @file
/// The record that an object shares with all its pointers: two counts and the object's address.
///
/// Hosts do not use it themselves; it stands behind StrongPtr, WeakPtr and ReferenceBase.

namespace Tolvane::detail {

/// The counts and the address of one object; it outlives the object while a pointer refers to it.
///
/// Both counts share one 64-bit word, the strong one in the low half and the weak one in the
/// high half, so that a strong pointer is copied or dropped in one atomic step. Every change
/// works on the whole word: a 32-bit access to half of it would be a race of its own.
///
/// The strong count is the number of strong pointers; below zero it is a mark: `Destroying`
/// while an object with a count of zero or more is destroyed, `Destroyed` from then on. The weak
/// count is the number of holders of the record: every pointer, strong or weak, and the object
/// itself. The record goes when it drops from 1 to 0.
///
/// Thread safety: every operation is atomic.
class Referer {
public:
  static constexpr std::int32_t Destroying = -333;
  static constexpr std::int32_t Destroyed = -111;
  static constexpr std::int32_t MaxCount = std::numeric_limits<std::int32_t>::max();

  /// What an attempt to raise a count came to.
  enum class Raise {
    Done,    ///< The counts were raised.
    Dead,    ///< The object is dead; only the weak count was raised, if any.
    AtLimit, ///< A count stands at its largest value; nothing was changed.
  };

  struct Counts {
    std::int32_t strong;
    std::int32_t weak;
  };

  /// A record of `object` with no strong pointer and one weak holder, the object itself. Throws
  /// std::bad_alloc.
  TOLVANE_API static Referer* create(void* object);

  Referer(const Referer&) = delete;
  Referer& operator=(const Referer&) = delete;

  /// Both counts as they stood together at one moment.
  Counts counts() const noexcept { return unpack(word_.load()); }

  /// The object as the `ReferenceBase` it derives from; null once its last strong pointer went.
  void* object() const noexcept { return address(object_.load()); }

  /// Whether the object's destructors are through; a dead object may still be at it.
  bool gone() const noexcept { return (object_.load() & Gone) != 0; }

  /// The object if an access is valid now: it is there and not marked as dead; else null.
  void* living() const noexcept {
    return strongOf(word_.load(std::memory_order_acquire)) >= 0
               ? address(object_.load(std::memory_order_acquire))
               : nullptr;
  }
  bool alive() const noexcept { return living() != nullptr; }

  /// One more weak holder. Dead objects may have new weak holders: Done, or AtLimit.
  Raise addWeak() noexcept {
    if (nearLimit(word_.load(std::memory_order_relaxed))) {
      return addWeakCarefully();
    }
    word_.fetch_add(OneWeak);
    return Raise::Done;
  }

  /// One more strong pointer, copied from one that exists. Of a dead object only the record is
  /// held: Dead, with the weak count raised.
  Raise addStrong() noexcept {
    if (nearLimit(word_.load(std::memory_order_relaxed))) {
      return addStrongCarefully();
    }
    if (strongOf(word_.fetch_add(OneStrong + OneWeak)) >= 0) [[likely]] {
      return Raise::Done;
    }
    markDestructor(); // Destroyed by hand in this very moment: the mark must stay what it is.
    return Raise::Dead;
  }

  /// One more strong pointer, if the object is alive and its strong count is at least `least`.
  /// Dead: nothing was changed.
  Raise lock(std::int32_t least = 0) noexcept { return raise(least, OneStrong + OneWeak); }

  /// The same for who holds the record already.
  Raise strengthen(std::int32_t least) noexcept { return raise(least, OneStrong); }

  /// Drops a strong pointer that is not the last one, with its hold on the record. Returns the
  /// strong count that decided; with 1 or less nothing was changed.
  std::int32_t dropShared() noexcept { return lowerShared(OneStrong + OneWeak); }

  /// The same, but the hold on the record stays with the caller.
  std::int32_t dropSharedStrong() noexcept { return lowerShared(OneStrong); }

  /// Lowers the strong count alone, unless it is below 1. The last one marks the object as dead in
  /// the same step: a count of 0 in between would be taken for that of an object which nobody ever
  /// held, and looked at while it is destroyed. A reference taken meanwhile cancels the mark.
  /// Returns the counts as they were before.
  Counts dropStrong() noexcept {
    std::uint64_t word = word_.load();
    while (strongOf(word) >= 1 &&
           !word_.compare_exchange_weak(word, strongOf(word) == 1 ? withStrong(word, Destroyed)
                                                                  : word - OneStrong)) {
    }
    return unpack(word);
  }

  /// Marks the object as dead and gone whatever its strong count: it is destroyed by hand, or by
  /// an exception in a constructor, or its last pointer marked it as dead already.
  TOLVANE_API void markDestructor() noexcept;

  /// Takes the object's address out of the record. For the one thread that dropped the last strong
  /// pointer: nobody else changes the address then.
  void* takeObject() noexcept {
    void* const object = address(object_.load(std::memory_order_relaxed));
    object_.store(0, std::memory_order_release);
    return object;
  }

  /// One holder less. Frees the record when it was the last; returns false when there was none
  /// to begin with, which is a fault of whoever counted.
  bool dropWeak() noexcept {
    if (weakOf(word_.load(std::memory_order_acquire)) == 1) {
      destroy(this); // Whoever could raise the count would have to hold the record as well.
      return true;
    }
    const std::int32_t before = weakOf(word_.fetch_sub(OneWeak));
    if (before == 1) {
      destroy(this);
    }
    return before >= 1;
  }

  /// Sets both counts, for tests of the limits.
  void setCounts(Counts counts) noexcept { word_.store(pack(counts)); }

private:
  explicit Referer(void* object) noexcept : object_(reinterpret_cast<std::uintptr_t>(object)) {}
  ~Referer() = default;

  TOLVANE_API static void destroy(Referer* referer) noexcept;
  TOLVANE_API Raise addWeakCarefully() noexcept;
  TOLVANE_API Raise addStrongCarefully() noexcept;

  Raise raise(std::int32_t least, std::uint64_t by) noexcept {
    std::uint64_t word = word_.load();
    do {
      if (strongOf(word) < least || object() == nullptr) {
        return Raise::Dead;
      }
      if (strongOf(word) == MaxCount || weakOf(word) == MaxCount) [[unlikely]] {
        return Raise::AtLimit;
      }
    } while (!word_.compare_exchange_weak(word, word + by));
    return Raise::Done;
  }

  std::int32_t lowerShared(std::uint64_t by) noexcept {
    std::uint64_t word = word_.load(std::memory_order_relaxed);
    while (strongOf(word) > 1 && !word_.compare_exchange_weak(word, word - by)) {
    }
    return strongOf(word);
  }

  static constexpr std::uint64_t OneStrong = 1;
  static constexpr std::uint64_t OneWeak = std::uint64_t{1} << 32;
  /// So far from the limits the counts may be raised without looking: more threads than that
  /// would have to be between the look and the step.
  static constexpr std::uint64_t Margin = (std::uint64_t{1} << 48) | (std::uint64_t{1} << 16);
  static constexpr std::uint64_t Signs = (std::uint64_t{1} << 63) | (std::uint64_t{1} << 31);

  /// The lowest bit, which no object's address has.
  static constexpr std::uintptr_t Gone = 1;

  static void* address(std::uintptr_t object) noexcept {
    return reinterpret_cast<void*>(object & ~Gone);
  }
  static constexpr std::int32_t strongOf(std::uint64_t word) noexcept {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(word));
  }
  static constexpr std::int32_t weakOf(std::uint64_t word) noexcept {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(word >> 32));
  }
  static constexpr std::uint64_t withStrong(std::uint64_t word, std::int32_t strong) noexcept {
    return (word & ~std::uint64_t{0xffffffff}) | static_cast<std::uint32_t>(strong);
  }
  static constexpr std::uint64_t pack(Counts counts) noexcept {
    return (std::uint64_t{static_cast<std::uint32_t>(counts.weak)} << 32) |
           static_cast<std::uint32_t>(counts.strong);
  }
  static constexpr Counts unpack(std::uint64_t word) noexcept {
    return {strongOf(word), weakOf(word)};
  }
  /// True also for the marks of a dead object, so that one test finds all that is rare.
  static constexpr bool nearLimit(std::uint64_t word) noexcept {
    return ((word + Margin) & Signs) != 0 || (word & Signs) != 0;
  }

  std::atomic<std::uint64_t> word_{OneWeak};
  std::atomic<std::uintptr_t> object_; // with the mark of an object that is gone
};

static_assert(sizeof(Referer) == 16, "the record takes 16 bytes");

} // namespace Tolvane::detail
