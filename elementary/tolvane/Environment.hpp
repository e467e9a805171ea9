#pragma once

/// @file
/// Reads the environment variables that tune the library and the programs built on it.
/// Each read names its variable and describes it, so that a program started with
/// `SHOW_ENVIRONMENT_CONTROL_VARIABLES=1` lists every variable it consults.
///
/// @code
/// #include <tolvane/Environment.hpp>
///
/// int threads = Tolvane::getEnvInteger("MYAPP_THREADS", "Number of worker threads", 4);
/// @endcode
///
/// @par Listing
/// A read with a description prints "name: description" and a line end to standard output, each
/// time anew, when the variable `SHOW_ENVIRONMENT_CONTROL_VARIABLES` was non-zero at the first
/// such read of the process. A read whose description is null is never listed and does not look
/// at that variable.
///
/// @par Numbers
/// Numbers are read with `atof`: leading blanks are skipped, what follows the number is ignored
/// ("30GB" reads as 30), and a text without a number reads as 0. The integer forms cut toward zero
/// ("-3.7" reads as -3); a value beyond the limits of the type reads as the nearest limit, and one
/// that is no number as 0. Hexadecimal numbers and the words "inf" and "nan" are read where the C
/// runtime knows them: on Linux.
///
/// @par Thread safety
/// Reads may come from any thread. `setEnv` changes the environment of the process without a
/// lock: no other thread may read or change the environment meanwhile.

#include <tolvane/Api.hpp>

#include <string>

namespace Tolvane {

/// Reads an integer.
/// @param name         the variable; must not be null.
/// @param description  one line for the listing, or null for an internal variable.
/// @param defaultValue the result when the variable is unset.
TOLVANE_API int getEnvInteger(const char* name, const char* description, int defaultValue);

/// Reads a long integer; 0 when the variable is unset. The limits are those of `long`, which has
/// 32 bits on Windows and 64 on Linux. Parameters as for `getEnvInteger`.
TOLVANE_API long getEnvLong(const char* name, const char* description);

/// Reads a floating-point number. Parameters as for `getEnvInteger`.
TOLVANE_API double getEnvFloat(const char* name, const char* description, double defaultValue);

/// Reads a text: a copy of the value, empty when the variable is unset. On Windows the value is in
/// the ANSI code page of the process. Parameters as for `getEnvInteger`.
TOLVANE_API std::string getEnvString(const char* name, const char* description);

/// Sets a variable of this process and of the processes it starts.
/// @param name       the variable; not null, not empty and without "=".
/// @param value      its new value, up to the first NUL character. An empty value removes the
///                   variable on Windows, as the C runtime does there; on Linux the variable is
///                   then set and empty.
/// @param overwrite  false leaves a variable alone that is already set.
/// @return false when the variable was set already and @p overwrite is false, otherwise true, also
///         when the C runtime refused.
TOLVANE_API bool setEnv(const char* name, const std::string& value, bool overwrite);

/// The directory of the running executable, without a separator at its end; empty when the system
/// does not tell. Windows paths are cut at the last backslash and, beyond 260 characters,
/// shortened by the system; Linux paths are cut at the last slash.
TOLVANE_API std::string getExecutableDir();

/// Always the empty string, when the working directory can be told. Kept for the modules that call
/// it; ask `std::filesystem::current_path` for the working directory.
/// @throws std::length_error when the working directory cannot be told: it is gone, or its path
///         has 260 characters or more.
TOLVANE_API std::string getCurrentDir();

} // namespace Tolvane
