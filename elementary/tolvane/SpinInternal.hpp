#pragma once

/// @file
/// A short wait without sleeping. Internal to the library, not installed.

namespace Tolvane::detail {

/// Calls `attempt()` some times, further and further apart, until it answers true. Returns whether
/// it did.
///
/// The work under a mutex of the library mostly takes less than putting a thread to sleep and
/// waking it up again. A thread that spins looks seldom, some microseconds apart: the holder then
/// does several steps in a row with what it has in the cache of its core.
template <class Attempt>
bool spin(Attempt attempt) {
  for (int pauses = 64; pauses <= 512; pauses *= 2) {
    for (int i = 0; i < pauses; ++i) {
      __builtin_ia32_pause();
    }
    if (attempt()) {
      return true;
    }
  }
  return false;
}

} // namespace Tolvane::detail
