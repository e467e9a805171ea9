#pragma once

#include <tolvane/Api.hpp>
#include <tolvane/SaveInterfaceCreatorBase.hpp>
#include <tolvane/TypeInfo.hpp>

#include <typeinfo>
#include <unordered_map>

/// @file
/// The registry of save methods, by the type of object that they save. `SaveRegistry<T>` is the
/// typed way to use it.
///
/// @code
/// #include <tolvane/SaveRegistryBase.hpp>
///
/// using Tolvane::SaveRegistryBase;
/// SaveRegistryBase::getInterfaceCreator(typeid(Volume), typeid(Tolvane::StreamSaver)) =
///     new VolumeStreamCreator;
/// for (const auto& [interfaceType, creator] : SaveRegistryBase::SaveMethods(typeid(Volume))) {
///   std::cout << creator->name() << '\n';
/// }
/// @endcode

namespace Tolvane {

/// The save methods of the process: for each type of object the creators of save interfaces, by the
/// type of the interface.
///
/// Types and methods are walked in the order of hash tables of the types' hash codes. A visitor may
/// register and remove creators: a walk goes over the entries that were there when it began, as far
/// as they still are; no module may be unloaded meanwhile.
///
/// A module takes its creators out before it is unloaded; see removeCreator() and forget(). A type
/// of its own that it only asked about stays, and needs forget() too. The registry is there until
/// the very end of the process.
///
/// Thread safety: the registry is not locked. Registration and removal belong to the loading and
/// unloading of modules, while no other thread uses the registry.
class TOLVANE_API SaveRegistryBase {
public:
  /// The creators of one type of object, by type of interface.
  using SaveMethodMap = std::unordered_map<TypeInfo, StrongPtr<SaveInterfaceCreatorBase>>;
  /// The creators of all types of objects.
  using SaveList = std::unordered_map<TypeInfo, SaveMethodMap>;

  /// Visits creators; see iterate().
  class TOLVANE_API Iterator {
  public:
    virtual ~Iterator();

    /// Called with each type of interface and its creator, which may be empty. The creator is the
    /// entry itself: what is assigned to it is stored. True goes on, false ends the walk.
    virtual bool visitCreator(TypeInfo interfaceType,
                              StrongPtr<SaveInterfaceCreatorBase>& creator) = 0;
  };

  virtual ~SaveRegistryBase();

  /// Called by traverseCreators() with each creator. The answer is counted and ends nothing.
  virtual bool visitCreator(TypeInfo interfaceType,
                            StrongPtr<SaveInterfaceCreatorBase>& creator) = 0;

  /// The whole registry. A key put in here by hand refers to the module that puts it in; the
  /// operations below see to that themselves.
  static SaveList& BaseSaveList();

  /// The creators for `type`; an empty entry is made for a type that is not known. The reference is
  /// good until forget() of the type or, for a type that is local to its module, such as one of an
  /// anonymous namespace, until its last entry is removed.
  static SaveMethodMap& SaveMethods(const std::type_info& type);

  /// The creator of interfaces of `interfaceType` for objects of `type`; an empty entry is made
  /// where there is none. What is assigned to it is registered. The reference is good until the
  /// entry is removed. @throws std::bad_alloc when there is no memory for the entry; nothing is
  /// changed then, as in all operations on the registry.
  static StrongPtr<SaveInterfaceCreatorBase>&
  getInterfaceCreator(const std::type_info& type, const std::type_info& interfaceType);

  /// The same as a mere look-up: empty when there is none, and nothing is made.
  static StrongPtr<SaveInterfaceCreatorBase>
  findInterfaceCreator(const std::type_info& type, const std::type_info& interfaceType);

  /// Takes a creator out. False when there is no entry. A type that is local to its module leaves
  /// the registry with its last entry.
  static bool removeCreator(const std::type_info& type, const std::type_info& interfaceType);

  /// The same, but only if it is that creator, and not one that replaced it.
  static bool removeCreator(const std::type_info& type, const std::type_info& interfaceType,
                            const WeakPtr<SaveInterfaceCreatorBase>& creator);

  /// Removes all that refers to `type`, as an object or as an interface. For types of a module that
  /// is about to be unloaded.
  static void forget(const std::type_info& type);

  /// Calls `iterator` for the creators of `type` and then of every type that follows it in the
  /// registry, until it answers false. Returns how often it answered true; 0 for a type that is not
  /// known, which stays so. A caller who wants the creators of `type` alone ends the walk himself
  /// or uses SaveMethods().
  static int iterate(const std::type_info& type, Iterator& iterator);

  /// Calls visitCreator() of this object for every creator of `type`, and makes an empty entry for
  /// a type that is not known. Returns how often it answered true.
  int traverseCreators(const std::type_info& type);
};

} // namespace Tolvane
