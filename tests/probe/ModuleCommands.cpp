#include "Probe.hpp"

#include <tolvane/Typename.hpp>

#include <cstdio>
#include <thread>

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace {

#ifdef _WIN32
HMODULE module;
#else
void* module;
#endif

} // namespace

PROBE_COMMAND(load_module) {
#ifdef _WIN32
  module = LoadLibraryA(arguments.at(0).c_str());
#else
  module = dlopen(arguments.at(0).c_str(), RTLD_NOW);
#endif
  return module ? 0 : 1;
}

PROBE_COMMAND(unload_module) {
#ifdef _WIN32
  return FreeLibrary(module) ? 0 : 1;
#else
  return dlclose(module);
#endif
}

PROBE_COMMAND(type_is_named) {
  std::printf("%d\n", Tolvane::detail::typeByName(arguments.at(0)) != typeid(void));
  return 0;
}

/// Keeps the table of type names locked most of the time until the process ends.
PROBE_COMMAND(name_types_for_ever) {
  for (int i = 0; i < 2; ++i)
    std::thread([] {
      const std::string names[] = {std::string(100000, 'a'), std::string(100000, 'b')};
      for (int round = 0;; round ^= 1)
        Tolvane::DefineTypenameBase::setTypename(typeid(int), names[round]);
    }).detach();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  return 0;
}
