#include <tolvane/Ageable.hpp>

namespace Tolvane {

constinit std::atomic<long long> Ageable::GlobalTime{1};

const long long& Ageable::InfinitelyNew() noexcept {
  static constexpr long long Value = std::numeric_limits<long long>::max() - 1;
  return Value;
}

std::string Ageable::str() const {
  if (stamp_ == Ooooold) {
    return "t=-infinitely old";
  }
  if (stamp_ == InfinitelyNew()) {
    return "t=+infinitely new";
  }
  return "t=" + std::to_string(stamp_);
}

} // namespace Tolvane
