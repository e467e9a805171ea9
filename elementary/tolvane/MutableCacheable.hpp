#pragma once

#include <tolvane/Cacheable.hpp>

/// @file
/// A data object whose size changes while it stands in a queue.
///
/// @code
/// #include <tolvane/MutableCacheable.hpp>
///
/// class Log : public Tolvane::MutableCacheable {
/// public:
///   void add(std::string line) {
///     bytes_ += line.size();
///     lines_.push_back(std::move(line));
///     adjustCurrentMemsize();
///   }
///   Tolvane::memsize_t computeMemsize() const override { return bytes_; }
///
/// private:
///   std::atomic<std::size_t> bytes_{0};
///   std::vector<std::string> lines_;
/// };
/// @endcode

namespace Tolvane {

/// A cacheable that keeps the size it was last counted with.
///
/// Thread safety: as Cacheable. adjustCurrentMemsize() may be called by any thread, also while
/// another one moves the object between queues: the totals stay exact.
class TOLVANE_API MutableCacheable : public Cacheable {
public:
  using Cacheable::Cacheable;
  MutableCacheable() = default;
  MutableCacheable(const MutableCacheable& other);
  MutableCacheable& operator=(const MutableCacheable& other) noexcept;
  ~MutableCacheable() override;

  /// The size as it was last counted; 0 at first.
  memsize_t memsize() const override;

  /// The size as of now.
  virtual memsize_t computeMemsize() const = 0;

  /// Counts the size as of now, in the object and in its queue. Does nothing when it is the same.
  void adjustCurrentMemsize();

private:
  std::atomic<memsize_t> currentSize_{0};
};

} // namespace Tolvane
