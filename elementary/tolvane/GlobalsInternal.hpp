#pragma once

/// @file
/// The process-wide state behind verbose output, and what the library does when it is loaded and
/// unloaded. Internal to the library, not installed.

#include <atomic>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Tolvane {

namespace Globals {

/// The settings of verbose output and its two sets of file names.
///
/// Built when the library is loaded, or before that by the first message of another static
/// object, and never destroyed: messages may come from static objects until the very end.
/// Everything but `usedFiles` and `usedFilesPath` is constant once built and read without a lock.
struct VerboseFiles {
  static VerboseFiles& instance();

  /// What is done at unload: writes the used-files list and releases what is not needed any more.
  /// The filters stay for messages that come still later.
  void cleanup();

  /// Notes that @p file issues messages. @return whether its messages are switched off.
  bool enterFile(const char* file);

  /// Writes the used-files list, at most once in the process.
  void writeUsedFiles();

  /// The absolute value of the verbosity: the highest level that is shown.
  int shownLevel() const noexcept;

  /// Whether the domain filter lets a message pass.
  /// @throws std::invalid_argument, std::out_of_range when an entry's level is malformed.
  bool domainPasses(std::string_view domain, int level) const;

  /// Whether the constraints let a message from @p location pass.
  bool constraintsPass(std::string_view location) const;

  // In the order in which the variables are read.
  int verbosity;
  std::vector<std::string> domains;
  int sectionsEnabled;
  std::string editor;
  std::string usedFilesPath;
  std::string switchedOffFilesPath;
  std::vector<std::string> constraints;

  /// Guards `usedFiles` and `usedFilesPath`.
  std::mutex filesMutex;
  std::set<std::string, std::less<>> usedFiles;
  std::set<std::string, std::less<>> switchedOffFiles;

  /// Set when the library's unload code begins. From then on a message has no caller that could
  /// catch what a malformed filter throws.
  std::atomic<bool> unloading{false};

  /// Messages above this level need no closer look while no catcher is installed.
  int quietThreshold;

private:
  VerboseFiles();
  bool cleanedUp_ = false; // guarded by filesMutex
};

} // namespace Globals

namespace detail {

/// After how many queue adjustments the process is to be terminated, 0 for never; read once, when
/// the library is loaded.
int debugStopLimit();

/// Makes what reports need beside the log itself. Done while loading, so that no report at the end
/// of a process finds a thread that is gone in the middle of it.
void prepareIrregularityLog();

/// Closes the log of irregularities; a report that comes later opens it again.
void closeIrregularityLog() noexcept;

} // namespace detail
} // namespace Tolvane
