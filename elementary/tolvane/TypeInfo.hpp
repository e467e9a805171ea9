#pragma once

/// @file
/// `TypeInfo` is the key of every container that is keyed by type: a copyable value that stands
/// for one run-time type. Two keys of the same type are equal and hash alike, also when they were
/// made in different modules.
///
/// @code
/// #include <tolvane/TypeInfo.hpp>
/// #include <unordered_map>
///
/// std::unordered_map<Tolvane::TypeInfo, int> sizes{{typeid(float), 4}, {typeid(double), 8}};
/// @endcode

#include <cstddef>
#include <functional>
#include <typeinfo>

namespace Tolvane {

/// A copyable reference to one `std::type_info`, one pointer wide.
///
/// It does not own the type: the key of a type that was defined by a module loaded at run time
/// dangles once the module is unloaded, so it must leave every container first.
///
/// @par Thread safety
/// Concurrent reads are safe, an assignment needs exclusive access.
class TypeInfo {
public:
  /// Stands for @p type, which must live as long as this key and its copies are used.
  TypeInfo(const std::type_info& type) noexcept : type_(&type) {}

  /// The type.
  const std::type_info& get() const noexcept { return *type_; }

  /// The type's mangled name, owned by the type.
  const char* name() const noexcept { return type_->name(); }

  /// The standard hash code of the type: a hash of its mangled name.
  std::size_t hash_code() const noexcept { return type_->hash_code(); }

  /// Whether both stand for the same type.
  friend bool operator==(TypeInfo a, TypeInfo b) noexcept { return *a.type_ == *b.type_; }

private:
  const std::type_info* type_;
};

} // namespace Tolvane

/// Hashes a type key by its type's hash code.
template <>
struct std::hash<Tolvane::TypeInfo> {
  /// The hash code of @p type. Not noexcept, though it never throws: the standard library then
  /// keeps the hash of each entry instead of hashing the names of a whole bucket at every look-up.
  std::size_t operator()(Tolvane::TypeInfo type) const { return type.hash_code(); }
};
