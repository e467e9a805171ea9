// Messages by glog.
#include "MessagesBench.hpp"

#include <glog/logging.h>

namespace {

[[maybe_unused]] const bool added = [] {
  FLAGS_logtostderr = true;
  bench::addHidden("glog",
                   [](int value) BENCH_INLINE { VLOG(50) << "brick " << value << " was read"; });
  bench::addShown("glog", [](int value) { LOG(INFO) << "brick " << value << " was read"; });
  return true;
}();

} // namespace
