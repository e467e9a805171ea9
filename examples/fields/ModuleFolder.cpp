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

void* load(const std::string& path) {
  SetErrorMode(SEM_FAILCRITICALERRORS); // no window that waits for somebody
  return reinterpret_cast<void*>(LoadLibraryA(path.c_str()));
}

std::string loadError() {
  return std::system_category().message(static_cast<int>(GetLastError()));
}

void unload(void* handle) {
  FreeLibrary(reinterpret_cast<HMODULE>(handle));
}
#else
constexpr const char* Suffix = ".so";

void* load(const std::string& path) {
  return dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
}

std::string loadError() {
  return dlerror();
}

void unload(void* handle) {
  dlclose(handle);
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
    if (void* const handle = load(file.string())) {
      TOLVANE_VERBOSE_DOMAIN(3, "Fields") << "module " << file.string();
      handles_.push_back(handle);
      names_.push_back(file.stem().string());
    } else {
      leftOut_.emplace_back(file.filename().string(), loadError());
    }
  }
}

ModuleFolder::~ModuleFolder() {
  for (auto handle = handles_.rbegin(); handle != handles_.rend(); ++handle) {
    unload(*handle);
  }
}

} // namespace fields
