#pragma once

#include "FieldReader.hpp"

#include <tolvane/LoaderParameters.hpp>

#include <string>
#include <vector>

/// @file
/// Opens files through the registry of loaders.

namespace fields {

/// An opened file, and which loaders were asked for it.
struct DatasetFile {
  /// Throws Refusal when there is no file, no loader for it, or something wrong with it.
  DatasetFile(const std::string& path, const ProgressPtr& progress);

  DatasetPtr dataset;
  std::vector<Tolvane::LoaderParameters::Attempt> attempts;
};

} // namespace fields
