#pragma once

/// @file
/// Opens a client stream connection to a host and port that are given as text.
///
/// @code
/// #include <iostream>
/// #include <tolvane/Socket.hpp>
///
/// int openStream(const std::string& host, const std::string& port) {
///   try {
///     return Tolvane::ConnectTo(host, port); // 0: nobody answered
///   } catch (const Tolvane::SocketError& error) {
///     std::cerr << error.host << ':' << error.port << ": " << error.message << '\n';
///     return 0;
///   }
/// }
/// @endcode

#include <tolvane/Api.hpp>

#include <cstdint>
#include <string>

namespace Tolvane {

/// Thrown when a host and port cannot be resolved. It has no base class: catch it by its own name.
///
/// The codes are those of Windows Sockets on every platform; 11001 is an unknown host, 10109 an
/// unknown service, 11002 a failure that may pass, 11003 one that will not, 10022 a wrong flag.
struct TOLVANE_API SocketError {
  /// The resolver's error code.
  std::int32_t code;
  /// What the code means: a constant text of the library, valid as long as the library is loaded.
  const char* message;
  /// The host as given.
  std::string host;
  /// The port or service name as given.
  std::string port;
};

/// Connects to `port` of `host` and waits until the connection stands or has failed.
///
/// The addresses of the host are tried in the resolver's order, each once, as long as they are for
/// stream sockets. A refused connection is passed over silently. Any other failure is reported:
/// "CANNOT connect to HDF5 stream" and the system's error text on the standard error stream, host,
/// port and error code on the standard output.
///
/// What is returned:
/// - a positive handle, connected. On Linux it is a file descriptor above 2, on Windows a `SOCKET`
///   whose value fits into an `int`. The caller owns it and closes it with `close` or
///   `closesocket`; child processes do not inherit it.
/// - a positive handle that is *not* connected, when the last address failed with an error other
///   than a refusal (no route, time-out, an interrupting signal handler). `getpeername` tells; the
///   caller owns and closes this one as well. The handles of earlier addresses that failed like
///   this stay open.
/// - 0, when the last address refused or no socket could be made for it.
///
/// The disposition of SIGPIPE is left alone on Linux: to write to a connection that the other side
/// has closed raises it, so a host ignores that signal or sends with MSG_NOSIGNAL. Standard input
/// is never closed, nor taken for a socket when the host runs without one.
///
/// @param host name or numeric address; an empty one, or one with a NUL in it, is unknown
/// @param port number up to 65535, or a service name; an empty one, or one with a NUL in it, is
///             unknown
/// @throw SocketError when host and port cannot be resolved
///
/// @par Thread safety
/// May be called from any thread. The call blocks, for as long as the system lets a connection try.
TOLVANE_API int ConnectTo(const std::string& host, const std::string& port);

} // namespace Tolvane
