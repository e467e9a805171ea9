#include "UnloadLockInternal.hpp"

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#endif

namespace Tolvane::detail {

bool otherThreadsAreGone() noexcept {
#ifdef _WIN32
  // Exported by the system's lowest library, but not declared in every SDK.
  using Query = BOOLEAN(NTAPI*)();
  static const Query query = [] {
    const HMODULE module = GetModuleHandleA("ntdll.dll");
    const FARPROC found = module ? GetProcAddress(module, "RtlDllShutdownInProgress") : nullptr;
    return reinterpret_cast<Query>(reinterpret_cast<void*>(found));
  }();
  return query && query();
#else
  return false;
#endif
}

std::unique_lock<std::mutex> lockUnlessEnding(std::mutex& mutex) {
  if (otherThreadsAreGone())
    return {mutex, std::try_to_lock};
  return std::unique_lock<std::mutex>(mutex);
}

} // namespace Tolvane::detail
