// Messages by spdlog.
#include "MessagesBench.hpp"

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

namespace {

std::shared_ptr<spdlog::logger> make(const std::string& name) {
  auto made = spdlog::stderr_logger_mt(name);
  made->flush_on(spdlog::level::trace);
  return made;
}

/// As it comes, with time stamps.
spdlog::logger& logger() {
  static auto& the = *new auto(make("bench"));
  return *the;
}

spdlog::logger& bare() {
  static auto& the = *new auto([] {
    auto made = make("bare");
    made->set_pattern("%v");
    return made;
  }());
  return *the;
}

[[maybe_unused]] const bool added = [] {
  bench::addHidden("spdlog",
                   [](int value) BENCH_INLINE { logger().debug("brick {} was read", value); });
  bench::addShown("spdlog", [](int value) { logger().info("brick {} was read", value); });
  bench::addShown("spdlog, text only", [](int value) { bare().info("brick {} was read", value); });
  return true;
}();

} // namespace
