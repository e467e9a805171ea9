#pragma once

#include <tolvane/LoaderRegistryBase.hpp>

#include <list>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>

/// @file
/// The loaders of one type of data, and how a module brings its own.
///
/// @code
/// #include <tolvane/LoaderRegistry.hpp>
///
/// // In the module that has the loader; registered while the module is loaded:
/// static const Tolvane::LoaderRegistry<Volume>::Registration<VolumeReader> registration;
///
/// // Anywhere:
/// Tolvane::StrongPtr<Tolvane::LoaderParameters> parameters =
///     new Tolvane::LoaderParameters({"scan.nii"});
/// if (!Tolvane::LoaderRegistry<Volume>::load(parameters)) {
///   std::cerr << parameters->describeAttempts();
/// }
/// @endcode

namespace Tolvane {

/// The part of the loader registry for the type `Domain`; see LoaderRegistryBase.
///
/// Thread safety: that of LoaderRegistryBase.
template <class Domain>
class LoaderRegistry : public LoaderRegistryBase {
public:
  /// Registers a loader under its own class; an empty pointer is ignored.
  static void append(const StrongPtr<LoaderBase>& loader) {
    if (const LoaderBase* added = loader.get()) {
      domain_append(typeid(*added), loader, typeid(Domain));
    }
  }

  /// See domain_isloadable().
  static bool isloadable(const StrongPtr<LoaderParameters>& parameters) {
    return domain_isloadable(parameters, typeid(Domain));
  }

  /// See domain_load().
  static bool load(const StrongPtr<LoaderParameters>& parameters,
                   LoaderBase::ldrpar* special = nullptr) {
    return domain_load(parameters, special, typeid(Domain));
  }

  /// See domain_loadrequest().
  static StrongPtr<LoaderRequest> loadrequest(const StrongPtr<LoaderParameters>& parameters,
                                              LoaderBase::ldrpar* special = nullptr) {
    return domain_loadrequest(parameters, special, typeid(Domain));
  }

  /// See getSupportedDomainExtensions().
  static std::list<std::string> getSupportedExtensions() {
    std::list<std::string> extensions;
    getSupportedDomainExtensions(extensions, typeid(Domain));
    return extensions;
  }

  /// Registers a loader as long as it lives. Meant for a static object of the module that has the
  /// loader: it comes with the module and is taken out again before the module goes. A loader that
  /// replaced it meanwhile stays. Entries that the module made otherwise, also by asking about a
  /// type of its own, are left to forget().
  template <class Loader>
  class Registration {
    static_assert(std::is_base_of_v<LoaderBase, Loader>, "a loader derives from LoaderBase");

  public:
    /// Makes the loader from `arguments` and registers it under its class.
    template <class... Arguments>
    explicit Registration(Arguments&&... arguments) {
      const StrongPtr<LoaderBase> loader = new Loader(std::forward<Arguments>(arguments)...);
      domain_append(typeid(Loader), loader, typeid(Domain));
      loader_ = loader;
    }

    /// Takes the loader out and releases it.
    ~Registration() { domain_remove(typeid(Loader), loader_, typeid(Domain)); }

    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

    /// The loader; reads as empty once it is replaced and nobody holds it.
    const WeakPtr<LoaderBase>& loader() const noexcept { return loader_; }

  private:
    WeakPtr<LoaderBase> loader_;
  };
};

} // namespace Tolvane
