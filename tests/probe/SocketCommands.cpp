#include "Probe.hpp"

#include <tolvane/Socket.hpp>

#include <cstdio>

#ifdef _WIN32
#include <winsock2.h>
#else
#include <sys/socket.h>
#endif

namespace {

const char* describe(int handle) {
  if (handle <= 2)
    return handle == 0 ? "none" : "taken from a standard stream";
#ifdef _WIN32
  const auto native = static_cast<SOCKET>(handle);
  using Length = int;
#else
  const int native = handle;
  using Length = socklen_t;
#endif
  sockaddr address[8];
  Length length = sizeof address;
  if (getpeername(native, address, &length) == 0)
    return "connected";
  int type = 0;
  length = sizeof type;
  return getsockopt(native, SOL_SOCKET, SO_TYPE, reinterpret_cast<char*>(&type), &length) == 0
             ? "unconnected"
             : "not a socket";
}

} // namespace

PROBE_COMMAND(connect) {
  const int handle = Tolvane::ConnectTo(arguments.at(0), arguments.at(1));
  std::printf("handle: %s\n", describe(handle));
  std::fgetc(stdin);
  std::printf("standard input: %s\n", std::feof(stdin) ? "open" : "closed");
  return 0;
}
