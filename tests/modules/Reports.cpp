#include <tolvane/Irregularity.hpp>
#include <tolvane/Verbose.hpp>

#ifdef _WIN32
#define EXPORTED __declspec(dllexport)
#else
#define EXPORTED __attribute__((visibility("default")))
#endif

static const struct Last {
  ~Last() { TOLVANE_IRREGULARITY("last"); }
} last;

extern "C" EXPORTED void report(const char* when);

void report(const char* when) {
  TOLVANE_IRREGULARITY(when);
  TOLVANE_VERBOSE_DOMAIN(0, when) << when;
}
