// Diagnostic messages, shown and not shown, beside the bare system calls.
#include "MessagesBench.hpp"

#include <tolvane/Verbose.hpp>

#include <atomic>
#include <cstdio>
#include <unistd.h>

namespace {

std::atomic<int> shownLevel{0};

[[maybe_unused]] const bool added = [] {
  bench::addHidden("tolvane",
                   [](int value) { TOLVANE_VERBOSE(50) << "brick " << value << " was read"; });
  bench::addHidden("floor, an if", [](int value) {
    if (shownLevel.load(std::memory_order_relaxed) > 50) {
      std::fprintf(stderr, "brick %d was read\n", value);
    }
  });
  bench::addShown("tolvane",
                  [](int value) { TOLVANE_VERBOSE(0) << "brick " << value << " was read"; });
  bench::addShown("fprintf with fflush", [](int value) {
    std::fprintf(stderr, "brick %d was read\n", value);
    std::fflush(stderr);
  });
  bench::addShown("floor, one write", [](int value) {
    char text[64];
    const int length = std::snprintf(text, sizeof text, "brick %d was read\n", value);
    benchmark::DoNotOptimize(::write(STDERR_FILENO, text, static_cast<std::size_t>(length)));
  });
  return true;
}();

} // namespace
