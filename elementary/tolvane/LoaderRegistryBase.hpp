#pragma once

#include <tolvane/Api.hpp>
#include <tolvane/LoaderBase.hpp>
#include <tolvane/TypeInfo.hpp>

#include <list>
#include <string>
#include <typeinfo>
#include <vector>

/// @file
/// The registry of loaders, by the type of data that they make. `LoaderRegistry<Domain>` is the
/// typed way to use it.
///
/// @code
/// #include <tolvane/LoaderRegistryBase.hpp>
///
/// using Tolvane::LoaderRegistryBase;
/// LoaderRegistryBase::domain_append(typeid(VolumeReader), new VolumeReader, typeid(Volume));
/// if (!LoaderRegistryBase::domain_load(parameters, nullptr, typeid(Volume))) {
///   std::cerr << parameters->describeAttempts();
/// }
/// @endcode

namespace Tolvane {

/// The loaders of the process. A *domain* is any type; a loader is registered for a domain under a
/// key, usually its own class, so that a domain has one loader per class.
///
/// Loaders are asked in the order of a hash table of their keys' hash codes, whatever the order of
/// registration. Loaders that register or remove loaders while they are asked change later loads:
/// the ones that were registered when a load began are asked, as far as they are still alive.
///
/// A module takes its loaders out before it is unloaded; see domain_remove() and forget(). A domain
/// of its own that it only asked about stays, and needs forget() too. The registry is there until
/// the very end of the process.
///
/// Thread safety: the registry is not locked. Registration and removal belong to the loading and
/// unloading of modules, while no other thread uses the registry. Several loads may run at a time,
/// for domains that something was registered for or that were asked about before: a first question
/// about a domain makes an entry for it, and counts as a registration. A local domain that left
/// with its last loader is unknown again.
class TOLVANE_API LoaderRegistryBase {
public:
  /// Registers a loader for `domain`, in the place of one that is there under the same key, which
  /// is released. @throws std::bad_alloc when there is no memory for the entry; nothing is changed
  /// then, as in all operations on the registry.
  static void domain_append(const std::type_info& key, const StrongPtr<LoaderBase>& loader,
                            const std::type_info& domain);

  /// Takes the loader under `key` out of `domain`. False when there is none. A domain that is local
  /// to its module, such as one of an anonymous namespace, leaves the registry with its last
  /// loader.
  static bool domain_remove(const std::type_info& key, const std::type_info& domain);

  /// The same, but only if that loader is the one under `key`, and not one that replaced it.
  static bool domain_remove(const std::type_info& key, const WeakPtr<LoaderBase>& loader,
                            const std::type_info& domain);

  /// Removes all that refers to `type`, as a domain or as the key of a loader. For types of a
  /// module that is about to be unloaded.
  static void forget(const std::type_info& type);

  /// Whether some loader of the domain says that it would load that.
  static bool domain_isloadable(const StrongPtr<LoaderParameters>& parameters,
                                const std::type_info& domain);

  /// Loads through the first loader of the domain that succeeds; false when none does.
  ///
  /// A LoaderProgress among the interfaces of the parameters may leave loaders out. The status text
  /// of the parameters is "No loader available. " until a loader changes it; beside it,
  /// LoaderParameters::attempts() tells which loaders were asked and what each said. `special` is
  /// handed to the loaders as it is.
  static bool domain_load(const StrongPtr<LoaderParameters>& parameters,
                          LoaderBase::ldrpar* special, const std::type_info& domain);

  /// The first request that a loader of the domain gives; empty when none does.
  static StrongPtr<LoaderRequest> domain_loadrequest(const StrongPtr<LoaderParameters>& parameters,
                                                     LoaderBase::ldrpar* special,
                                                     const std::type_info& domain);

  /// Appends the extensions of each loader of the domain to `out`, duplicates included.
  static void getSupportedDomainExtensions(std::list<std::string>& out,
                                           const std::type_info& domain);

  /// The domains that loaders were registered for or that were asked about.
  static std::vector<TypeInfo> domains();

  /// The loaders of a domain in the order in which they are asked; also none for a domain that is
  /// not known, and that stays so.
  static std::vector<StrongPtr<LoaderBase>> loaders(const std::type_info& domain);
};

} // namespace Tolvane
