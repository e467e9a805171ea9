#pragma once

#include <string>
#include <utility>
#include <vector>

/// @file
/// Loads modules at run time.

namespace fields {

/// The modules of a folder. Each registers what it brings while it is being loaded, and takes it
/// back when the process ends. Until then they stay: exceptions of theirs may still be on their
/// way, and not every library that they bring along takes it well to be unloaded.
class ModuleFolder {
public:
  /// Loads all modules of the folder, in the order of their names. Throws Refusal when there is no
  /// such folder. One that cannot be loaded is left out.
  explicit ModuleFolder(const std::string& folder);

  const std::vector<std::string>& names() const { return names_; }
  /// The modules that were left out, each with the reason.
  const std::vector<std::pair<std::string, std::string>>& leftOut() const { return leftOut_; }

private:
  std::vector<std::string> names_;
  std::vector<std::pair<std::string, std::string>> leftOut_;
};

} // namespace fields
