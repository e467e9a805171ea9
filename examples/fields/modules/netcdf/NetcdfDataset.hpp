#pragma once

#include "../../data/Dataset.hpp"

#include <map>
#include <string>
#include <vector>

/// @file
/// A NetCDF file.

namespace fields {

/// Reads exactly the piece that is asked for, through the NetCDF library.
class NetcdfDataset : public Dataset {
public:
  /// Opens the file and reads what its variables are. Throws FileError.
  explicit NetcdfDataset(const std::string& path);
  ~NetcdfDataset() override;

  bool readsSingleLevels() const override { return true; }
  Samples read(const Variable& variable, const Piece& piece, const ProgressPtr& progress) override;

private:
  void addVariable(int id);
  AxisPtr axis(int dimension, const std::string& fallback);
  std::string text(int variable, const char* attribute) const;

  int file_ = -1;
  std::map<int, AxisPtr> axes_;
};

} // namespace fields
