#include "Player.hpp"

#include "Options.hpp"
#include "ProcessMemory.hpp"
#include "Refusal.hpp"

#include <algorithm>
#include <iostream>
#include <numeric>
#include <random>
#include <utility>

namespace fields {
namespace {

/// A number that stands for the bytes of a picture.
std::uint64_t digestOf(const Pixels& pixels) {
  std::uint64_t digest = 14695981039346656037U;
  for (const Colour& colour : pixels.colours) {
    for (const std::uint8_t part : {colour.red, colour.green, colour.blue}) {
      digest = (digest ^ part) * 1099511628211U;
    }
  }
  return digest;
}

} // namespace

std::vector<std::size_t> PlayPlan::round(std::size_t number) const {
  std::vector<std::size_t> frames(last - first + 1);
  std::iota(frames.begin(), frames.end(), first);
  const std::string& order = orders[number % orders.size()];
  if (order == "backwards") {
    std::reverse(frames.begin(), frames.end());
  } else if (order == "random") {
    // Shuffled by hand, so that a seed means the same order everywhere.
    std::mt19937 random(seed + static_cast<std::uint32_t>(number));
    for (std::size_t left = frames.size(); left > 1; --left) {
      std::swap(frames[left - 1], frames[random() % left]);
    }
  } else if (order != "forwards") {
    throw Refusal("there is no order \"" + order + "\"; take forwards, backwards or random");
  }
  return frames;
}

void requireRoom(const std::pair<Tolvane::memsize_t, std::string>& largest,
                 Tolvane::memsize_t budget) {
  if (largest.first > budget) {
    throw Refusal("a budget of " + bytesText(budget) + " is too small for a single object: " +
                  largest.second + " takes " + bytesText(largest.first) + "; give --budget " +
                  std::to_string(largest.first / 1024 + 1) + "K or more");
  }
}

Player::Player(DatasetPtr dataset, const Selection& selection, const PlayPlan& plan,
               ProgressBarPtr progress)
    : dataset_(std::move(dataset)), selection_(selection), plan_(plan),
      progress_(std::move(progress)) {
  Workshop workshop(CachePtr(new Tolvane::Cache(1, "a look")));
  const Reel reel(dataset_, selection_, workshop, progress_);
  const std::size_t frames = reel.frames();
  plan_.last = std::min(plan_.last, frames - 1);
  if (plan_.first > plan_.last) {
    throw Refusal("there is nothing from " + std::to_string(plan_.first + 1) + " to " +
                  std::to_string(plan_.last + 1) + "; take --from and --to from 1 to " +
                  std::to_string(frames));
  }
  for (std::size_t i = 0; i < plan_.orders.size(); ++i) {
    plan_.round(i);
  }
  largest_ = reel.largest();
  total_ = reel.total(plan_.first, plan_.last);
}

PlayResult Player::play(const CachePtr& cache, bool listing) {
  requireRoom(largest_, cache->limit());
  if (!range_) {
    // In a cache of its own, so that the figures are those of the play alone.
    Workshop workshop(CachePtr(new Tolvane::Cache(cache->limit(), "range")));
    range_ = Reel(dataset_, selection_, workshop, progress_).scanRange(plan_.first, plan_.last);
  }
  Workshop workshop(cache);
  Reel reel(dataset_, selection_, workshop, progress_);
  reel.useMap(*range_);
  ContactSheet sheet(plan_.first, plan_.last);
  PlayResult result;
  result.digests.resize(reel.frames());
  const std::string work = "playing with " + bytesText(cache->limit());
  progress_->setWork(work);
  const std::size_t all = plan_.rounds * (plan_.last - plan_.first + 1);
  for (std::size_t number = 0; number < plan_.rounds; ++number) {
    for (const std::size_t frame : plan_.round(number)) {
      const Painter::Pointer picture = workshop.obtain(*reel.painter(frame));
      const std::uint64_t digest = digestOf(picture->pixels());
      if (result.digests[frame] != 0 && result.digests[frame] != digest) {
        throw Refusal("frame " + std::to_string(frame + 1) +
                      " was made again and looks different; has the file changed meanwhile?");
      }
      result.digests[frame] = digest;
      sheet.add(frame, reel.label(frame), *picture);
      progress_->progress(work, static_cast<int>(++result.shown), static_cast<int>(all));
    }
  }
  progress_->setWork("");
  result.seconds = workshop.seconds();
  result.madeAgain = workshop.madeAgain();
  result.samples = workshop.samples();
  result.peakProcess = peakProcessMemory();
  result.cache = cache->statistics();
  result.sheet = sheet.draw(reel.map());
  if (listing) {
    std::cout << std::flush;
    cache->list_info();
  }
  return result;
}

} // namespace fields
