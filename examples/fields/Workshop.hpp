#pragma once

#include <tolvane/Cache.hpp>

#include <chrono>
#include <cstdint>
#include <vector>

/// @file
/// What the creators of one play share: the cache, and an account of the time.

namespace fields {

using CachePtr = Tolvane::StrongPtr<Tolvane::Cache, Tolvane::CacheBase>;

/// Hands out data under a budget, and notes what making it again cost and how the memory went.
///
/// Thread safety: none.
class Workshop {
public:
  /// What was made more than once.
  struct MadeAgain {
    std::uint64_t count = 0;
    Tolvane::memsize_t bytes = 0;
    double seconds = 0; ///< Without the time for what it was made from.
  };

  /// What the cache counted against its limit at a moment.
  struct Sample {
    double seconds = 0;
    Tolvane::memsize_t bytes = 0;
  };

  explicit Workshop(CachePtr cache);
  Workshop(const Workshop&) = delete;
  Workshop& operator=(const Workshop&) = delete;

  const CachePtr& cache() const { return cache_; }
  const MadeAgain& madeAgain() const { return madeAgain_; }
  const std::vector<Sample>& samples() const { return samples_; }
  double seconds() const { return secondsSince(start_); }

  /// The data of a creator. What the cache has no room for is given all the same, and goes with the
  /// caller's pointer.
  template <class Creator>
  typename Creator::Pointer obtain(Creator& creator) {
    try {
      const typename Creator::Pointer data = creator.data();
      sample();
      return data;
    } catch (const Tolvane::Cache::OutOfMemory& error) {
      sample();
      return typename Creator::Pointer(error.object());
    }
  }

  /// The making of one object, from the constructor on. The makings of what it is made from lie
  /// within, and their time is not counted twice.
  class Job {
  public:
    explicit Job(Workshop& workshop);
    ~Job();
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;

    /// The object was there before, and has that size.
    void wasAgain(Tolvane::memsize_t bytes);

  private:
    Workshop& workshop_;
    Job* const outer_;
    const std::chrono::steady_clock::time_point start_;
    double within_ = 0;
  };

private:
  static double secondsSince(std::chrono::steady_clock::time_point start);
  void sample();

  const CachePtr cache_;
  const std::chrono::steady_clock::time_point start_;
  MadeAgain madeAgain_;
  std::vector<Sample> samples_;
  Job* job_ = nullptr;
};

} // namespace fields
