#pragma once

#include <tolvane/CacheQueue.hpp>

/// @file
/// How a thread takes a queue. Internal to the library, not installed.

namespace Tolvane {

/// Holds the mutex of a queue and remembers, per thread, which queues it holds.
///
/// A thread that holds none waits. One that holds a queue runs the code of a creator or of an
/// object's memsize(): it only tries to take another one, because the holder of that might be
/// trying to take the first.
class CacheQueue::Lock {
public:
  /// Throws std::system_error when this thread holds the queue already. With `mayWait` it waits
  /// also inside of another queue: for the side queues, which are always taken after their primary
  /// queue.
  Lock(CacheQueue& queue, bool mayWait);
  ~Lock();

  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  /// Whether the queue is held; false when it is busy.
  explicit operator bool() const noexcept { return owns_; }

  static bool heldByThisThread(const CacheQueue& queue) noexcept;

  /// Whether this thread holds any queue.
  static bool anyHeldByThisThread() noexcept { return innermost != nullptr; }

private:
  [[gnu::tls_model("initial-exec")]] static constinit thread_local Lock* innermost;

  CacheQueue& queue_;
  Lock* outer_;
  bool owns_;
};

} // namespace Tolvane
