#include "../support/LoadedModule.hpp"
#include "Probe.hpp"

#include <tolvane/Typename.hpp>

#include <cstdio>
#include <thread>

// Stays loaded until it is unloaded by command, also while the process ends.
static LoadedModule* module;

PROBE_COMMAND(load_module) {
  module = new LoadedModule(arguments.at(0));
  return 0;
}

PROBE_COMMAND(unload_module) {
  module->unload();
  return module->isMapped() ? 1 : 0;
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
