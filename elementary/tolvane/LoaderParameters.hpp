#pragma once

#include <tolvane/Api.hpp>
#include <tolvane/Attributes.hpp>
#include <tolvane/Intercube.hpp>

#include <cstdint>
#include <list>
#include <string>
#include <vector>

/// @file
/// What a load is given: the files, attributes, interfaces such as a progress reporter; and what
/// it gives back: a status text and a record of which loaders were asked.
///
/// @code
/// #include <tolvane/LoaderRegistry.hpp>
///
/// Tolvane::StrongPtr<Tolvane::LoaderParameters> parameters =
///     new Tolvane::LoaderParameters({"scan.nii"});
/// if (!Tolvane::LoaderRegistry<Volume>::load(parameters)) {
///   std::cerr << parameters->statusText() << '\n' << parameters->describeAttempts();
/// }
/// @endcode

namespace Tolvane {

class LoaderRegistryBase;

/// The input of a load, and the account of how it went.
///
/// Thread safety: none; one load at a time uses it.
class TOLVANE_API LoaderParameters : public ReferenceBase<LoaderParameters>, public Intercube {
public:
  /// One loader's part in a load.
  struct Attempt {
    /// What came of it.
    enum class Outcome {
      Loaded,  ///< The loader succeeded, and ended the search.
      Refused, ///< The loader answered false.
      Vetoed,  ///< LoaderProgress::tryLoader() answered false; the loader was not asked.
      Threw,   ///< The loader, or the progress interface, threw, which ended the search; the
               ///< exception tells why.
    };

    std::string loader; ///< The readable name of the loader's class.
    Outcome outcome;    ///< What came of it.
    std::string reason; ///< The status text as this loader set it, also when it threw then; empty
                        ///< when it set none, or when there was no memory for it.
  };

  /// For that list of files or URLs, which is copied.
  explicit LoaderParameters(const std::list<std::string>& files);
  ~LoaderParameters() override;

  /// The descriptive properties of the load.
  Attributes& attributes() noexcept { return attributes_; }
  /// The descriptive properties of the load.
  const Attributes& attributes() const noexcept { return attributes_; }

  /// The files or URLs to load.
  const std::list<std::string>& files() const noexcept { return files_; }

  /// A number that callers and loaders may use as they agree; 1 at first. The library only keeps
  /// it.
  std::int32_t userValue() const noexcept { return userValue_; }
  /// Sets the number.
  void setUserValue(std::int32_t value) noexcept { userValue_ = value; }

  /// How the last load went, in words: the text of the last loader that set one, or
  /// "No loader available. ".
  const std::string& statusText() const noexcept { return statusText_; }
  /// Says how it went: for loaders that refuse, above all.
  void setStatusText(const std::string& text);

  /// The loaders that the last load came across, in order. Empty before the first one.
  const std::vector<Attempt>& attempts() const noexcept { return attempts_; }

  /// The attempts as text: a line for each loader with its name, ": ", and its reason or, where it
  /// gave none, what came of it.
  std::string describeAttempts() const;

private:
  friend class LoaderRegistryBase;

  Attributes attributes_;
  std::list<std::string> files_;
  std::int32_t userValue_ = 1;
  std::string statusText_;
  bool statusSet_ = false; // since the loader was asked
  std::vector<Attempt> attempts_;
};

} // namespace Tolvane
