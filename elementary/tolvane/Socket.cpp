#include "SocketLayerInternal.hpp"
#include "UnloadLockInternal.hpp"

#include <tolvane/Socket.hpp>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <system_error>

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

namespace Tolvane {

namespace {

constexpr std::int32_t badFlags = 10022;
constexpr std::int32_t serviceNotFound = 10109;
constexpr std::int32_t hostNotFound = 11001;
constexpr std::int32_t tryAgain = 11002;
constexpr std::int32_t resolverFailed = 11003;

const char* resolverMessage(std::int32_t code) {
  switch (code) {
  case badFlags:
    return "BAD FLAGS - An invalid value was provided for the ai_flags member of the hints "
           "parameter.";
  case serviceNotFound:
    return "SERVICE NOT FOUND - The servname parameter is not supported for the specified "
           "ai_socktype member of the hints parameter.";
  case hostNotFound:
    return "HOST NOT FOUND - Parameters or the nodename and servname parameters were not provided.";
  case tryAgain:
    return "TRY AGAIN - A temporary failure in name resolution occurred.";
  case resolverFailed:
    return "FAIL - A nonrecoverable failure in name resolution occurred.";
  default:
    return "Unknown error.";
  }
}

// 0 stands for "no socket", as it does in the answer of ConnectTo().
#ifdef _WIN32

constexpr int connectionRefused = WSAECONNREFUSED;

bool socketLayerStarted() {
  static const bool started = [] {
    WSADATA data;
    const bool succeeded = WSAStartup(0x0202, &data) == 0;
    if (!succeeded)
      std::fputs("windows sockets 2.2 error", stdout);
    return succeeded;
  }();
  return started;
}

std::int32_t resolverCode(int error) {
  return error;
}

int lastError() {
  return WSAGetLastError();
}

int openSocket(const addrinfo& address) {
  const SOCKET made = socket(address.ai_family, address.ai_socktype, address.ai_protocol);
  if (made == INVALID_SOCKET)
    return 0;
  SetHandleInformation(reinterpret_cast<HANDLE>(made), HANDLE_FLAG_INHERIT, 0);
  // Only 32 bits of a handle carry information, for the sake of programs like this one.
  return static_cast<int>(made);
}

bool connectSocket(int handle, const addrinfo& address) {
  return connect(static_cast<SOCKET>(handle), address.ai_addr,
                 static_cast<int>(address.ai_addrlen)) == 0;
}

void closeRefused(int handle) {
  closesocket(static_cast<SOCKET>(handle));
  closesocket(0); // no socket has this handle, so nothing is hit
}

#else

constexpr int connectionRefused = ECONNREFUSED;

std::int32_t resolverCode(int error) {
  switch (error) {
  case EAI_BADFLAGS:
    return badFlags;
  case EAI_SERVICE:
    return serviceNotFound;
  case EAI_NONAME:
    return hostNotFound;
  case EAI_AGAIN:
    return tryAgain;
  case EAI_FAIL:
    return resolverFailed;
  // The rest has no text of its own, but Windows Sockets has a number for what it means.
  case EAI_MEMORY:
    return 8;
  case EAI_SOCKTYPE:
    return 10044;
  case EAI_FAMILY:
    return 10047;
  case EAI_SYSTEM:
    return 10107;
#ifdef EAI_NODATA
  case EAI_NODATA:
    return 11004;
#endif
  default: // The platform's own numbers would mean nothing to who reads these codes.
    return resolverFailed;
  }
}

int lastError() {
  return errno;
}

int openSocket(const addrinfo& address) {
  const int made =
      socket(address.ai_family, address.ai_socktype | SOCK_CLOEXEC, address.ai_protocol);
  if (made > STDERR_FILENO)
    return made;
  if (made < 0)
    return 0;
  // A host without standard streams would take the socket for one of them, and so would the
  // messages below.
  const int moved = fcntl(made, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  close(made);
  return moved < 0 ? 0 : moved;
}

bool connectSocket(int handle, const addrinfo& address) {
  return connect(handle, address.ai_addr, address.ai_addrlen) == 0;
}

// Handle 0 is standard input here, and stays open.
void closeRefused(int handle) {
  close(handle);
}

#endif

// As perror does, also where the error is not in errno.
void printSystemError(const char* text, int error) noexcept {
  try {
    std::fprintf(stderr, "%s: %s\n", text, std::system_category().message(error).c_str());
  } catch (const std::bad_alloc&) {
    // The socket behind the error must reach the caller all the same.
    std::fprintf(stderr, "%s: error code %d\n", text, error);
  }
}

// The resolver cuts a number that is too large to its lower 16 bits and would connect elsewhere.
bool isTooLarge(const std::string& port) {
  char* end = nullptr;
  const unsigned long long number = std::strtoull(port.c_str(), &end, 10);
  return *end == '\0' && number > 65535;
}

bool isCut(const std::string& name) {
  return name.find('\0') != std::string::npos;
}

using Addresses = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

Addresses resolve(const std::string& host, const std::string& port) {
  addrinfo* list = nullptr;
  std::int32_t code = 0;
  // The platforms' resolvers read these differently: as this machine, as port 0, as the part before
  // the NUL. None of that is what a user means who leaves a setting empty or damaged.
  if (host.empty() || isCut(host))
    code = hostNotFound;
  else if (port.empty() || isCut(port) || isTooLarge(port))
    code = serviceNotFound;
  else if (const int error = getaddrinfo(host.c_str(), port.c_str(), nullptr, &list); error != 0)
    code = resolverCode(error);
  if (code != 0)
    throw SocketError{code, resolverMessage(code), host, port};
  return Addresses(list, &freeaddrinfo);
}

} // namespace

namespace detail {

void startSockets() noexcept {
#ifdef _WIN32
  socketLayerStarted();
#endif
}

void stopSockets() noexcept {
#ifdef _WIN32
  // A process that ends gives its sockets back by itself, and WSACleanup might wait for a lock of a
  // thread that was stopped.
  if (!otherThreadsAreGone() && socketLayerStarted())
    WSACleanup();
#endif
}

} // namespace detail

int ConnectTo(const std::string& host, const std::string& port) {
  // A static object of a host that has the library inside may come before the load-time object.
  detail::startSockets();
  const Addresses addresses = resolve(host, port);
  int handle = 0;
  for (const addrinfo* address = addresses.get(); address != nullptr; address = address->ai_next) {
    // The resolver also lists every address for datagrams, whose connect always succeeds.
    if (address->ai_socktype != SOCK_STREAM && address->ai_socktype != 0)
      continue;
    handle = openSocket(*address);
    if (handle <= 0) {
      std::fputs("HDF5 stream: FAILED to open connection\n", stdout);
      continue;
    }
    if (connectSocket(handle, *address))
      return handle;
    const int error = lastError();
    if (error == connectionRefused) {
      closeRefused(handle);
      handle = 0;
      continue;
    }
    printSystemError("CANNOT connect to HDF5 stream", error);
    std::printf("stream to `%s' %s: error code %d.\n", host.c_str(), port.c_str(), error);
  }
  if (handle > 0)
    return handle;
  std::fputs("URL: could not open valid connection.\n", stdout);
  return 0;
}

} // namespace Tolvane
