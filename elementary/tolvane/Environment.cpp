#include <tolvane/Environment.hpp>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <stdexcept>

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <direct.h>
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace Tolvane {
namespace {

#ifdef _WIN32
constexpr char pathSeparator = '\\';
#else
constexpr char pathSeparator = '/';
#endif

template <typename Integer>
Integer truncate(double value) {
  using Limits = std::numeric_limits<Integer>;
  if (std::isnan(value))
    return 0;
  // Powers of two are exact as double, the largest 64-bit integer itself is not.
  const double bound = std::ldexp(1.0, Limits::digits);
  if (value >= bound)
    return Limits::max();
  if (value < -bound)
    return Limits::min();
  return static_cast<Integer>(value);
}

bool listingIsOn() {
  static const bool on = [] {
    const char* value = std::getenv("SHOW_ENVIRONMENT_CONTROL_VARIABLES");
    return value && truncate<int>(std::atof(value)) != 0;
  }();
  return on;
}

const char* readVariable(const char* name, const char* description) {
  if (description && listingIsOn())
    std::printf("%s: %s\n", name, description);
  return std::getenv(name);
}

std::string executablePath() {
#ifdef _WIN32
  char path[MAX_PATH];
  const DWORD length = GetModuleFileNameA(nullptr, path, MAX_PATH);
  return {path, length};
#else
  // The link tells its length nowhere beforehand; a full buffer may hold a cut path.
  std::string path(256, '\0');
  for (;;) {
    const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
    if (length < 0)
      return {};
    if (static_cast<std::size_t>(length) < path.size()) {
      path.resize(static_cast<std::size_t>(length));
      return path;
    }
    path.resize(2 * path.size());
  }
#endif
}

} // namespace

int getEnvInteger(const char* name, const char* description, int defaultValue) {
  const char* value = readVariable(name, description);
  return value ? truncate<int>(std::atof(value)) : defaultValue;
}

long getEnvLong(const char* name, const char* description) {
  const char* value = readVariable(name, description);
  return value ? truncate<long>(std::atof(value)) : 0;
}

double getEnvFloat(const char* name, const char* description, double defaultValue) {
  const char* value = readVariable(name, description);
  return value ? std::atof(value) : defaultValue;
}

std::string getEnvString(const char* name, const char* description) {
  const char* value = readVariable(name, description);
  return value ? std::string(value) : std::string();
}

bool setEnv(const char* name, const std::string& value, bool overwrite) {
  if (!overwrite && std::getenv(name))
    return false;
#ifdef _WIN32
  _putenv((std::string(name) + "=" + value).c_str());
#else
  // Unlike putenv, setenv keeps a copy of its own.
  setenv(name, value.c_str(), 1);
#endif
  return true;
}

std::string getExecutableDir() {
  std::string path = executablePath();
  const std::size_t separator = path.rfind(pathSeparator);
  if (separator != std::string::npos)
    path.resize(separator);
  return path;
}

std::string getCurrentDir() {
  constexpr int size = 260;
  char buffer[size];
#ifdef _WIN32
  const char* end = _getcwd(buffer, size);
#else
  const char* end = getcwd(buffer, size);
#endif
  // Callers have always been given the text between the buffer's start and the pointer returned:
  // nothing, or a string of impossible length.
  if (!end)
    throw std::length_error("basic_string::_M_create");
  return {};
}

} // namespace Tolvane
