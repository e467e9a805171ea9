#pragma once

#include "ContactSheet.hpp"
#include "ProgressBar.hpp"
#include "Reel.hpp"

#include <cstdint>
#include <string>
#include <vector>

/// @file
/// Plays frames under a budget.

namespace fields {

/// Which frames are shown, and in which order.
struct PlayPlan {
  std::size_t first = 0, last = 0;
  std::vector<std::string> orders; ///< Of the rounds, from the beginning again when they run out.
  std::size_t rounds = 1;
  std::uint32_t seed = 1;

  /// The frames of one round. Throws Refusal for an order that nobody knows.
  std::vector<std::size_t> round(std::size_t number) const;
};

/// What came of a play.
struct PlayResult {
  Tolvane::CacheStatistics cache;     ///< The figures of the cache at the end.
  Tolvane::memsize_t peakProcess = 0; ///< The most that the process had, from its beginning on.
  Workshop::MadeAgain madeAgain;
  std::size_t shown = 0;
  double seconds = 0;
  std::vector<Workshop::Sample> samples;
  std::vector<std::uint64_t> digests; ///< Of the pictures, frame by frame.
  Pixels sheet;

  bool passedBudget() const { return cache.peak > cache.limit; }
};

/// Plays a selection of a dataset, under one budget after the other.
class Player {
public:
  /// Throws Refusal when that cannot be played.
  Player(DatasetPtr dataset, const Selection& selection, const PlayPlan& plan,
         ProgressBarPtr progress);

  /// The smallest budget: that for the largest single object.
  const std::pair<Tolvane::memsize_t, std::string>& largest() const { return largest_; }
  /// What all objects of the play take together.
  Tolvane::memsize_t total() const { return total_; }

  /// Throws Refusal when not even one object fits into the cache.
  PlayResult play(const CachePtr& cache, bool listing);

private:
  const DatasetPtr dataset_;
  const Selection selection_;
  PlayPlan plan_;
  const ProgressBarPtr progress_;
  std::pair<Tolvane::memsize_t, std::string> largest_;
  Tolvane::memsize_t total_ = 0;
  std::optional<Range> range_; // of the colours, looked for once
};

/// Throws Refusal when the largest object of a reel does not fit into a cache.
void requireRoom(const std::pair<Tolvane::memsize_t, std::string>& largest,
                 Tolvane::memsize_t budget);

} // namespace fields
