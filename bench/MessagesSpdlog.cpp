// Messages by spdlog.
#include "MessagesBench.hpp"

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

namespace {

spdlog::logger& logger() {
  static auto& the = *new std::shared_ptr<spdlog::logger>([] {
    auto made = spdlog::stderr_logger_mt("bench");
    made->flush_on(spdlog::level::trace);
    made->set_pattern("%v"); // no time stamp, as ours have none
    return made;
  }());
  return *the;
}

[[maybe_unused]] const bool added = [] {
  bench::addHidden("spdlog",
                   [](int value) BENCH_INLINE { logger().debug("brick {} was read", value); });
  bench::addShown("spdlog", [](int value) { logger().info("brick {} was read", value); });
  return true;
}();

} // namespace
