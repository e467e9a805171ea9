#pragma once

#include <tolvane/Api.hpp>
#include <tolvane/StrongPtr.hpp>

#include <string>

/// @file
/// Where a data object came from, as a chain of named steps from a root, for instance a file, down
/// to the step that made the data.
///
/// @code
/// #include <tolvane/Provenance.hpp>
///
/// Tolvane::StrongPtr<Tolvane::Provenance> file = new Tolvane::Provenance("scan.nii");
/// Tolvane::StrongPtr<Tolvane::Provenance> step = new Tolvane::Provenance("smooth", file);
/// assert(step->getPath(':') == "scan.nii:smooth" && step->getRoot() == "scan.nii");
/// @endcode

namespace Tolvane {

/// One step: its name and the step before it, if any.
///
/// A record owns its parent, and so the chain up to the root. A parent that was destroyed all the
/// same, by hand, counts as none. Chains may be millions of records long: they are read in linear
/// time and released without a deep stack.
///
/// Thread safety: any thread may call any operation.
class TOLVANE_API Provenance : public ReferenceBase<Provenance> {
public:
  /// A record below `parent`; a root when that is empty.
  explicit Provenance(std::string name, const StrongPtr<Provenance>& parent = nullptr);

  /// Releases the parent. A parent that is released inside the destructor of another record goes
  /// when the destructor that began it all is done.
  ~Provenance() override;

  /// The name of the step. @throws std::bad_alloc when there is no memory for it.
  std::string name() const;
  /// Renames the step.
  void setName(std::string name);

  /// The record before this one; empty for a root.
  const StrongPtr<Provenance>& parent() const noexcept { return parent_; }

  /// The names from the root to this record. `separator` stands before the last name; all names
  /// above it are joined by "/", whatever the separator.
  /// @throws std::bad_alloc when there is no memory for the text.
  std::string getPath(char separator) const;

  /// The same without the root's name: empty for a root, and beginning with a separator for any
  /// other record.
  /// @throws std::bad_alloc when there is no memory for the text.
  std::string getPathWithoutRoot(char separator) const;

  /// The name of the first record of the chain.
  /// @throws std::bad_alloc when there is no memory for the text.
  std::string getRoot() const;

private:
  std::string path(char separator, bool withRoot) const;

  std::string name_;
  StrongPtr<Provenance> parent_;
};

} // namespace Tolvane
