#include "BrickedVolume.hpp"

#include <algorithm>
#include <utility>

namespace bricks {

BrickedVolume::BrickedVolume(const Tolvane::StrongPtr<VolumeFile>& file, std::size_t edge,
                             CachePtr cache)
    : extent_(file->extent()), cache_(std::move(cache)) {
  for (std::size_t z = 0; z < extent_[2]; z += edge) {
    for (std::size_t y = 0; y < extent_[1]; y += edge) {
      for (std::size_t x = 0; x < extent_[0]; x += edge) {
        const Box box{{x, y, z},
                      {std::min(edge, extent_[0] - x), std::min(edge, extent_[1] - y),
                       std::min(edge, extent_[2] - z)}};
        creators_.emplace_back(new BrickCreator(cache_, file, box, releases_));
      }
    }
  }
}

void BrickedVolume::walk(const std::function<void(const Brick&)>& show) {
  for (std::size_t i = 0; i < creators_.size(); ++i) {
    const auto& creator = creators_[backwards_ ? creators_.size() - 1 - i : i];
    const BrickCreator::Pointer brick = creator->data();
    peak_ = std::max(peak_, cache_->totalCost(true));
    show(*brick);
  }
  backwards_ = !backwards_;
}

CacheFigures BrickedVolume::figures() const {
  CacheFigures figures;
  figures.releases = releases_;
  figures.peak = peak_;
  for (const auto& creator : creators_) {
    const std::uint64_t made = creator->timesMade();
    figures.insertions += made;
    figures.madeAgain += made > 1 ? made - 1 : 0;
  }
  return figures;
}

} // namespace bricks
