#pragma once

/// @file
/// Adds up how often scopes run and how long they take, per name and for the whole process, and
/// prints the result as a table. It is off until `Profiler::enable` is called.
///
/// @code
/// #include <tolvane/Profiler.hpp>
///
/// void step() {
///   TOLVANE_PROFILE("step", 5);
///   // ... work ...
/// }
///
/// void measure() {
///   Tolvane::Profiler::enable();
///   step();
///   Tolvane::Profiler::print();
/// }
/// @endcode

#include <tolvane/Api.hpp>
#include <tolvane/SourceLocation.hpp>

#include <atomic>
#include <climits>
#include <cstdint>
#include <string>
#include <vector>

namespace Tolvane {

namespace detail {
struct ProfilerRecord;
/// Scopes up to this level are measured; below every level while the profiler is off.
extern TOLVANE_API std::atomic<long long> profilerLevel;
} // namespace detail

/// Measures the scope it lives in.
///
/// While the profiler is off, or the scope's level is above the one that was enabled, a scope costs
/// one comparison; otherwise two looks at the clock and an addition.
/// The time is the elapsed time between construction and destruction, nested scopes included; a
/// name that is nested in itself counts its time twice. A scope counts when it ends. One that was
/// running during `reset` adds its whole time afterwards.
///
/// @par Thread safety
/// The static functions may be called from any thread; each object belongs to one thread. Figures
/// that are read while other threads run are each right, but not all of the same moment.
class TOLVANE_API Profiler {
public:
  /// Starts the measurement. The texts are copied when a name is first measured, and the location
  /// and level of that first scope stand for the name. None may be null. When there is no memory
  /// for the entry of a new name, the scope is not measured.
  Profiler(const char* file, int line, const char* function, const char* name, int level) noexcept {
    if (level <= detail::profilerLevel.load(std::memory_order_relaxed))
      start(file, line, function, name, level);
  }
  Profiler(const Profiler&) = delete;
  Profiler& operator=(const Profiler&) = delete;
  ~Profiler() {
    if (record_)
      stop();
  }

  /// The figures of one name.
  struct Statistic {
    std::string name;
    std::string file;
    int line = 0;
    std::string function;
    int level = 0;
    std::uint64_t calls = 0;              ///< scopes that have ended
    std::uint64_t totalNanoseconds = 0;   ///< their times added up
    std::uint64_t longestNanoseconds = 0; ///< the longest of them
  };

  /// Measures scopes whose level is at most @p level from now on.
  static void enable(int level = INT_MAX) noexcept;

  /// Measures no scope that starts from now on; the figures stay.
  static void disable() noexcept;

  /// Sets all figures to zero.
  static void reset();

  /// The figures of all names that have calls, ordered by name.
  static std::vector<Statistic> statistics();

  /// The same as a table of text, one line per name under a line of titles.
  static std::string table();

  /// Prints the table to standard output and flushes it.
  static void print();

private:
  void start(const char* file, int line, const char* function, const char* name,
             int level) noexcept;
  void stop() noexcept;

  detail::ProfilerRecord* record_ = nullptr;
  std::int64_t started_ = 0;
};

} // namespace Tolvane

/// Measures the rest of the surrounding scope under the constant text @p name at @p level.
#define TOLVANE_PROFILE(name, level)                                                               \
  const ::Tolvane::Profiler TOLVANE_PROFILE_NAME_(__LINE__)(__FILE__, __LINE__, TOLVANE_FUNCTION,  \
                                                            name, level)
#define TOLVANE_PROFILE_NAME_(line) TOLVANE_PROFILE_NAME_2_(line)
#define TOLVANE_PROFILE_NAME_2_(line) tolvaneProfile##line
