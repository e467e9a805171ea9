#pragma once

#include <tolvane/Api.hpp>
#include <tolvane/StrongPtr.hpp>

#include <string>

/// @file
/// The base of save methods: what makes the interface through which an object is written.
///
/// @code
/// #include <tolvane/SaveRegistry.hpp>
///
/// struct VolumeStreamCreator : Tolvane::SaveInterfaceCreatorBase {
///   VolumeStreamCreator() : SaveInterfaceCreatorBase("NIfTI", ".nii") {}
///   Tolvane::StrongPtr<VolumeStream, Tolvane::InterfaceBase> create(const Volume& volume);
/// };
/// @endcode

namespace Tolvane {

/// Makes the interfaces by which objects of one type are saved. How it is asked to is up to the
/// application, whose deriving classes add the operation.
///
/// Thread safety: the two texts never change.
class TOLVANE_API SaveInterfaceCreatorBase : public ReferenceBase<SaveInterfaceCreatorBase> {
public:
  ~SaveInterfaceCreatorBase() override;

  /// The first text, by convention the name of the method. The library only keeps it.
  const std::string& name() const noexcept { return name_; }

  /// The second text, by convention a description. The library only keeps it.
  const std::string& description() const noexcept { return description_; }

protected:
  /// A method with these two texts.
  SaveInterfaceCreatorBase(std::string name, std::string description);

private:
  std::string name_;
  std::string description_;
};

} // namespace Tolvane
