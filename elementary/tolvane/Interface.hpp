#pragma once

#include <tolvane/InterfaceBase.hpp>

#include <typeinfo>

/// @file
/// The class template that interfaces derive from. Its argument is the type that the interface is
/// filed under: usually the deriving class itself, or a tag that several classes answer to.
///
/// @code
/// #include <tolvane/Interface.hpp>
///
/// struct Unit : Tolvane::Interface<Unit> { std::string name; };
///
/// class Painter {};                                      // a tag
/// struct PaintOnScreen : Tolvane::Interface<Painter> {}; // either one is "the painter" of an
/// struct PaintOnPaper : Tolvane::Interface<Painter> {};  // object, and never both
/// @endcode

namespace Tolvane {

/// An interface that is filed under `T`.
template <class T>
class Interface : public InterfaceBase {
public:
  /// What typed look-ups of a deriving class ask for.
  using InterfaceKey = T;

  /// `T`, whatever the deriving class is.
  const std::type_info& interfaceType() const override { return typeid(T); }
};

namespace detail {

/// The type that objects of class `T` are filed under, or that a tag `T` stands for.
template <class T>
const std::type_info& interfaceKey() noexcept {
  if constexpr (requires { typename T::InterfaceKey; }) {
    return typeid(typename T::InterfaceKey);
  } else {
    return typeid(T);
  }
}

} // namespace detail
} // namespace Tolvane
