#pragma once

#include "../../data/Dataset.hpp"

#include <fstream>
#include <string>
#include <utility>
#include <vector>

/// @file
/// A file with one grid after another: the times of its only variable.

namespace fields {

/// Knows where each grid begins and reads only the one that is asked for.
class PlainDataset : public Dataset {
public:
  bool readsSingleLevels() const override { return true; }
  Samples read(const Variable& variable, const Piece& piece, const ProgressPtr& progress) override;

protected:
  explicit PlainDataset(const std::string& path);

  /// One more grid of that size, whose values begin at `offset`. All are of one size.
  void addGrid(std::size_t width, std::size_t height, std::streamoff offset, double time);

  /// Names the variable once all grids are known.
  void finish(Variable variable);

  std::ifstream& file() { return file_; }
  std::size_t width() const { return width_; }
  std::size_t height() const { return height_; }

  /// Reads the values of grid `index`, the stream being at its begin.
  virtual Samples::Floats readValues(std::size_t index) = 0;

private:
  std::ifstream file_;
  std::size_t width_ = 0, height_ = 0;
  std::vector<std::pair<std::streamoff, double>> grids_; // where, and at which time
};

} // namespace fields
