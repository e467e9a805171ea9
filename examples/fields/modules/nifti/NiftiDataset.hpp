#pragma once

#include "../../data/Dataset.hpp"
#include "NiftiHeader.hpp"

#include <memory>
#include <string>

/// @file
/// A NIfTI-1 volume.

namespace fields {

/// Reads a whole volume at a time: what is compressed has no middle to begin at. Voxels come out
/// with x to the right, y to the front and z to the top, however they are stored.
class NiftiDataset : public Dataset {
public:
  /// Opens the file and reads its header. Throws FileError.
  explicit NiftiDataset(const std::string& path);

  bool readsSingleLevels() const override { return false; }
  Samples read(const Variable& variable, const Piece& piece, const ProgressPtr& progress) override;

private:
  template <class Voxel, class Value>
  std::vector<Value> readVoxels(const Piece& piece, const ProgressPtr& progress) const;

  static NiftiHeader readHeader(const std::string& path);

  const NiftiHeader header_;
};

} // namespace fields
