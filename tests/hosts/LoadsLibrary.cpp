// Loads the library at run time, uses it by name and through a module, and unloads both:
//
//   LoadsLibrary LIBRARY MODULE unload|unload_before_thread|stay

#include "../support/LoadedModule.hpp"

#include <cstdio>
#include <filesystem>
#include <future>
#include <thread>

#if defined(__SANITIZE_ADDRESS__)
// What the library never destroys is out of reach once it is gone.
extern "C" const char* __lsan_default_options();
extern "C" const char* __lsan_default_options() {
  return "detect_leaks=0";
}
#endif

namespace fs = std::filesystem;

// Whether the log of the library is still open.
static bool isLogOpen() {
  std::error_code error;
#ifdef _WIN32
  // A file that is open cannot be renamed.
  fs::rename("Irregularities.log", "moved", error);
  if (!error)
    fs::rename("moved", "Irregularities.log");
  return static_cast<bool>(error);
#else
  for (const auto& descriptor : fs::directory_iterator("/proc/self/fd"))
    if (fs::read_symlink(descriptor, error).filename() == "Irregularities.log")
      return true;
  return false;
#endif
}

static void use(const LoadedModule& library, const LoadedModule& module) {
  std::puts(library.function<const char*()>("_ZN7Tolvane26getLastKnownSourceCodeLineEv")());
  module.function<void(const char*)>("use")("used late");
  module.function<void()>("linger")();
}

int main(int, char** argv) {
  const std::string how = argv[3];
  if (how == "stay") {
    static const LoadedModule &library = *new LoadedModule(argv[1]),
                              &module = *new LoadedModule(argv[2]);
    use(library, module);
    return 0;
  }
  for (const std::string round : {"0", "1"}) {
    LoadedModule library(argv[1]), module(argv[2]);
    std::promise<void> used, gone;
    std::thread thread([&] {
      use(library, module);
      used.set_value();
      if (how == "unload_before_thread")
        gone.get_future().wait();
    });
    used.get_future().wait();
    if (how == "unload")
      thread.join();
    module.unload();
    library.unload();
    std::printf("mapped: %d %d\nopen: %d\n", module.isMapped(), library.isMapped(), isLogOpen());
    gone.set_value();
    if (thread.joinable())
      thread.join();
    for (const char* name : {"Irregularities.log", "used.txt"})
      fs::rename(name, round + name);
  }
  return 0;
}
