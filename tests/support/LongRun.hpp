#pragma once

/// @file
/// Runs that go on for a number of rounds, or for as long as one wishes, and do not hang.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

namespace testsupport {

/// A number from the environment, by which runs are repeated and prolonged.
inline unsigned long long numberFrom(const char* variable, unsigned long long otherwise) {
  const char* text = std::getenv(variable);
  return text && *text ? std::strtoull(text, nullptr, 10) : otherwise;
}

/// How long a run is wished to go on; zero for its usual number of rounds.
inline std::chrono::seconds wishedTime() {
  return std::chrono::seconds(numberFrom("TOLVANE_TEST_SECONDS", 0));
}

/// Ends the process when a test hangs.
class Watchdog {
public:
  /// @p patience comes on top of the time that the run is wished to go on.
  explicit Watchdog(std::chrono::seconds patience = std::chrono::seconds(60))
      : thread_([this, patience] {
          std::unique_lock lock(mutex_);
          if (!done_.wait_for(lock, patience + wishedTime(), [this] { return finished_; })) {
            std::fprintf(stderr, "the test hangs\n");
            std::abort();
          }
        }) {}
  ~Watchdog() {
    {
      const std::lock_guard lock(mutex_);
      finished_ = true;
    }
    done_.notify_one();
    thread_.join();
  }

private:
  std::mutex mutex_;
  std::condition_variable done_;
  bool finished_ = false;
  std::thread thread_;
};

/// Counts the rounds of a test, in any number of threads; at its end it prints what was done.
///
/// @code
/// LongRun run(4);
/// inThreads(4, [&](int, std::mt19937&) {
///   for (int i = 0; run.goesOn(i, 10000); ++i)
///     ...
/// });
/// @endcode
class LongRun {
public:
  /// @p threads that work in it, for the figures.
  explicit LongRun(int threads) : threads_(threads) {}
  ~LongRun() {
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start_;
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    std::printf("FIGURES %s.%s: %d threads, %.0f s, %llu rounds\n", test->test_suite_name(),
                test->name(), threads_, time.count(), rounds_.load());
  }
  /// Whether there is to be another round after @p done of them, of @p usual ones.
  bool goesOn(int done, int usual) {
    const bool another = wishedTime() > std::chrono::seconds(0)
                             ? std::chrono::steady_clock::now() - start_ < wishedTime()
                             : done < usual;
    if (another)
      rounds_.fetch_add(1, std::memory_order_relaxed);
    return another;
  }

private:
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  const int threads_;
  std::atomic<unsigned long long> rounds_{0};
};

/// Runs `action(thread, random)` in so many threads that start together; TOLVANE_TEST_SEED=N
/// changes what they do.
template <class Action>
void inThreads(int count, const Action& action) {
  const auto seed = static_cast<unsigned>(numberFrom("TOLVANE_TEST_SEED", 1)) * 1000u;
  std::atomic<int> waiting{count};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < count; ++thread)
    threads.emplace_back([&, thread] {
      std::mt19937 random(seed + static_cast<unsigned>(thread));
      for (--waiting; waiting > 0;)
        std::this_thread::yield();
      action(thread, random);
    });
  for (std::thread& thread : threads)
    thread.join();
}

} // namespace testsupport
