#include <tolvane/Counter.hpp>

namespace Tolvane {

std::mutex& counter_mutex() {
  static std::mutex mutex;
  return mutex;
}

} // namespace Tolvane
