#include "RunProbe.hpp"

#include <tolvane/Socket.hpp>

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <system_error>

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

namespace {

using Tolvane::ConnectTo;
using Tolvane::SocketError;
using namespace std::string_literals;

#ifdef _WIN32
using Native = SOCKET;
using Length = int;
void closeNative(Native s) {
  closesocket(s);
}
bool isInherited(Native s) {
  DWORD flags = HANDLE_FLAG_INHERIT;
  GetHandleInformation(reinterpret_cast<HANDLE>(s), &flags);
  return (flags & HANDLE_FLAG_INHERIT) != 0;
}
#else
using Native = int;
using Length = socklen_t;
void closeNative(Native s) {
  close(s);
}
bool isInherited(Native s) {
  return (fcntl(s, F_GETFD) & FD_CLOEXEC) == 0;
}
#endif

class Socket {
public:
  explicit Socket(Native native) : native_(native) {}
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  ~Socket() { closeNative(native_); }
  operator Native() const { return native_; }

  /// Whether a text that is sent here arrives there.
  bool reaches(const Socket& other) const {
    char received[16] = "";
    const std::string text = "from end to end";
    return send(native_, text.data(), 15, 0) == 15 && recv(other, received, 15, 0) == 15 &&
           text == received;
  }

private:
  Native native_;
};

struct Address {
  sockaddr_storage bytes = {};
  Length size = sizeof bytes;
  sockaddr* get() { return reinterpret_cast<sockaddr*>(&bytes); }
};

std::vector<Address> streamAddresses(const std::string& host, const std::string& port) {
  std::vector<Address> addresses;
  addrinfo* list = nullptr;
  if (getaddrinfo(host.c_str(), port.c_str(), nullptr, &list) != 0)
    return addresses;
  for (const addrinfo* entry = list; entry; entry = entry->ai_next) {
    if (entry->ai_socktype != SOCK_STREAM && entry->ai_socktype != 0)
      continue;
    Address address;
    std::memcpy(&address.bytes, entry->ai_addr, entry->ai_addrlen);
    address.size = static_cast<Length>(entry->ai_addrlen);
    addresses.push_back(address);
  }
  freeaddrinfo(list);
  return addresses;
}

// Holds a port of a loopback address, which accepts or refuses connections. A connection is
// accepted by the system, before anybody asks for it.
class Listener {
public:
  explicit Listener(Address address) : socket_(::socket(address.bytes.ss_family, SOCK_STREAM, 0)) {
    bound_ = bind(socket_, address.get(), address.size) == 0;
  }
  Listener() : Listener(streamAddresses("127.0.0.1", "0").at(0)) {}

  bool bound() const { return bound_; }
  void acceptConnections() { EXPECT_EQ(listen(socket_, 8), 0); }
  Socket accept() const { return Socket(::accept(socket_, nullptr, nullptr)); }
  std::string port() const {
    Address address;
    char text[16] = "";
    EXPECT_EQ(getsockname(socket_, address.get(), &address.size), 0);
    getnameinfo(address.get(), address.size, nullptr, 0, text, sizeof text, NI_NUMERICSERV);
    return text;
  }

private:
  Socket socket_;
  bool bound_ = false;
};

TEST(Socket, UnresolvedHostsAndPorts) {
  const std::string longText(1000000, 'a'), local = "127.0.0.1";
  const auto check = [](const std::string& host, const std::string& port, int code,
                        const char* message) {
    SCOPED_TRACE(testing::PrintToString(host.substr(0, 80) + " " + port.substr(0, 80)));
    try {
      ConnectTo(host, port);
      ADD_FAILURE() << "no exception";
    } catch (const SocketError& error) {
      EXPECT_EQ(error.code, code);
      EXPECT_STREQ(error.message, message);
      EXPECT_TRUE(error.host == host && error.port == port);
    }
  };
  // Names that no name server is asked for: a part is longer than 63 bytes, or empty, or names an
  // interface that is not there.
  for (const std::string& host :
       {std::string(64, 'x'), "a..b"s, "fe80::1%none"s, longText, ""s, "127.0.0.1\0x"s, "\0"s})
    check(host, "80", 11001,
          "HOST NOT FOUND - Parameters or the nodename and servname parameters were not provided.");
  for (const std::string& port : {""s, "no-such-service"s, "\xff\x01 %s%n"s, longText, "80\0"s,
                                  "-1"s, "65536"s, "4294967376"s, std::string(1000, '9')})
    check(local, port, 10109,
          "SERVICE NOT FOUND - The servname parameter is not supported for the specified "
          "ai_socktype member of the hints parameter.");
}

// A name with several addresses, of which each in turn is the only one that accepts.
TEST(Socket, ConnectsToTheAddressThatAccepts) {
  // The asterisk is read as every loopback address by some resolvers.
  std::string name = "localhost";
  if (streamAddresses(name, "0").size() < 2 && streamAddresses("*", "0").size() > 1)
    name = "*";
  std::vector<Address> addresses = streamAddresses(name, "0");
  int tried = 0;
  for (Address& accepting : addresses) {
    Listener listener(accepting);
    if (!listener.bound()) // listed by the resolver, but not an address of this machine
      continue;
    ++tried;
    listener.acceptConnections();
    std::vector<std::unique_ptr<Listener>> refusing;
    for (const Address& other : streamAddresses(name, listener.port()))
      refusing.push_back(std::make_unique<Listener>(other));
    for (const std::string& port : {listener.port(), "0" + listener.port()}) {
      const int handle = ConnectTo(name, port);
      ASSERT_GT(handle, 2);
      const Socket client(static_cast<Native>(handle)), server = listener.accept();
      EXPECT_FALSE(isInherited(client));
      EXPECT_TRUE(client.reaches(server) && server.reaches(client));
    }
  }
  EXPECT_GT(tried, 0);
}

TEST(Socket, HandlesOfAProcess) {
  Listener listening;
  const Listener refusing;
  listening.acceptConnections();
  const std::string refused = "URL: could not open valid connection.\nhandle: none\n";
  const ProbeOptions closed = {.streams = {{0, ""}}};
  EXPECT_EQ(outputOf("connect 127.0.0.1 " + refusing.port()), refused + "standard input: open\n");
  EXPECT_EQ(probe("connect 127.0.0.1 " + refusing.port(), closed).out,
            refused + "standard input: closed\n");
  // The socket does not become the standard input.
  EXPECT_EQ(probe("connect 127.0.0.1 " + listening.port(), closed).out,
            "handle: connected\nstandard input: closed\n");
#ifndef _WIN32
  EXPECT_EQ(outputOf("connect 127.0.0.1 " + listening.port() + " 3"),
            "HDF5 stream: FAILED to open connection\n" + refused + "standard input: open\n")
      << "with no handle left for a socket";
#endif
  // Nobody can connect to the broadcast address, which the system knows by itself.
  const ProbeResult run = probe("connect 255.255.255.255 9");
  const std::string said = "stream to `255.255.255.255' 9: error code ";
  ASSERT_TRUE(run.out.starts_with(said)) << run.out;
  const int code = std::atoi(run.out.c_str() + said.size());
  EXPECT_NE(code, 0);
  EXPECT_EQ(run.out,
            said + std::to_string(code) + ".\nhandle: unconnected\nstandard input: open\n");
  EXPECT_EQ(run.err,
            "CANNOT connect to HDF5 stream: " + std::system_category().message(code) + "\n");
}

} // namespace
