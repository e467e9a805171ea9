#include "../modules/RegistryModule.hpp"
#include "Probe.hpp"

#include <cstdio>
#include <map>
#include <set>
#include <string>

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
using Module = HMODULE;
Module load(const std::string& path) {
  return LoadLibraryA(path.c_str());
}
bool unload(Module module) {
  return FreeLibrary(module);
}
bool isMapped(const std::string& path) {
  return GetModuleHandleA(path.c_str()) != nullptr;
}
#else
using Module = void*;
Module load(const std::string& path) {
  return dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
}
bool unload(Module module) {
  return dlclose(module) == 0;
}
bool isMapped(const std::string& path) {
  return dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD) != nullptr;
}
#endif

/// Asks both registries and prints what answers, in an order of its own.
void show() {
  const Tolvane::StrongPtr<Tolvane::LoaderParameters> parameters =
      new Tolvane::LoaderParameters({"f"});
  Tolvane::LoaderRegistry<SharedVolume>::load(parameters);
  std::set<std::string> names;
  for (const auto& attempt : parameters->attempts())
    names.insert(attempt.reason);
  for (const auto& [type, creator] : Tolvane::SaveRegistry<SharedVolume>::SaveMethods())
    names.insert(creator->name());
  for (const std::string& name : names)
    std::printf("%s, ", name.c_str());
  std::printf("%s\n", names.empty() ? "none" : "no more");
}

} // namespace

/// Loads and unloads modules, "+path" and "-path", and shows what the registries hold after each.
/// Then asks about types that are new to them.
PROBE_COMMAND(registry_modules) {
  std::map<std::string, Module> modules;
  for (const std::string& step : arguments) {
    const std::string path = step.substr(1);
    if (step[0] == '+') {
      if ((modules[path] = load(path)) == nullptr)
        return 1;
    } else if (!unload(modules[path]) || isMapped(path)) {
      return 2;
    }
    show();
  }
  askAboutForeign(std::make_integer_sequence<int, 200>());
  return 0;
}
