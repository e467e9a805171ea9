// A module that uses the whole library when it is told to, and once more in the destructor of a
// static object. It names one of its types for as long as it is loaded.

#include "../support/Lingering.hpp"

#ifdef _WIN32
#define EXPORTED extern "C" __declspec(dllexport)
#else
#define EXPORTED extern "C" __attribute__((visibility("default")))
#endif

static const DefineTypename<Lingering> nameOfType("the module's type");
static Lingering last;

EXPORTED void use(const char* when);
EXPORTED void use(const char* when) {
  useAll(when);
}

EXPORTED void linger();
EXPORTED void linger() {
  last.begin("last");
}
