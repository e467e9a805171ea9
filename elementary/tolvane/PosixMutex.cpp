#include <tolvane/PosixMutex.hpp>
#include <tolvane/UnloadLockInternal.hpp>

#include <cerrno>
#include <ctime>
#include <system_error>

namespace Tolvane::detail {

namespace {

/// The work under a mutex of the library mostly takes less than putting a thread to sleep and
/// waking it up again. A thread that spins looks seldom, some microseconds apart: the holder then
/// does several steps in a row with what it has in the cache of its core.
constexpr int FewestPauses = 64;
constexpr int MostPauses = 512;

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

bool PosixMutex::spin() noexcept {
  for (int pauses = FewestPauses; pauses <= MostPauses; pauses *= 2) {
    for (int i = 0; i < pauses; ++i) {
      __builtin_ia32_pause();
    }
    if (try_lock()) {
      return true;
    }
  }
  return false;
}

void PosixMutex::waitAndLock() {
  if (otherThreadsAreGone()) {
    try_lock(); // Its holder may be no more, and nobody else is left to be kept out.
    return;
  }
  if (!IsWatched && spin()) {
    return;
  }
  check(pthread_mutex_lock(&mutex_), "pthread_mutex_lock");
}

bool PosixMutex::wait(std::chrono::seconds time) {
  if (otherThreadsAreGone()) {
    lock();
    return true;
  }
  if (!IsWatched && spin()) {
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
