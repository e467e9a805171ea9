#pragma once

#include <string>
#include <utility>
#include <vector>

/// @file
/// Loads modules at run time.

namespace fields {

/// The modules of a folder, loaded as long as this lives. Each registers what it brings while it is
/// being loaded, and takes it back when it goes; nothing of theirs is left by then.
class ModuleFolder {
public:
  /// Loads all modules of the folder, in the order of their names. Throws Refusal when there is no
  /// such folder. One that cannot be loaded is left out.
  explicit ModuleFolder(const std::string& folder);
  ~ModuleFolder();
  ModuleFolder(const ModuleFolder&) = delete;
  ModuleFolder& operator=(const ModuleFolder&) = delete;

  const std::vector<std::string>& names() const { return names_; }
  /// The modules that were left out, each with the reason.
  const std::vector<std::pair<std::string, std::string>>& leftOut() const { return leftOut_; }

private:
  std::vector<void*> handles_;
  std::vector<std::string> names_;
  std::vector<std::pair<std::string, std::string>> leftOut_;
};

} // namespace fields
