#pragma once

#include <tolvane/Api.hpp>
#include <tolvane/Intercube.hpp>

#include <cstdint>
#include <string>

/// @file
/// What a save is given: the destination, and options as interfaces.
///
/// @code
/// #include <tolvane/SaveParameters.hpp>
///
/// struct Compression : Tolvane::Interface<Compression> { int level = 6; };
///
/// Tolvane::StrongPtr<Tolvane::SaveParameters> parameters =
///     new Tolvane::SaveParameters("scan.nii.gz");
/// parameters->addInterface(new Compression);
/// @endcode

namespace Tolvane {

/// The parameters of a save.
///
/// Thread safety: none; one save at a time uses them.
class TOLVANE_API SaveParameters : public ReferenceBase<SaveParameters>, public Intercube {
public:
  /// For that destination, a file name or URL.
  explicit SaveParameters(std::string destination);

  /// For the same destination. Nothing else is copied: number, text and interfaces start fresh.
  SaveParameters(const SaveParameters& other);
  SaveParameters& operator=(const SaveParameters&) = delete;
  ~SaveParameters() override;

  /// The file name or URL.
  const std::string& destination() const noexcept { return destination_; }

  /// A number that callers and savers may use as they agree; 0 at first. The library only keeps it.
  std::int64_t userValue() const noexcept { return userValue_; }
  /// Sets the number.
  void setUserValue(std::int64_t value) noexcept { userValue_ = value; }

  /// A text of the same kind; empty at first.
  const std::string& userText() const noexcept { return userText_; }
  /// Sets the text.
  void setUserText(const std::string& text) { userText_ = text; }

private:
  std::string destination_;
  std::int64_t userValue_ = 0;
  std::string userText_;
};

} // namespace Tolvane
