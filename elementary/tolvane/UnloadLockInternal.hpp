#pragma once

/// @file
/// Locks that code may take while the process ends. Internal to the library, not installed.
///
/// On Windows a process that ends stops all threads but one, wherever they are, and then runs the
/// destructors of static objects in its modules: a mutex that a stopped thread had locked stays
/// locked for ever, and waiting for it would hang the process.

#include <mutex>

namespace Tolvane::detail {

/// Whether the modules of this process are being unloaded because it ends and its other threads
/// are gone. Always false on Linux, where the other threads run on until the very end.
bool otherThreadsAreGone() noexcept;

/// Locks @p mutex. While the process ends it only tries to, so the result must be asked with
/// `owns_lock()` before the guarded data are used.
std::unique_lock<std::mutex> lockUnlessEnding(std::mutex& mutex);

} // namespace Tolvane::detail
