#pragma once

#include <tolvane/Api.hpp>

#include <chrono>
#include <pthread.h>

/// @file
/// The mutex of objects, queues and progress interfaces: a POSIX mutex that may tell its owner
/// about a second lock instead of hanging.
///
/// Hosts do not make one themselves: it stands behind Cacheable and CacheQueue, and a class that
/// derives from LoaderProgress locks the one that it has there.

namespace Tolvane::detail {

/// A POSIX mutex, to be used with `std::lock_guard`, `std::unique_lock` and `std::lock`.
class TOLVANE_API PosixMutex {
public:
  /// What happens to a thread that locks what it holds already.
  enum class Kind {
    ErrorChecking, ///< It is told so by an exception.
    Plain,         ///< It hangs; locking is cheaper.
  };

  /// Throws std::system_error when the platform has no mutex left.
  explicit PosixMutex(Kind kind = Kind::ErrorChecking);
  ~PosixMutex() { pthread_mutex_destroy(&mutex_); }

  PosixMutex(const PosixMutex&) = delete;
  PosixMutex& operator=(const PosixMutex&) = delete;

  /// Waits for the mutex. Throws std::system_error with the code of the thread library, such as
  /// EDEADLK for a thread that holds it already.
  void lock() {
    if (IsWatched || !try_lock()) {
      waitAndLock();
    }
  }

  /// Takes the mutex if it is free.
  bool try_lock() noexcept { return pthread_mutex_trylock(&mutex_) == 0; }

  /// Waits for the mutex for a limited time. Returns whether it was taken; throws as lock() does.
  bool lockWithin(std::chrono::seconds time) { return (!IsWatched && try_lock()) || wait(time); }

  void unlock() noexcept { pthread_mutex_unlock(&mutex_); }

private:
  /// Whether the thread sanitizer looks on. Its search for deadlocks takes a mutex that was tried
  /// for one that nobody would wait for, and so must see the locks as what they are.
#if defined(__SANITIZE_THREAD__)
  static constexpr bool IsWatched = true;
#elif defined(__has_feature)
  static constexpr bool IsWatched = __has_feature(thread_sanitizer);
#else
  static constexpr bool IsWatched = false;
#endif

  void waitAndLock();
  bool wait(std::chrono::seconds time);

  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

} // namespace Tolvane::detail
