// Loads the library at run time, uses it by name and through a module, and unloads both:
//
//   LoadsLibrary LIBRARY MODULE unload|unload_before_thread|stay

#include "../support/LoadedModule.hpp"

#include <cstdio>
#include <filesystem>
#include <future>
#include <string>
#include <thread>

#if defined(__SANITIZE_ADDRESS__)
// What the library never destroys is out of reach once it is gone.
extern "C" const char* __lsan_default_options();
extern "C" const char* __lsan_default_options() {
  return "detect_leaks=0";
}
#endif

namespace {

const char* const logName = "Irregularities.log";

// Whether a file of the library is still open.
bool isOpen(const std::string& name) {
#ifdef _WIN32
  // A file that is open cannot be renamed.
  std::error_code error;
  std::filesystem::rename(name, name + ".moved", error);
  if (error)
    return true;
  std::filesystem::rename(name + ".moved", name);
  return false;
#else
  for (const auto& descriptor : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code error;
    if (std::filesystem::read_symlink(descriptor, error).filename() == name)
      return true;
  }
  return false;
#endif
}

void use(const LoadedModule& library, const LoadedModule& module) {
  const auto sourceLine =
      library.function<const char*()>("_ZN7Tolvane26getLastKnownSourceCodeLineEv");
  std::printf("%s\n", sourceLine());
  if (module.function<int()>("useLibrary")() != 0)
    throw std::runtime_error("useLibrary failed");
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 4)
    return 2;
  const std::string how = argv[3];
  try {
    if (how == "stay") {
      static const LoadedModule& library = *new LoadedModule(argv[1]);
      static const LoadedModule& module = *new LoadedModule(argv[2]);
      use(library, module);
      return 0;
    }
    for (int round = 0; round < 2; ++round) {
      LoadedModule library(argv[1]), module(argv[2]);
      std::promise<void> used, gone;
      const auto useAndWait = [&](bool wait) {
        use(library, module);
        used.set_value();
        if (wait)
          gone.get_future().wait();
      };
      std::thread thread(useAndWait, how == "unload_before_thread");
      used.get_future().wait();
      if (how == "unload")
        thread.join();
      module.unload();
      library.unload();
      std::printf("mapped: %d %d\nopen: %d\n", module.isMapped(), library.isMapped(),
                  isOpen(logName));
      gone.set_value();
      if (thread.joinable())
        thread.join();
      for (const char* name : {logName, "used.txt"})
        std::filesystem::rename(name, std::to_string(round) + name);
    }
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
  }
  return 0;
}
