#include "DatasetFile.hpp"

#include "Refusal.hpp"
#include "data/DatasetLoader.hpp"
#include "data/Joined.hpp"

#include <tolvane/LoaderRegistry.hpp>
#include <tolvane/Typename.hpp>

#include <filesystem>
#include <set>

namespace fields {
namespace {

/// The readable classes of the loaders that know the extension of a file.
std::set<std::string> loadersFor(const std::string& path) {
  std::set<std::string> names;
  for (const auto& held : Tolvane::LoaderRegistryBase::loaders(typeid(Dataset))) {
    const Tolvane::LoaderBase& loader = *held;
    if (Tolvane::LoaderBase::checkIfAllExtensionsAreSupported({path}, loader.extensions())) {
      names.insert(Tolvane::Typename(typeid(loader)));
    }
  }
  return names;
}

} // namespace

DatasetFile::DatasetFile(const std::string& path, const ProgressPtr& progress) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) {
    throw Refusal(path + ": there is no such file; give the path of one");
  }
  const Tolvane::StrongPtr<Tolvane::LoaderParameters> parameters =
      new Tolvane::LoaderParameters({path});
  parameters->addInterface(progress);
  DatasetResult result;
  const bool loaded = Tolvane::LoaderRegistry<Dataset>::load(parameters, &result);
  attempts = parameters->attempts();
  dataset = result.dataset;
  if (loaded) {
    return;
  }
  const std::set<std::string> able = loadersFor(path);
  if (able.empty()) {
    const auto all = Tolvane::LoaderRegistry<Dataset>::getSupportedExtensions();
    throw Refusal(path + ": no loader reads such a file; give one that ends with " +
                  joined(std::set<std::string>(all.begin(), all.end())));
  }
  for (const auto& attempt : attempts) {
    if (able.contains(attempt.loader)) {
      throw Refusal(path + ": " + attempt.reason);
    }
  }
}

} // namespace fields
