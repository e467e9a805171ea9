#include "PlainDataset.hpp"

#include "../../data/FileError.hpp"

#include <cerrno>
#include <cstring>

namespace fields {

PlainDataset::PlainDataset(const std::string& path) : Dataset(path) {
  errno = 0;
  file_.open(path, std::ios::binary);
  if (!file_) {
    throw FileError(std::string("cannot be opened: ") + std::strerror(errno));
  }
  file_.imbue(std::locale::classic());
}

void PlainDataset::addGrid(std::size_t width, std::size_t height, std::streamoff offset,
                           double time) {
  if (width < 2 || height < 2 || width > 100'000 || height > 100'000) {
    throw FileError("is damaged: a grid of " + std::to_string(width) + " x " +
                    std::to_string(height) + " cells makes no sense");
  }
  if (!grids_.empty() && (width != width_ || height != height_)) {
    throw FileError("has grids of different sizes; put them into files of their own");
  }
  width_ = width;
  height_ = height;
  grids_.emplace_back(offset, time);
}

void PlainDataset::finish(Variable variable) {
  if (grids_.size() > 1) {
    const auto axis = std::make_shared<Axis>();
    axis->name = "time";
    for (const auto& [offset, time] : grids_) {
      axis->values.push_back(time);
    }
    variable.t = axis;
  }
  add(std::move(variable));
}

Samples PlainDataset::read(const Variable&, const Piece& piece, const ProgressPtr& progress) {
  if (progress) {
    progress->progress("reading a grid", 0, 1);
  }
  file_.clear();
  file_.seekg(grids_.at(piece.time).first);
  Samples::Floats values = readValues(piece.time);
  if (progress) {
    progress->progress("reading a grid", 1, 1);
  }
  return {std::move(values)};
}

} // namespace fields
