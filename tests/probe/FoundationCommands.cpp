#include "Probe.hpp"

#include <tolvane/Cache.hpp>
#include <tolvane/Environment.hpp>
#include <tolvane/Exception.hpp>
#include <tolvane/Socket.hpp>
#include <tolvane/Typename.hpp>
#include <tolvane/Verbose.hpp>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>

#ifdef _WIN32
#include <winsock2.h>
using SocketLength = int;
#else
#include <sys/resource.h>
#include <sys/socket.h>
using SocketLength = socklen_t;
#endif

using namespace Tolvane;
using probe::Arguments;

namespace {

struct NamedAtLoadTime {};
const DefineTypename<NamedAtLoadTime> atLoadTime("named while loading");

const std::type_info& typeOf(const std::string& key) {
  static const std::map<std::string, const std::type_info*> types = {
      {"bool", &typeid(bool)},
      {"int", &typeid(int)},
      {"double", &typeid(double)},
      {"unsigned", &typeid(unsigned)},
      {"named", &typeid(NamedAtLoadTime)}};
  return *types.at(key);
}

const char* describe(int handle) {
  if (handle <= 2)
    return handle == 0 ? "none" : "taken from a standard stream";
#ifdef _WIN32
  const auto native = static_cast<SOCKET>(handle);
#else
  const int native = handle;
#endif
  sockaddr address[8];
  SocketLength length = sizeof address;
  if (getpeername(native, address, &length) == 0)
    return "connected";
  int type = 0;
  length = sizeof type;
  return getsockopt(native, SOL_SOCKET, SO_TYPE, reinterpret_cast<char*>(&type), &length) == 0
             ? "unconnected"
             : "not a socket";
}

// TYPE NAME DESCRIPTION [OTHERWISE]; the description "-" is none.
void readVariable(const Arguments& a) {
  const char *const name = a.at(1).c_str(), *const text = a.at(2) == "-" ? nullptr : a[2].c_str();
  if (a[0] == "integer")
    std::printf("%d\n", getEnvInteger(name, text, std::stoi(a.at(3))));
  else if (a[0] == "long")
    std::printf("%ld\n", getEnvLong(name, text));
  else if (a[0] == "float")
    std::printf("%g\n", getEnvFloat(name, text, std::stod(a.at(3))));
  else
    std::printf("%s\n", getEnvString(name, text).c_str());
}

const probe::Commands commands = {
    {"env", readVariable},
    {"env_set", [](const Arguments& a) { setEnv(a.at(0).c_str(), a.at(1), true); }},
    {"executable_dir", [](const Arguments&) { std::puts(getExecutableDir().c_str()); }},
    {"current_dir",
     [](const Arguments&) {
       try {
         std::printf("[%s]\n", getCurrentDir().c_str());
       } catch (const std::length_error& e) {
         std::printf("length_error %s\n", e.what());
       }
     }},
    {"null_ptr_exception",
     [](const Arguments& a) { NullPtrException(typeOf(a.at(0)), typeOf(a.at(1))); }},
    {"type_names",
     [](const Arguments& a) {
       for (const std::string& key : a)
         std::printf("%s\n", Typename(typeOf(key)).c_str());
     }},
    {"type_ids",
     [](const Arguments& a) {
       for (const std::string& key : a)
         std::printf("%lld\n", static_cast<long long>(getTypeID(typeOf(key))));
     }},
    {"set_type_name",
     [](const Arguments& a) { DefineTypenameBase::setTypename(typeOf(a.at(0)), a.at(1)); }},
    {"type_is_named",
     [](const Arguments& a) {
       std::puts(detail::typeByName(a.at(0)) != typeid(void) ? "1" : "0");
     }},
    // HOST PORT [HOW MANY FILES MAY BE OPEN]
    {"connect",
     [](const Arguments& a) {
#ifndef _WIN32
       rlimit files{};
       getrlimit(RLIMIT_NOFILE, &files);
       const rlimit few{a.size() > 2 ? std::stoul(a[2]) : files.rlim_cur, files.rlim_max};
       setrlimit(RLIMIT_NOFILE, &few);
#endif
       std::printf("handle: %s\n", describe(ConnectTo(a.at(0), a.at(1))));
#ifndef _WIN32
       setrlimit(RLIMIT_NOFILE, &files); // the end of a process may need some
#endif
       std::fgetc(stdin);
       std::printf("standard input: %s\n", std::feof(stdin) ? "open" : "closed");
     }},
};

} // namespace

// [edit]: what the library made of its variables. The message passes the filters by its domain and
// its file name; only with the argument it has the editor opened.
PROBE_COMMAND(settings) {
  int shown = 0;
  for (int bit = 1 << 30; bit > 0; bit /= 2)
    if (VerboseStream::show(shown + bit))
      shown += bit;
  std::printf("shown %d\ntraced %d\n", shown, Cache::verbosity());
  const std::string domain = getEnvString("TOLVANE_VERBOSITY_DOMAINS", nullptr),
                    place = getEnvString("TOLVANE_VERBOSITY_CONSTRAINTS", nullptr);
  const VerboseStream::Indentator section(place.c_str(), 1, "f()", 0, ' ', 0, domain);
  VerboseStream(false, !arguments.empty(), 0, place.c_str(), 1, "f()", "said", domain);
  return 0;
}
