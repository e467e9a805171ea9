// Loads the module named by its argument, and with it the library, and calls it once while both
// work and once when the library has been cleaned up at the end of the process: an exit handler
// that is older than the library runs after it.

#include "../support/LoadedModule.hpp"

#include <cstdlib>

static LoadedModule* module = nullptr; // stays to the very end
static void (*use)(const char* when) = nullptr;

int main(int, char** argv) {
  std::atexit([] { use("late"); });
  module = new LoadedModule(argv[1]);
  use = module->function<void(const char*)>("use");
  use("early");
  module->function<void()>("linger")();
  return 0;
}
