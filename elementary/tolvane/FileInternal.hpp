#pragma once

/// @file
/// How the library opens the files that it writes. Internal to the library, not installed.

#include <cstdio>

namespace Tolvane::detail {

/// Opens a file for writing, as `std::fopen` does, and never in the place of a standard stream: in
/// a process whose standard output is closed the first file that is opened would take its number,
/// and receive all that is printed. Programs that the process starts do not inherit the file.
std::FILE* openForWriting(const char* path, const char* mode) noexcept;

} // namespace Tolvane::detail
