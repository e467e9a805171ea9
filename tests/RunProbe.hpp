#pragma once

/// @file
/// Starts `tolvane-probe` in a process of its own and tells what it wrote and how it ended.
///
/// @code
/// #include "RunProbe.hpp"
///
/// TEST(Listing, NamesTheVariable) {
///   EXPECT_EQ(outputOf("env string EDITOR 'The editor'",
///                      {{"SHOW_ENVIRONMENT_CONTROL_VARIABLES", "1"}, {"EDITOR", std::nullopt}}),
///             "EDITOR: The editor\n\n");
/// }
/// @endcode

#include <map>
#include <optional>
#include <string>
#include <vector>

/// Variables to set, or with `std::nullopt` to remove. The rest is inherited, less all variables
/// that the library reads; `TOLVANE_CACHESIZE` is 64M unless it is mentioned.
using Variables = std::map<std::string, std::optional<std::string>>;

struct ProbeOptions {
  Variables environment = {};
  /// The working directory; empty for the test's own.
  std::string directory = {};
  /// Another program to start in place of `tolvane-probe`; empty for that.
  std::string program = {};
  /// What the standard streams of these numbers are: files, or with an empty path closed. By
  /// default input is empty, and output and error are what the result tells.
  std::map<int, std::string> streams = {};
};

struct ProbeResult {
  /// -1 when a signal ended the process.
  int exitCode = -1;
  /// The signal that ended it, 0 when none did and on Windows. SIGALRM when it took too long.
  int signal = 0;
  /// The bytes it wrote, with CR LF on Windows where a stream is in text mode.
  std::string out, err;

  /// Whether it took too long and was ended for that.
  bool hung() const;

  /// Whether it ended as `abort()` ends a process on this platform.
  bool aborted() const;
};

/// Runs `tolvane-probe` with @p arguments and waits until it ends, at most two minutes.
/// @throws std::runtime_error when it cannot be started.
ProbeResult runProbe(const std::vector<std::string>& arguments, const ProbeOptions& options = {});

/// The same with the words of @p line, parted by blanks, or within '' where they hold some or
/// nothing. What it wrote has LF as the line end on every platform.
ProbeResult probe(const std::string& line, const ProbeOptions& options = {});

/// What `probe` writes to its standard output, or error, and that it ends well.
std::string outputOf(const std::string& line, const Variables& environment = {});
std::string errorsOf(const std::string& line, const Variables& environment = {});

/// Where the program is that `runProbe` starts.
std::string probePath();

/// The text of a text-mode stream: the same bytes with LF as the line end on every platform.
std::string textOf(const std::string& bytes);

/// The bytes of a file; none when it cannot be read.
std::string contentOf(const std::string& path);
