#pragma once

#include <tolvane/Api.hpp>
#include <tolvane/Attributes.hpp>
#include <tolvane/LoaderParameters.hpp>
#include <tolvane/LoaderRequest.hpp>

#include <list>
#include <mutex>
#include <string>

/// @file
/// The base of loaders, which make data of some kind from files or URLs.
///
/// @code
/// #include <tolvane/LoaderRegistry.hpp>
///
/// class VolumeReader : public Tolvane::LoaderBase {
/// public:
///   using Parameters = Tolvane::StrongPtr<Tolvane::LoaderParameters>;
///   VolumeReader() : LoaderBase({".nii"}) {}
///   bool isloadable(const Parameters& parameters) override {
///     return parameters && checkIfAllExtensionsAreSupported(parameters->files(), extensions());
///   }
///   bool load(const Parameters& parameters, ldrpar*) override {
///     if (!parameters) {
///       return false;
///     }
///     if (!isloadable(parameters)) {
///       parameters->setStatusText("not a .nii file");
///       return false;
///     }
///     return read(parameters->files());
///   }
///   Tolvane::StrongPtr<Tolvane::LoaderRequest> loadrequest(const Parameters&, ldrpar*) override {
///     return nullptr;
///   }
/// };
/// static const Tolvane::LoaderRegistry<Volume>::Registration<VolumeReader> registration;
/// @endcode

namespace Tolvane {

/// A loader: it is registered for the kinds of data that it makes, and asked by the registry.
///
/// The parameters it is given may be an empty pointer, if that is what the caller passed.
///
/// Thread safety: several threads may load at a time, so a loader guards what it keeps itself.
class TOLVANE_API LoaderBase : public ReferenceBase<LoaderBase> {
public:
  /// The base of parameters for one particular loader; the registry passes them through.
  class TOLVANE_API ldrpar {
  public:
    virtual ~ldrpar();
  };

  ~LoaderBase() override;

  /// Whether this loader would load that.
  virtual bool isloadable(const StrongPtr<LoaderParameters>& parameters) = 0;

  /// Loads; true when it succeeded. A loader that refuses says why with
  /// LoaderParameters::setStatusText(). `special` may be null.
  virtual bool load(const StrongPtr<LoaderParameters>& parameters, ldrpar* special) = 0;

  /// A handle for loading later; empty when this loader does not.
  virtual StrongPtr<LoaderRequest> loadrequest(const StrongPtr<LoaderParameters>& parameters,
                                               ldrpar* special) = 0;

  /// The descriptive properties of the loader.
  Attributes& attributes() noexcept { return attributes_; }
  /// The descriptive properties of the loader.
  const Attributes& attributes() const noexcept { return attributes_; }

  /// The endings of file names that the loader supports, in lower case.
  const std::list<std::string>& extensions() const noexcept { return extensions_; }

  /// Whether each file name ends with one of the extensions: the name in lower case, by the C
  /// library and its locale, the extension as given. A name of less than three characters never
  /// does. True for an empty list of names.
  static bool checkIfAllExtensionsAreSupported(const std::list<std::string>& filenames,
                                               const std::list<std::string>& extensions);

protected:
  /// A loader for those endings of file names.
  explicit LoaderBase(std::list<std::string> extensions = {});

  /// Replaces the endings of file names.
  void setExtensions(std::list<std::string> extensions);

private:
  friend class LoaderRegistryBase;

  const std::string& className() const;

  Attributes attributes_;
  std::list<std::string> extensions_;
  // The readable name of the class, for the accounts of loads; found out when it is first asked.
  mutable std::mutex nameMutex_;
  mutable std::string name_;
};

} // namespace Tolvane
