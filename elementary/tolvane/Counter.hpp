#pragma once

#include <tolvane/Api.hpp>

#include <atomic>
#include <cstdint>
#include <mutex>

/// @file
/// A small atomic counter, and one process-wide mutex for those who need several steps at once.
///
/// @code
/// Tolvane::Counter users;
/// ++users;
/// if (--users) { ... }  // true: that was the last one
/// @endcode

namespace Tolvane {

/// An unsigned 32-bit count that any thread may raise and lower.
///
/// Thread safety: every operation is one atomic step. For steps that belong together hold
/// counter_mutex().
class Counter {
public:
  /// Starts at `value`.
  explicit Counter(std::uint32_t value = 0) noexcept : value_(value) {}

  /// Adds one and returns the counter.
  Counter& operator++() noexcept {
    value_.fetch_add(1);
    return *this;
  }

  /// Subtracts one. Returns true when the count reached zero by it.
  bool operator--() noexcept { return value_.fetch_sub(1) == 1; }

  /// The count at this moment.
  std::uint32_t value() const noexcept { return value_.load(); }

private:
  std::atomic<std::uint32_t> value_;
};

/// The one mutex of the process for callers that change several counters together. The library
/// itself never holds it.
TOLVANE_API std::mutex& counter_mutex();

} // namespace Tolvane
