#pragma once

#include <tolvane/Interface.hpp>
#include <tolvane/TypeInfo.hpp>

#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>

/// @file
/// An object that carries interfaces: at most one companion object per type, attached by whoever
/// wants to and found by type. Components decorate a shared object without its class knowing them.
///
/// @code
/// #include <tolvane/Intercube.hpp>
///
/// struct Unit : Tolvane::Interface<Unit> {
///   std::string name = "mm";
/// };
///
/// Tolvane::Intercube cube;
/// cube.addInterface(new Unit);
/// if (auto unit = cube.findInterface<Unit>()) {
///   std::cout << unit->name;
/// }
/// cube.removeInterface<Unit>();
/// @endcode

namespace Tolvane {

/// Visits the slots of an Intercube; see Intercube::iterateInterfaces(IntercubeIterator&).
class TOLVANE_API IntercubeIterator {
public:
  virtual ~IntercubeIterator();

  /// Called with each type and its slot, also an empty one. The slot is the entry itself: what is
  /// assigned to it is stored, and it is gone once the entry is removed. True goes on, false ends
  /// the walk.
  virtual bool visit(TypeInfo key, StrongPtr<InterfaceBase>& slot) = 0;
};

/// A set of interfaces by type.
///
/// A *slot* for a type is absent, or present and empty (registered, waiting to be filled by
/// createInterface()), or holds an interface. The interfaces are owned; each is released when it is
/// replaced or removed, or when the Intercube is destroyed.
///
/// Slots are walked in the order of a hash table of the types' hash codes. Code that is called in
/// between (an interface that is released, apply(), visit(), createInterface()) may add and remove
/// interfaces: a walk goes over the slots that were there when it began, as far as they still are.
/// An Intercube that is being destroyed reads as empty and takes no interface. A walk in which it
/// is destroyed ends there, and getInterface() then gives nothing.
///
/// The key of a slot refers to the type: a module takes its interfaces out before it is unloaded.
///
/// An Intercube is neither copied nor moved: its interfaces belong to the one object.
///
/// Thread safety: none; users of one Intercube serialise. That holds for the const operations as
/// well, of which addInterface() changes the set. Threads that only look, by findInterface(),
/// hasInterface() and const_iterateInterfaces() of interfaces that change nothing, may do so
/// together.
class TOLVANE_API Intercube {
public:
  /// No interfaces. @throws std::bad_alloc when there is no memory for the set.
  Intercube();
  virtual ~Intercube();
  Intercube(const Intercube&) = delete;
  Intercube& operator=(const Intercube&) = delete;

  /// Makes an interface for a slot that is registered and empty; override it in a class that makes
  /// its interfaces on demand. Called by getInterface(), which stores what it returns; an empty
  /// pointer leaves the slot empty. The default makes none.
  virtual StrongPtr<InterfaceBase> createInterface(const std::type_info& type);

  /// Files an interface under its interfaceType(), in the place of one that is there. An empty
  /// pointer is ignored. Allowed on a const object: the interfaces are companions, not state.
  /// @throws std::bad_alloc when there is no memory for the slot.
  void addInterface(const StrongPtr<InterfaceBase>& ip) const;

  /// Makes sure that there is a slot for `type`, and empties it; what the destructor of the old
  /// occupant puts there stays. The reference is good until the slot is removed. @throws
  /// std::bad_alloc when there is no memory for the slot, and std::logic_error when that destructor
  /// destroyed this object.
  StrongPtr<InterfaceBase>& registerInterface(const std::type_info& type);

  /// The interface filed under `type`, made by createInterface() where the slot is empty. Empty
  /// when there is no slot or nothing was made.
  StrongPtr<InterfaceBase> getInterface(const std::type_info& type);

  /// The interface filed under `type`, else an empty pointer. Never makes one.
  StrongPtr<InterfaceBase> findInterface(const std::type_info& type) const;

  /// Whether there is a slot for `type`, be it empty.
  bool hasInterface(const std::type_info& type) const;

  /// Removes the slot of `type` and releases its interface; nothing when there is none.
  void removeInterfaceBase(const std::type_info& type);

  /// Removes all slots and releases their interfaces. What is added by code that runs during a
  /// release stays.
  void clearInterfaces();

  /// @name Typed access
  /// As the operations above, for the type that objects of class `T` are filed under: for a class
  /// that derives from `Interface<Y>`, or for the tag `Y` itself, that is `Y`.
  /// @{

  /// Empty also when the interface is of another class than `T`.
  template <class T>
  StrongPtr<T, InterfaceBase> getInterface() {
    requireObjects<T>();
    return StrongPtr<T, InterfaceBase>(getInterface(detail::interfaceKey<T>()));
  }

  /// Empty also when the interface is of another class than `T`.
  template <class T>
  StrongPtr<T, InterfaceBase> findInterface() const {
    requireObjects<T>();
    return StrongPtr<T, InterfaceBase>(findInterface(detail::interfaceKey<T>()));
  }

  /// See hasInterface().
  template <class T>
  bool hasInterface() const {
    return hasInterface(detail::interfaceKey<T>());
  }

  /// See registerInterface().
  template <class T>
  StrongPtr<InterfaceBase>& registerInterface() {
    return registerInterface(detail::interfaceKey<T>());
  }

  /// See removeInterfaceBase().
  template <class T>
  void removeInterface() {
    removeInterfaceBase(detail::interfaceKey<T>());
  }
  /// @}

  /// Calls apply() of each interface with this object and `parameter`, until one answers false. The
  /// result is true either way: what callers want to know comes back in the parameter.
  bool iterateInterfaces(const StrongPtr<InterfaceIterationParameter>& parameter);

  /// The same with apply_const().
  bool const_iterateInterfaces(const StrongPtr<InterfaceIterationParameter>& parameter) const;

  /// Calls `iterator` for each slot, until it answers false. Returns how often it answered true.
  int iterateInterfaces(IntercubeIterator& iterator) const;

  /// The mangled names of the types of all slots, each followed by `separator`.
  std::string getInterfaceNames(char separator) const;

  /// Prints the number of slots and the mangled names of their types to standard output.
  void printInterfaces() const;

private:
  struct Slots;

  template <class T>
  static constexpr void requireObjects() {
    static_assert(std::is_polymorphic_v<T>,
                  "this is a tag, which has no objects: name the class that derives from "
                  "Interface<> of it, or look it up by typeid");
  }

  StrongPtr<InterfaceBase>* findSlot(const std::type_info& type) const;
  template <class Call>
  void forEachLive(Call call) const;

  std::shared_ptr<Slots> slots_;
};

} // namespace Tolvane
