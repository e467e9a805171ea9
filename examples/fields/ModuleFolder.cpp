#include "ModuleFolder.hpp"

#include "Refusal.hpp"

#include <tolvane/Verbose.hpp>

#include <algorithm>
#include <filesystem>

#if defined(_WIN32)
#include <system_error>
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace fields {
namespace {

#if defined(_WIN32)
constexpr const char* Suffix = ".dll";

bool load(const std::string& path) {
  SetErrorMode(SEM_FAILCRITICALERRORS); // no window that waits for somebody
  return LoadLibraryA(path.c_str()) != nullptr;
}

std::string loadError() {
  return std::system_category().message(static_cast<int>(GetLastError()));
}
#else
constexpr const char* Suffix = ".so";

bool load(const std::string& path) {
  return dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL) != nullptr;
}

std::string loadError() {
  return dlerror();
}
#endif

} // namespace

ModuleFolder::ModuleFolder(const std::string& folder) {
  std::error_code error;
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    if (entry.path().extension() == Suffix) {
      files.push_back(entry.path());
    }
  }
  if (error) {
    throw Refusal(folder + ": there is no such folder of modules; name it with --modules");
  }
  std::sort(files.begin(), files.end());
  for (const std::filesystem::path& file : files) {
    if (load(file.string())) {
      TOLVANE_VERBOSE_DOMAIN(3, "Fields") << "module " << file.string();
      names_.push_back(file.stem().string());
    } else {
      leftOut_.emplace_back(file.filename().string(), loadError());
    }
  }
}

} // namespace fields
