#pragma once

/// @file
/// Starts `tolvane-probe` in a process of its own and tells what it wrote and how it ended.
///
/// @code
/// #include "RunProbe.hpp"
///
/// TEST(Listing, NamesTheVariable) {
///   const ProbeResult run = runProbe({"env_string", "EDITOR", "The editor"},
///                                    {.environment = {{"SHOW_ENVIRONMENT_CONTROL_VARIABLES", "1"},
///                                                     {"EDITOR", std::nullopt}}});
///   EXPECT_EQ(run.exitCode, 0) << run.err;
///   EXPECT_EQ(textOf(run.out), "EDITOR: The editor\n\n");
/// }
/// @endcode

#include <map>
#include <optional>
#include <string>
#include <vector>

struct ProbeOptions {
  /// Variables to set, or with `std::nullopt` to remove. The rest is inherited, less all variables
  /// that the library reads; `TOLVANE_CACHESIZE` is 64M unless it is mentioned here.
  std::map<std::string, std::optional<std::string>> environment = {};
  /// The working directory; empty for the test's own.
  std::string directory = {};
  /// Another program to start in place of `tolvane-probe`; empty for that.
  std::string program = {};
  /// Start without a standard input; otherwise it is empty.
  bool closeStdin = false;
};

struct ProbeResult {
  /// -1 when a signal ended the process.
  int exitCode = -1;
  /// The signal that ended it, 0 when none did and on Windows. SIGKILL when it took too long.
  int signal = 0;
  /// The bytes it wrote, with CR LF on Windows where a stream is in text mode.
  std::string out, err;

  /// Whether it ended as `abort()` ends a process on this platform.
  bool aborted() const;
};

/// Runs `tolvane-probe` with @p arguments and waits until it ends, at most two minutes.
/// @throws std::runtime_error when it cannot be started.
ProbeResult runProbe(const std::vector<std::string>& arguments, const ProbeOptions& options = {});

/// Where the program is that `runProbe` starts.
std::string probePath();

/// The text of a text-mode stream: the same bytes with LF as the line end on every platform.
std::string textOf(const std::string& bytes);
