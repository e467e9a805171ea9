#pragma once

#include <tolvane/Interface.hpp>
#include <tolvane/SaveRegistryBase.hpp>

#include <type_traits>
#include <typeinfo>
#include <utility>

/// @file
/// The save methods of one type of object, and how a module brings its own.
///
/// @code
/// #include <tolvane/SaveRegistry.hpp>
/// #include <tolvane/StreamSaverInterface.hpp>
///
/// // In the module that has the creator; registered while the module is loaded:
/// static const Tolvane::SaveRegistry<Volume>::Registration<Tolvane::StreamSaverInterface,
///                                                          VolumeStreamCreator> registration;
///
/// // Anywhere:
/// auto creator =
///     Tolvane::SaveRegistry<Volume>::findInterfaceCreator<Tolvane::StreamSaverInterface>();
/// @endcode

namespace Tolvane {

/// The part of the save registry for objects of type `T`; see SaveRegistryBase. An interface class
/// `I` stands for the type that its objects are filed under.
///
/// Derive from it and override visitCreator() to use traverseCreators(); the rest is static.
///
/// Thread safety: that of SaveRegistryBase.
template <class T>
class SaveRegistry : public SaveRegistryBase {
public:
  /// See SaveRegistryBase::SaveMethods().
  static SaveMethodMap& SaveMethods() { return SaveRegistryBase::SaveMethods(typeid(T)); }

  /// See SaveRegistryBase::getInterfaceCreator().
  template <class I>
  static StrongPtr<SaveInterfaceCreatorBase>& getInterfaceCreator() {
    return SaveRegistryBase::getInterfaceCreator(typeid(T), detail::interfaceKey<I>());
  }

  /// See SaveRegistryBase::findInterfaceCreator().
  template <class I>
  static StrongPtr<SaveInterfaceCreatorBase> findInterfaceCreator() {
    return SaveRegistryBase::findInterfaceCreator(typeid(T), detail::interfaceKey<I>());
  }

  /// See SaveRegistryBase::removeCreator().
  template <class I>
  static bool removeCreator() {
    return SaveRegistryBase::removeCreator(typeid(T), detail::interfaceKey<I>());
  }

  /// See SaveRegistryBase::iterate().
  static int iterate(Iterator& iterator) { return SaveRegistryBase::iterate(typeid(T), iterator); }

  /// See SaveRegistryBase::traverseCreators().
  int traverseCreators() { return SaveRegistryBase::traverseCreators(typeid(T)); }

  /// Registers a creator of interfaces `I` as long as it lives. Meant for a static object of the
  /// module that has the creator: it comes with the module and is taken out again before the module
  /// goes. A creator that replaced it meanwhile stays. Entries that the module made otherwise, also
  /// by asking about a type of its own, are left to SaveRegistryBase::forget().
  template <class I, class Creator>
  class Registration {
    static_assert(std::is_base_of_v<SaveInterfaceCreatorBase, Creator>,
                  "a creator derives from SaveInterfaceCreatorBase");

  public:
    /// Makes the creator from `arguments` and registers it.
    template <class... Arguments>
    explicit Registration(Arguments&&... arguments) {
      const StrongPtr<SaveInterfaceCreatorBase> creator =
          new Creator(std::forward<Arguments>(arguments)...);
      getInterfaceCreator<I>() = creator;
      creator_ = creator;
    }

    /// Takes the creator out and releases it.
    ~Registration() {
      SaveRegistryBase::removeCreator(typeid(T), detail::interfaceKey<I>(), creator_);
    }

    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

    /// The creator; reads as empty once it is replaced and nobody holds it.
    const WeakPtr<SaveInterfaceCreatorBase>& creator() const noexcept { return creator_; }

  private:
    WeakPtr<SaveInterfaceCreatorBase> creator_;
  };
};

} // namespace Tolvane
