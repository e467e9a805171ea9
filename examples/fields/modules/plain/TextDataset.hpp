#pragma once

#include "PlainDataset.hpp"

#include <map>
#include <optional>
#include <string>

/// @file
/// Grids as text: a header of keywords, then the rows from the north.

namespace fields {

/// A text such as
///
///     variable height
///     unit m
///     ncols 3
///     nrows 2
///     xllcorner 0
///     yllcorner 40
///     cellsize 5
///     nodata_value -9999
///     1 2 3
///     4 5 -9999
///
/// of which only ncols and nrows have to be there. More grids, the steps of time, may follow, each
/// with its header, and `time` in it.
class TextDataset : public PlainDataset {
public:
  /// Reads the whole text once, to see that it is complete. Throws FileError.
  explicit TextDataset(const std::string& path);

protected:
  Samples::Floats readValues(std::size_t index) override;

private:
  using Header = std::map<std::string, std::string>;

  Header readHeader();
  float readValue(const std::optional<float>& missing);

  std::optional<float> missing_;
};

} // namespace fields
