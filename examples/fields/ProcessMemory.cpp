#include "ProcessMemory.hpp"

#if defined(_WIN32)
#include <windows.h>
// Needs the one above.
#include <psapi.h>
#else
#include <sys/resource.h>
#endif

namespace fields {

Tolvane::memsize_t peakProcessMemory() {
#if defined(_WIN32)
  PROCESS_MEMORY_COUNTERS counters{};
  counters.cb = sizeof counters;
  return GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters)
             ? counters.PeakWorkingSetSize
             : 0;
#else
  rusage usage{};
  return getrusage(RUSAGE_SELF, &usage) == 0
             ? static_cast<Tolvane::memsize_t>(usage.ru_maxrss) * 1024
             : 0;
#endif
}

} // namespace fields
