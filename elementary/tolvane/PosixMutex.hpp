#pragma once

#include <tolvane/Api.hpp>

#include <chrono>
#include <pthread.h>

/// @file
/// The mutex of objects, queues and progress interfaces: a POSIX mutex that tells its owner about a
/// second lock instead of hanging.
///
/// Hosts do not make one themselves: it stands behind Cacheable and CacheQueue, and a class that
/// derives from LoaderProgress locks the one that it has there.

namespace Tolvane::detail {

/// An error-checking POSIX mutex, to be used with `std::lock_guard`, `std::unique_lock` and
/// `std::lock`.
class TOLVANE_API PosixMutex {
public:
  /// Throws std::system_error when the platform has no mutex left.
  PosixMutex();
  ~PosixMutex();

  PosixMutex(const PosixMutex&) = delete;
  PosixMutex& operator=(const PosixMutex&) = delete;

  /// Waits for the mutex. Throws std::system_error with the code of the thread library, such as
  /// EDEADLK for a thread that holds it already.
  void lock();

  /// Takes the mutex if it is free.
  bool try_lock() noexcept;

  /// Waits for the mutex for a limited time. Returns whether it was taken; throws as lock() does.
  bool lockWithin(std::chrono::seconds time);

  void unlock() noexcept;

private:
  pthread_mutex_t mutex_;
};

} // namespace Tolvane::detail
