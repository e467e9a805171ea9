#include "Probe.hpp"

#include <tolvane/Environment.hpp>
#include <tolvane/Exception.hpp>
#include <tolvane/SystemMemory.hpp>
#include <tolvane/Typename.hpp>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <stdexcept>

namespace {

struct NamedAtLoadTime {};
const Tolvane::DefineTypename<NamedAtLoadTime> atLoadTime("named while loading");

const std::type_info& typeOf(const std::string& key) {
  static const std::map<std::string, const std::type_info*> types = {
      {"bool", &typeid(bool)},
      {"int", &typeid(int)},
      {"double", &typeid(double)},
      {"unsigned", &typeid(unsigned)},
      {"named", &typeid(NamedAtLoadTime)}};
  return *types.at(key);
}

const char* descriptionOf(const std::string& argument) {
  return argument == "-" ? nullptr : argument.c_str();
}

} // namespace

PROBE_COMMAND(env_integer) {
  std::printf("%d\n",
              Tolvane::getEnvInteger(arguments.at(0).c_str(), descriptionOf(arguments.at(1)),
                                     std::stoi(arguments.at(2))));
  return 0;
}

PROBE_COMMAND(env_long) {
  std::printf("%ld\n",
              Tolvane::getEnvLong(arguments.at(0).c_str(), descriptionOf(arguments.at(1))));
  return 0;
}

PROBE_COMMAND(env_float) {
  std::printf("%g\n", Tolvane::getEnvFloat(arguments.at(0).c_str(), descriptionOf(arguments.at(1)),
                                           std::stod(arguments.at(2))));
  return 0;
}

PROBE_COMMAND(env_string) {
  const std::string value =
      Tolvane::getEnvString(arguments.at(0).c_str(), descriptionOf(arguments.at(1)));
  std::printf("%s\n", value.c_str());
  return 0;
}

PROBE_COMMAND(env_set) {
  Tolvane::setEnv(arguments.at(0).c_str(), arguments.at(1), true);
  return 0;
}

PROBE_COMMAND(executable_dir) {
  std::printf("%s\n", Tolvane::getExecutableDir().c_str());
  return 0;
}

PROBE_COMMAND(current_dir) {
  try {
    std::printf("[%s]\n", Tolvane::getCurrentDir().c_str());
  } catch (const std::length_error& e) {
    std::printf("length_error %s\n", e.what());
  }
  return 0;
}

PROBE_COMMAND(install_terminate_handler) {
  const bool first =
      Tolvane::Exception::setTerminateHandler() != Tolvane::Exception::terminateHandler;
  const bool second =
      Tolvane::Exception::setTerminateHandler() == Tolvane::Exception::terminateHandler;
  return first && second ? 0 : 1;
}

PROBE_COMMAND(throw_uncaught) {
  throw Tolvane::Exception("nobody catches this", __FILE__, __LINE__);
}

PROBE_COMMAND(null_ptr_exception) {
  const Tolvane::NullPtrException exception(typeOf(arguments.at(0)), typeOf(arguments.at(1)));
  return &exception.type() == &typeOf(arguments.at(0)) ? 0 : 1;
}

PROBE_COMMAND(type_names) {
  for (const std::string& key : arguments)
    std::printf("%s\n", Tolvane::Typename(typeOf(key)).c_str());
  return 0;
}

PROBE_COMMAND(set_type_name) {
  Tolvane::DefineTypenameBase::setTypename(typeOf(arguments.at(0)), arguments.at(1));
  return 0;
}

PROBE_COMMAND(type_ids) {
  for (const std::string& key : arguments)
    std::printf("%lld\n", static_cast<long long>(Tolvane::getTypeID(typeOf(key))));
  return 0;
}

PROBE_COMMAND(relative_memory_before_baseline) {
  Tolvane::getMemUsage(); // the first query may allocate
  const Tolvane::memsize_t usage = Tolvane::getMemUsage();
  const long long relative = Tolvane::getRelativeMemUsage();
  std::printf("%llu %lld\n", Tolvane::getInitialMemUsage(),
              relative - static_cast<long long>(usage));
  return 0;
}

PROBE_COMMAND(immediate_exit) {
  std::atexit([] { std::fprintf(stderr, "a handler ran\n"); });
  // A file of its own: the thread sanitizer flushes the standard streams at every kind of exit.
  static std::ofstream file(arguments.at(1));
  file << "not flushed";
  Tolvane::ImmediateExitus(std::stoi(arguments.at(0)));
}
