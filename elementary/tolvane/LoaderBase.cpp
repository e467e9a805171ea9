#include <tolvane/LoaderBase.hpp>

#include <algorithm>
#include <cctype>
#include <utility>

namespace Tolvane {

LoaderBase::ldrpar::~ldrpar() = default;

LoaderBase::LoaderBase(std::list<std::string> extensions) : extensions_(std::move(extensions)) {}

LoaderBase::~LoaderBase() = default;

void LoaderBase::setExtensions(std::list<std::string> extensions) {
  extensions_ = std::move(extensions);
}

bool LoaderBase::checkIfAllExtensionsAreSupported(const std::list<std::string>& filenames,
                                                  const std::list<std::string>& extensions) {
  return std::ranges::all_of(filenames, [&](std::string name) {
    // tolower() takes the values of unsigned characters only.
    std::ranges::transform(name, name.begin(), [](char c) {
      return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    });
    return name.size() >= 3 && std::ranges::any_of(extensions, [&](const std::string& extension) {
             return name.ends_with(extension);
           });
  });
}

} // namespace Tolvane
