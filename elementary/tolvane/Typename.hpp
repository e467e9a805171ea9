#pragma once

/// @file
/// Readable names and small integers for run-time types, and a place to give a type a name of
/// one's own. Every diagnostic of the library prints types through `Typename`.
///
/// @code
/// #include <tolvane/Typename.hpp>
///
/// struct Grid {};
/// static const Tolvane::DefineTypename<Grid> gridName("Grid<float,3>");
/// // Tolvane::Typename(typeid(Grid)) is "Grid<float,3>" from now on.
/// @endcode
///
/// @par Thread safety
/// Every function here may be called from any thread at any time; no lock is held while a function
/// calls out of the library, and asking for a registered name takes none. When a process ends on
/// Windows, code that runs while its modules are unloaded never waits for a table: where a thread
/// that is gone had locked it, a name is not registered any more and an ID is 0.

#include <tolvane/Api.hpp>

#include <cstdint>
#include <string>
#include <typeinfo>

namespace Tolvane {

/// The readable name of a type: the name it was registered with, otherwise the result of
/// `demangleSymbol` for its mangled name.
///
/// The names of the fundamental types are registered by the first call of `demangleSymbol` in the
/// process and not before. So the very first `Typename(typeid(int))` of a process answers "int"
/// and all later ones "int32_t".
/// @throws std::bad_alloc when there is no memory for the name.
TOLVANE_API std::string Typename(const std::type_info& type);

/// Turns the mangled name of a type or of a symbol into the way it is written in C++.
///
/// A text that is no mangled name is taken for a plain C symbol and comes back with " [C ABI]"
/// behind it; other failures of the demangler are told behind the text as well. The first call in
/// the process registers the default names: the fundamental types by size and sign ("int32_t",
/// "u_int8_t", ...) and "std::string". They replace names registered before for these types. On
/// every platform `long` is "long" and `unsigned long` "u_int32_t".
/// @param name  not owned; ends with NUL.
/// @throws std::logic_error when @p name is null; std::bad_alloc when there is no memory for the
///         result.
TOLVANE_API std::string demangleSymbol(const char* name);

/// The integer that stands for a type in this process: the first type ever asked for has 2, the
/// next new one 3, and so on. It is the same in all modules and stays until the process ends, but
/// differs from run to run with the order of first requests.
/// @throws std::bad_alloc when there is no memory for a new entry.
TOLVANE_API std::int64_t getTypeID(const std::type_info& type);

/// Registers and forgets readable names of types; the base of `DefineTypename`.
class TOLVANE_API DefineTypenameBase {
public:
  /// Gives @p type the readable name @p name, in place of one it had. The type must live until
  /// the name is removed: a module that is unloaded removes the names of its types first. Each
  /// different text stays in memory until the process ends, once, for a thread that may be reading
  /// it; so do some hundred bytes for each type that is local to its module, each time it is named.
  /// @throws std::bad_alloc when there is no memory for the entry.
  static void setTypename(const std::type_info& type, const std::string& name);

  /// Forgets the name of @p type, whoever registered it; does nothing when it has none.
  static void removeTypename(const std::type_info& type);
};

/// Names the type @p T as long as the object lives. Meant for a static object of the module that
/// defines the type: the name is there from the module's loading until its unloading.
///
/// One object per type, please: with two, the death of the first takes the name away.
template <typename T>
class DefineTypename : public DefineTypenameBase {
public:
  /// Registers @p name for `T`. @throws std::bad_alloc when there is no memory for the entry.
  explicit DefineTypename(const std::string& name) { setTypename(typeid(T), name); }

  /// Forgets the name of `T`.
  ~DefineTypename() { removeTypename(typeid(T)); }

  DefineTypename(const DefineTypename&) = delete;
  DefineTypename& operator=(const DefineTypename&) = delete;
};

namespace detail {

/// The mangled name of a type without the "*" that marks a type local to its module.
inline const char* rawName(const std::type_info& type) noexcept {
  const char* name = type.name();
  return *name == '*' ? name + 1 : name;
}

/// Whether a first demangling has given the plain types their readable names, so that another
/// request for a name has no such effect any more. Not part of the public interface.
bool defaultTypenamesInstalled() noexcept;

/// The type whose registered name is exactly @p name, or `typeid(void)` when none is. When several
/// types carry the name, any of them. Not part of the public interface.
TOLVANE_API const std::type_info& typeByName(const std::string& name);

} // namespace detail
} // namespace Tolvane
