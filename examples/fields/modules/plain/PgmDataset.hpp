#pragma once

#include "PlainDataset.hpp"

#include <string>
#include <vector>

/// @file
/// A portable grey map.

namespace fields {

/// Grey pictures, one after the other, as text (P2) or as bytes (P5).
class PgmDataset : public PlainDataset {
public:
  /// Throws FileError.
  explicit PgmDataset(const std::string& path);

protected:
  Samples::Floats readValues(std::size_t index) override;

private:
  /// How the values of one picture are written: 0 for text, else the bytes of each.
  std::vector<std::size_t> bytesPerValue_;

  unsigned readNumber();
};

} // namespace fields
