#pragma once

#include <tolvane/Api.hpp>
#include <tolvane/StrongPtr.hpp>

#include <typeinfo>

/// @file
/// What every interface of an Intercube has in common. Interfaces derive from `Interface<T>`,
/// which derives from this.
///
/// @code
/// #include <tolvane/Intercube.hpp>
///
/// struct Unit : Tolvane::Interface<Unit> {
///   bool apply(Tolvane::Intercube& owner,
///              const Tolvane::StrongPtr<Tolvane::InterfaceIterationParameter>&) override {
///     return inspect(owner); // true: go on with the next interface
///   }
/// };
/// @endcode

namespace Tolvane {

class Intercube;

/// Carries the data of one walk over the interfaces of an Intercube to each of them, and what they
/// found back. Derive from it to add members.
class TOLVANE_API InterfaceIterationParameter : public ReferenceBase<InterfaceIterationParameter> {
public:
  ~InterfaceIterationParameter() override;
};

/// A small companion object that is attached to an Intercube and found there by its type.
///
/// Thread safety: the counts are atomic, everything else is that of the deriving class.
class TOLVANE_API InterfaceBase : public ReferenceBase<InterfaceBase> {
public:
  ~InterfaceBase() override;

  /// The type that the interface is filed under. It must be the same at every call.
  virtual const std::type_info& interfaceType() const = 0;

  /// Called by Intercube::const_iterateInterfaces() with the object that carries the interface and
  /// the parameter of the walk, which may be empty. True goes on to the next interface, false ends
  /// the walk; the default answers true.
  virtual bool apply_const(const Intercube& owner,
                           const StrongPtr<InterfaceIterationParameter>& parameter);

  /// The same for Intercube::iterateInterfaces().
  virtual bool apply(Intercube& owner, const StrongPtr<InterfaceIterationParameter>& parameter);
};

} // namespace Tolvane
