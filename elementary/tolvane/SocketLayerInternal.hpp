#pragma once

/// @file
/// Start and end of the platform's socket layer, for the library's load-time object. Internal.

namespace Tolvane::detail {

/// Asks for Windows Sockets 2.2, once in the process. When there is none, says so on the standard
/// output and goes on: resolving then fails. Nothing to do on Linux.
void startSockets() noexcept;

/// Gives back what startSockets() got, if it got anything. To be called once, when nothing connects
/// any more; leaves it to the system when the process ends.
void stopSockets() noexcept;

} // namespace Tolvane::detail
