#include "CacheFiguresInternal.hpp"

namespace Tolvane::detail {

CacheFigures defaultCacheFigures() noexcept {
  return {};
}

CacheFigures cacheFigures(const Cache&) {
  return {};
}

CacheFigures cacheFigures(const WeakPtr<Cache, CacheBase>&) {
  return {};
}

} // namespace Tolvane::detail
