#pragma once

#include <tolvane/Api.hpp>

#include <atomic>
#include <limits>
#include <string>

/// @file
/// A time stamp on the logical clock of the process. The clock counts whatever its users want it
/// to count: the library reads it and never advances it.
///
/// @code
/// #include <tolvane/Ageable.hpp>
///
/// Tolvane::Ageable made;          // stamped with the clock as it stands
/// ++Tolvane::Ageable::GlobalTime; // something happened
/// Tolvane::Ageable remade;
/// assert(made.stamp() < remade.stamp() && made.str() == "t=1");
/// @endcode

namespace Tolvane {

/// One stamp of the logical clock.
///
/// Thread safety: the clock is atomic, a stamp is not; threads that share one, one of them changing
/// it, must serialise.
class TOLVANE_API Ageable {
public:
  /// The clock. It starts at 1; users read and advance it as they like.
  static std::atomic<long long> GlobalTime;

  /// The stamp of what is infinitely old.
  static constexpr long long Ooooold = std::numeric_limits<long long>::min();

  /// The stamp of what is infinitely new: the largest value but one. The reference stays good until
  /// the process ends.
  static const long long& InfinitelyNew() noexcept;

  /// Takes the clock as it stands.
  Ageable() noexcept : stamp_(GlobalTime.load()) {}

  /// Takes any stamp, also `Ooooold` and `InfinitelyNew()`.
  explicit Ageable(long long stamp) noexcept : stamp_(stamp) {}

  /// The stamp.
  long long stamp() const noexcept { return stamp_; }
  /// Sets the stamp.
  void setStamp(long long stamp) noexcept { stamp_ = stamp; }

  /// The stamp as text: "t=-infinitely old", "t=+infinitely new", or "t=" and the decimal value.
  /// @throws std::bad_alloc when there is no memory for the text.
  std::string str() const;

private:
  long long stamp_;
};

} // namespace Tolvane
