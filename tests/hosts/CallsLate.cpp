// Loads the module named by its argument, and with it the library, and calls it once while both
// work and once when the library has been cleaned up at the end of the process: an exit handler
// that is older than the library runs after it.

#include "../support/LoadedModule.hpp"

#include <cstdlib>

static LoadedModule* module = nullptr; // stays to the very end
static void (*report)(const char* when) = nullptr;

int main(int, char** argv) {
  std::atexit([] { report("late"); });
  module = new LoadedModule(argv[1]);
  report = module->function<void(const char*)>("report");
  report("early");
  return 0;
}
