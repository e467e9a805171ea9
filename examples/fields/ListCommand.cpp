#include "ColourMap.hpp"
#include "Commands.hpp"
#include "DatasetFile.hpp"
#include "data/Joined.hpp"
#include "data/PictureSaver.hpp"

#include <tolvane/Chunk.hpp>
#include <tolvane/LoaderRegistry.hpp>
#include <tolvane/SaveRegistry.hpp>

#include <iostream>

namespace fields {
namespace {

void listModules(const ModuleFolder& modules) {
  std::cout << "modules: " << joined(modules.names()) << "\n";
  for (const auto& loader : Tolvane::LoaderRegistryBase::loaders(typeid(Dataset))) {
    std::cout
        << "  reads " << joined(loader->extensions()) << ": "
        << Tolvane::chunkValue<std::string>(loader->attributes().getAttribute("about")).value_or("")
        << "\n";
  }
  for (const auto& [type, creator] : Tolvane::SaveRegistry<Picture>::SaveMethods()) {
    if (const Tolvane::StrongPtr<PictureFormat, Tolvane::SaveInterfaceCreatorBase> format{
            creator}) {
      std::cout << "  saves " << joined(format->extensions()) << ": " << format->description()
                << "\n";
    }
  }
  std::cout << "colour maps: " << joined(ColourMap::names()) << "\n";
}

void listAxis(const AxisPtr& axis, const char* what) {
  if (axis) {
    std::cout << "    " << what << "  " << axis->size() << " cells of " << axis->name << ", "
              << axis->label(axis->values.front()) << " to " << axis->label(axis->values.back())
              << axis->unitBehind() << "\n";
  }
}

} // namespace

void listCommand(const Options& options, const ModuleFolder& modules,
                 const ProgressBarPtr& progress) {
  options.requireWords(1);
  if (!options.hasFile()) {
    listModules(modules);
    return;
  }
  const DatasetFile file(options.file(), progress);
  std::cout << options.file() << "\n";
  for (const auto& attempt : file.attempts) {
    const bool loaded = attempt.outcome == Tolvane::LoaderParameters::Attempt::Outcome::Loaded;
    std::cout << (loaded ? "  taken by " : "  refused by ") << attempt.loader
              << (loaded ? "" : ": " + attempt.reason) << "\n";
  }
  for (const Variable& variable : file.dataset->variables()) {
    std::cout << "  " << variable.name << "  " << variable.title
              << (variable.unit.empty() ? "" : " (" + variable.unit + ")") << ", "
              << bytesText(Field::bytesFor(variable, variable.levels())) << " a time step\n";
    listAxis(variable.x, "x   ");
    listAxis(variable.y, "y   ");
    listAxis(variable.z, "z   ");
    listAxis(variable.t, "time");
  }
}

} // namespace fields
