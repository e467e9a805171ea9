#include "../modules/RegistryModule.hpp"
#include "../support/LoadedModule.hpp"
#include "Probe.hpp"

#include <cstdio>
#include <map>
#include <memory>
#include <set>

using namespace Tolvane;

/// Loads and unloads modules, "+path" and "-path", and tells after each what answers in the
/// registries, in an order of its own. Then asks about types that are new to them.
PROBE_COMMAND(registry_modules) {
  std::map<std::string, std::unique_ptr<LoadedModule>> modules;
  for (const std::string& step : arguments) {
    const std::string path = step.substr(1);
    if (step[0] == '+')
      modules[path] = std::make_unique<LoadedModule>(path);
    else if (modules[path]->unload(); modules[path]->isMapped())
      return 2;
    const StrongPtr<LoaderParameters> parameters = new LoaderParameters({"f"});
    LoaderRegistry<SharedVolume>::load(parameters);
    std::set<std::string> names;
    for (const auto& attempt : parameters->attempts())
      names.insert(attempt.reason);
    for (const auto& [type, creator] : SaveRegistry<SharedVolume>::SaveMethods())
      names.insert(creator->name());
    for (const std::string& name : names)
      std::printf("%s, ", name.c_str());
    std::printf("%s\n", names.empty() ? "none" : "no more");
  }
  askAboutForeign(std::make_integer_sequence<int, 200>());
  return 0;
}
