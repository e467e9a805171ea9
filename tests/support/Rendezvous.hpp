#pragma once

#include <condition_variable>
#include <mutex>

/// Where a fixed number of threads wait for each other, again and again. The barrier of the
/// standard library waits on an atomic, and where GCC 12 has no futex below that a thread now and
/// then sleeps on after the last one has come.
class Rendezvous {
public:
  explicit Rendezvous(int threads) : threads_(threads) {}

  void arrive_and_wait() {
    std::unique_lock lock(mutex_);
    const unsigned round = round_;
    if (++arrived_ == threads_) {
      arrived_ = 0;
      ++round_;
      all_.notify_all();
    } else {
      all_.wait(lock, [&] { return round_ != round; });
    }
  }

private:
  const int threads_;
  int arrived_ = 0;
  unsigned round_ = 0;
  std::mutex mutex_;
  std::condition_variable all_;
};
