#pragma once

/// @file
/// Start and end of the platform's socket layer, for the library's load-time object. Internal.

namespace Tolvane::detail {

/// Asks for Windows Sockets 2.2. When there is none, says so on the standard output and goes on:
/// every connection then fails by itself. Nothing to do on Linux.
void startSockets() noexcept;

/// Gives back what startSockets() got; does nothing when it got nothing.
void stopSockets() noexcept;

} // namespace Tolvane::detail
