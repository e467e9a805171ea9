// Loads the module named by its argument, and with it the library, and calls it once while both
// work and once when the library has been cleaned up at the end of the process: an exit handler
// that is older than the library runs after it.

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#else
#include <dlfcn.h>
#endif

#include <cstdlib>

namespace {

void (*report)(const char* when) = nullptr;

bool load(const char* path) {
#ifdef _WIN32
  const HMODULE module = LoadLibraryA(path);
  void* const found = module ? reinterpret_cast<void*>(GetProcAddress(module, "report")) : nullptr;
#else
  void* const module = dlopen(path, RTLD_NOW);
  void* const found = module ? dlsym(module, "report") : nullptr;
#endif
  report = reinterpret_cast<void (*)(const char*)>(found);
  return report != nullptr;
}

} // namespace

int main(int argc, char** argv) {
  std::atexit([] {
    if (report)
      report("late");
  });
  if (argc != 2 || !load(argv[1]))
    return 1;
  report("early");
  return 0;
}
