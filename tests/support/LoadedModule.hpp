#pragma once

/// @file
/// A module that is loaded at run time, on either platform. In a header of its own, because
/// programs that do not link the library use it as well.
///
/// @code
/// #include "support/LoadedModule.hpp"
///
/// LoadedModule module(TOLVANE_TEST_MODULE_DIR "/Lingers" TOLVANE_TEST_MODULE_SUFFIX);
/// module.function<void()>("start")();
/// module.unload();
/// assert(!module.isMapped());
/// @endcode

#include <algorithm>
#include <stdexcept>
#include <string>

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#else
#include <dlfcn.h>
#include <fstream>
using HMODULE = void*;
#endif

class LoadedModule {
public:
  /// Loads the file at `path`. @throws std::runtime_error with the system's reason.
  explicit LoadedModule(std::string path) : path_(std::move(path)) {
#ifdef _WIN32
    std::replace(path_.begin(), path_.end(), '/', '\\');
    handle_ = LoadLibraryA(path_.c_str());
    const std::string reason = "error " + std::to_string(GetLastError());
#else
    handle_ = dlopen(path_.c_str(), RTLD_NOW | RTLD_LOCAL);
    const std::string reason = handle_ ? "" : dlerror();
#endif
    if (!handle_)
      throw std::runtime_error(path_ + ": " + reason);
  }

  LoadedModule(const LoadedModule&) = delete;
  LoadedModule& operator=(const LoadedModule&) = delete;
  ~LoadedModule() {
    unload();
  }

  /// The function of type `F` that the module exports as `name`.
  /// @throws std::runtime_error when there is none.
  template <class F>
  F* function(const char* name) const {
#ifdef _WIN32
    auto* const found = reinterpret_cast<void*>(GetProcAddress(handle_, name));
#else
    void* const found = dlsym(handle_, name);
#endif
    if (found == nullptr)
      throw std::runtime_error(path_ + ": no " + name);
    return reinterpret_cast<F*>(found);
  }

  /// Lets go of the module; the system unmaps it when nobody else needs it.
  void unload() {
    if (!handle_)
      return;
#ifdef _WIN32
    FreeLibrary(handle_);
#else
    dlclose(handle_);
#endif
    handle_ = nullptr;
  }

  /// Whether the code of the module is in the memory of the process. Who reads debug information
  /// for a call stack may have the file mapped as well, as data.
  bool isMapped() const {
    const std::string name = path_.substr(path_.find_last_of("/\\") + 1);
#ifdef _WIN32
    return GetModuleHandleA(name.c_str()) != nullptr;
#else
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
      if (line.ends_with('/' + name) && line.find(" r-xp ") != std::string::npos)
        return true;
    return false;
#endif
  }

private:
  std::string path_;
  HMODULE handle_ = nullptr;
};
