#include <tolvane/LoaderBase.hpp>
#include <tolvane/Typename.hpp>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <typeinfo>
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
  // tolower() takes the values of unsigned characters only.
  const auto matches = [](char c, char lower) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c))) == lower;
  };
  return std::ranges::all_of(filenames, [&](const std::string& name) {
    return name.size() >= 3 && std::ranges::any_of(extensions, [&](const std::string& extension) {
             return extension.size() <= name.size() &&
                    std::equal(name.end() - static_cast<std::ptrdiff_t>(extension.size()),
                               name.end(), extension.begin(), matches);
           });
  });
}

const std::string& LoaderBase::className() const {
  // Not call_once: where its function throws, the next call waits for ever on Windows.
  const std::lock_guard lock(nameMutex_);
  if (name_.empty()) {
    name_ = Typename(typeid(*this));
  }
  return name_;
}

} // namespace Tolvane
