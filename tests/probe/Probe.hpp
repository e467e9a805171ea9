#pragma once

/// @file
/// The table of commands of `tolvane-probe`, the program that tests start to watch the library in
/// a process of its own: first calls, load and unload, output bytes, exit codes.
///
/// A command is written in any source of this folder, short ones in a table:
///
/// @code
/// #include "Probe.hpp"
///
/// static const probe::Commands commands = {
///     {"show_level", [](const probe::Arguments& a) {
///        std::printf("%d\n", Tolvane::VerboseStream::show(std::stoi(a.at(0))));
///      }}};
/// PROBE_COMMAND(exit) { return std::stoi(arguments.at(0)); }
/// @endcode
///
/// It is started as `tolvane-probe show_level 3`. Several commands run one after another in one
/// process when "--" stands between them; the first one that does not return 0 ends the program
/// with its value.

#include <functional>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace probe {

using Arguments = std::vector<std::string>;

struct Commands {
  Commands(std::initializer_list<std::pair<const char*, std::function<void(const Arguments&)>>>);
};
struct Command {
  Command(const char* name, int (*run)(const Arguments&));
};

} // namespace probe

/// Opens the definition of the command @p name, which sees its `arguments` and returns the exit
/// code.
#define PROBE_COMMAND(name)                                                                        \
  static int probe_##name(const probe::Arguments& arguments);                                      \
  static const probe::Command probeCommand_##name(#name, &probe_##name);                           \
  static int probe_##name([[maybe_unused]] const probe::Arguments& arguments)
