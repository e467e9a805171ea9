#pragma once

#include <tolvane/Api.hpp>

#include <atomic>
#include <cstdint>

/// @file
/// The serial numbers of objects and pointers.
///
/// A serial tells two pointers apart in a report and lets a debugger wait for one of them.
///
/// @code
/// std::uint64_t serial = Tolvane::nextPointerID();
/// @endcode

namespace Tolvane {

/// The last serial that was given out.
///
/// It is advanced by a load and a store of their own, without a read-modify-write: two threads
/// may draw the same serial. Serials serve reports only, and an atomic step here would be the
/// dearest part of making a pointer.
TOLVANE_API extern std::atomic<std::uint64_t> PointerID;

/// A number for modules that keep count of reference records. The library never changes it.
TOLVANE_API extern std::atomic<std::int32_t> RefererObjectCount;

/// Draws the next serial; unique as long as one thread draws.
inline std::uint64_t nextPointerID() noexcept {
  const std::uint64_t next = PointerID.load(std::memory_order_relaxed) + 1;
  PointerID.store(next, std::memory_order_relaxed);
  return next;
}

} // namespace Tolvane
