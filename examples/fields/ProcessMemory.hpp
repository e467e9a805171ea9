#pragma once

#include <tolvane/MemorySize.hpp>

/// @file
/// The memory of this process.

namespace fields {

/// The most physical memory that the process had so far, in bytes; 0 when the system does not tell.
Tolvane::memsize_t peakProcessMemory();

} // namespace fields
