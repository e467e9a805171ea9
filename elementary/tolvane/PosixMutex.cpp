#include <tolvane/PosixMutex.hpp>
#include <tolvane/SpinInternal.hpp>
#include <tolvane/UnloadLockInternal.hpp>

#include <cerrno>
#include <ctime>
#include <system_error>

namespace Tolvane::detail {

namespace {

void check(int code, const char* what) {
  if (code != 0) {
    throw std::system_error(code, std::generic_category(), what);
  }
}

} // namespace

PosixMutex::PosixMutex(Kind kind) {
  if (kind == Kind::Plain) {
    return;
  }
  pthread_mutexattr_t attributes;
  check(pthread_mutexattr_init(&attributes), "pthread_mutexattr_init");
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
  const int code = pthread_mutex_init(&mutex_, &attributes);
  pthread_mutexattr_destroy(&attributes);
  check(code, "pthread_mutex_init");
}

void PosixMutex::waitAndLock() {
  if (otherThreadsAreGone()) {
    try_lock(); // Its holder may be no more, and nobody else is left to be kept out.
    return;
  }
  if (!IsWatched && spin([this] { return try_lock(); })) {
    return;
  }
  check(pthread_mutex_lock(&mutex_), "pthread_mutex_lock");
}

bool PosixMutex::wait(std::chrono::seconds time) {
  if (otherThreadsAreGone()) {
    lock();
    return true;
  }
  if (!IsWatched && spin([this] { return try_lock(); })) {
    return true;
  }
  timespec until{};
  clock_gettime(CLOCK_REALTIME, &until);
  until.tv_sec += static_cast<decltype(until.tv_sec)>(time.count());
  const int code = pthread_mutex_timedlock(&mutex_, &until);
  if (code == ETIMEDOUT) {
    return false;
  }
  check(code, "pthread_mutex_timedlock");
  if (IsWatched) {
    unlock(); // A lock with a time limit counts as tried, too.
    lock();
  }
  return true;
}

} // namespace Tolvane::detail
