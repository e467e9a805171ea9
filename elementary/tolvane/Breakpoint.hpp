#pragma once

/// @file
/// The hook into the debugger: the library calls it where something went wrong that a developer
/// wants to look at on the spot. It does nothing unless the variable `TOLVANE_ENABLE_BREAKPOINTS`
/// is present.
///
/// @code
/// #include <tolvane/Breakpoint.hpp>
/// #include <string>
///
/// void check(int bricks) {
///   if (bricks < 0)
///     Tolvane::breakpoint("negative number of bricks: " + std::to_string(bricks));
/// }
/// @endcode

#include <tolvane/Api.hpp>

#include <string>

namespace Tolvane {

/// Stops in the debugger, or lets the registered `AssertionCallback` decide.
///
/// When the variable `TOLVANE_ENABLE_BREAKPOINTS` is present (with any value; looked up once in
/// the process, never listed), prints "\nREAKPOINT>>> %s\n\n" with @p text and the current call
/// stack to standard output. Then it asks the registered callback; with none it prints "BREAKPOINT
/// without assertion callback registered, going straight to the breakpoint.". Unless the callback
/// said no, it traps into the debugger if one is attached to the process, and prints "BREAKPOINT
/// DONE>>>" afterwards. Without the variable it returns at once.
///
/// Throws nothing itself; what the callback throws goes through.
///
/// @par Thread safety
/// May be called from any thread; lines of two threads may interleave.
TOLVANE_API void breakpoint(const std::string& text);

} // namespace Tolvane
