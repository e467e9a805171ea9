#pragma once

#include <tolvane/Api.hpp>
#include <tolvane/StrongPtr.hpp>

#include <new>
#include <utility>
#include <vector>

/// @file
/// The release of pointers that own one another in long chains, without a stack as deep as the
/// chain. For sources of the library; not part of the public interface.

namespace Tolvane::detail {

/// Drops `pointer`, which a destructor of a `T` owns. What the object behind it owns in the same
/// way is dropped after its destructor, not inside it: by the outermost call on this thread, which
/// returns when all of it is gone.
///
/// No object is touched that a thread might still reach: the chain goes link by link, each when its
/// last strong pointer goes.
template <class T>
TOLVANE_LOCAL void releaseDeep(StrongPtr<T>& pointer) noexcept {
  thread_local std::vector<StrongPtr<T>>* waiting = nullptr;
  if (waiting != nullptr) {
    try {
      waiting->push_back(std::move(pointer));
    } catch (const std::bad_alloc&) {
      pointer.reset(); // A deeper stack is better than a leak or the end of the process.
    }
    return;
  }
  std::vector<StrongPtr<T>> queue;
  waiting = &queue;
  pointer.reset();
  while (!queue.empty()) {
    const StrongPtr<T> next = std::move(queue.back());
    queue.pop_back();
  }
  waiting = nullptr;
}

} // namespace Tolvane::detail
