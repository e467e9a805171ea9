#pragma once

/// @file
/// Asks the operating system about the memory of the machine and of this process, and keeps a
/// baseline against which later use is told. It also holds the emergency exit.
///
/// @code
/// #include <tolvane/SystemMemory.hpp>
/// #include <cstdio>
/// #include <vector>
///
/// void measure() {
///   Tolvane::setInitialMemUsage();
///   std::vector<char> big(1 << 28);
///   std::printf("%lld bytes more\n", Tolvane::getRelativeMemUsage());
/// }
/// @endcode
///
/// @par Thread safety
/// Every function may be called from any thread. The baseline is one number that is meant to be
/// set once, at the start: of two threads that set it at the same time, one wins.

#include <tolvane/Api.hpp>
#include <tolvane/MemorySize.hpp>

namespace Tolvane {

/// The physical memory of the machine, in bytes.
TOLVANE_API memsize_t getMemorySize();

/// The physical memory that can be had now without paging others out, in bytes. On Linux it counts
/// file caches that the system would drop ("MemAvailable").
TOLVANE_API memsize_t getAvailableMemory();

/// The virtual address space that this process uses, in bytes: everything mapped or reserved,
/// touched or not. 0 when the system does not tell.
TOLVANE_API memsize_t getMemUsage();

/// The memory that the system has promised this process and must back by physical memory or swap
/// space, in bytes: on Windows its commit charge, on Linux its private writable mappings and
/// stacks ("VmData" plus "VmStk"). 0 when the system does not tell.
TOLVANE_API memsize_t getMemCommitCharge();

/// Makes the present use the baseline. @return that use, as from `getMemUsage()`.
TOLVANE_API memsize_t setInitialMemUsage();

/// Makes @p usage (bytes) the baseline. @return the previous baseline.
TOLVANE_API memsize_t setInitialMemUsage(memsize_t usage);

/// The baseline in bytes; 0 until it is set.
TOLVANE_API memsize_t getInitialMemUsage();

/// The present use less the baseline, in bytes; negative when the use fell below it. When the
/// system does not tell the use, it counts as 0.
TOLVANE_API long long getRelativeMemUsage();

/// Ends the whole process at once with the exit code @p code: no destructor and no handler runs,
/// and nothing is flushed. Linux keeps the lowest 8 bits of the code.
[[noreturn]] TOLVANE_API void ImmediateExitus(int code);

} // namespace Tolvane
