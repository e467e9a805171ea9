#pragma once

#include <tolvane/Api.hpp>

#include <cstdint>
#include <string>
#include <typeinfo>

/// @file
/// What pointers say: the reporter of pointer events and misuse, on standard output.
///
/// @code
/// Tolvane::StrongPtr<Grid> grid;
/// Tolvane::SpeakPtr::theSpeaker().printRS("here", "grid", typeid(Grid), false);
/// // prints "gridhere: (ptr: Grid) {NULL}"
/// @endcode

namespace Tolvane {

/// The reporter of pointer events.
///
/// Of the operations that come in pairs, the one whose name ends in `RS` prints readable type
/// names, the other the raw names of the compiler; all others print readable names. `a` and `b` are
/// the two leading texts: the caller's prefix and the description of the pointer. None of them
/// throws, except InvalidPtrAccess(), whose job it is: an exception from formatting, such as
/// exhausted memory, ends the process.
///
/// Thread safety: it has no state; lines of several threads may interleave.
class TOLVANE_API SpeakPtr {
public:
  /// The one reporter of the process.
  static SpeakPtr& theSpeaker() noexcept;

  /// Does nothing: reports always go to the built-in reporter.
  static void setSpeaker(SpeakPtr& speaker) noexcept;

  SpeakPtr(const SpeakPtr&) = delete;
  SpeakPtr& operator=(const SpeakPtr&) = delete;

  /// Prints a pointer that refers to nothing, or, with `invalid`, to a dead object. `b` comes
  /// before `a`.
  void print(const char* a, const char* b, const std::type_info& type, bool invalid) noexcept;
  /// The same with the readable name.
  void printRS(const char* a, const char* b, const std::type_info& type, bool invalid) noexcept;

  /// Prints a pointer with its counts, its base type, and the addresses of its record and its
  /// object. `b` comes before `a`.
  void print(const char* a, const char* b, const std::type_info& type, int strong, int weak,
             const std::type_info& baseType, const void* referer, const void* object) noexcept;
  /// The same with readable names.
  void printRS(const char* a, const char* b, const std::type_info& type, int strong, int weak,
               const std::type_info& baseType, const void* referer, const void* object) noexcept;

  /// Prints a pointer that has no record. `a` comes before `b`, here and below.
  void DynPtrNoReferer(const char* a, const char* b, const std::type_info& type,
                       const std::type_info& baseType) noexcept;
  /// The same with readable names.
  void DynPtrNoRefererRS(const char* a, const char* b, const std::type_info& type,
                         const std::type_info& baseType) noexcept;

  /// Prints a pointer whose object is dead.
  void DynPtrInvalidReferer(const char* a, const char* b, const std::type_info& type,
                            const std::type_info& baseType, int strong, int weak) noexcept;
  /// The same with readable names.
  void DynPtrInvalidRefererRS(const char* a, const char* b, const std::type_info& type,
                              const std::type_info& baseType, int strong, int weak) noexcept;

  /// Prints a pointer and the cast from `fromType` to `toType` behind it: the result of the cast
  /// and the address that verifies it.
  void DynPtrInfo(const char* a, const char* b, const std::type_info& type, int strong, int weak,
                  const std::type_info& baseType, const void* referer, const void* object,
                  const std::type_info& fromType, const std::type_info& toType, const void* cast,
                  const void* verification) noexcept;
  /// The same with readable names.
  void DynPtrInfoRS(const char* a, const char* b, const std::type_info& type, int strong, int weak,
                    const std::type_info& baseType, const void* referer, const void* object,
                    const std::type_info& fromType, const std::type_info& toType, const void* cast,
                    const void* verification) noexcept;

  /// A holder of a record was dropped though the record counted none.
  void CriticalWarning(const std::type_info& type, const std::type_info& baseType,
                       const void* object, const void* referer) noexcept;

  /// A pointer member was copied from itself while it was made.
  void SelfConstruction(const std::type_info& type, const void* field, const void* source) noexcept;

  /// A pointer's object does not cast to the type that the pointer claims. Enters breakpoint().
  /// `castOfRecord` and `castOfObject` are the results of the cast of the record's object and of
  /// the true object, the other two the addresses that were cast.
  void InconsistentDynPtr(const std::type_info& objectType, const std::type_info& baseType,
                          const std::type_info& trueType, const void* castOfRecord,
                          const void* castOfObject, const void* recordObject,
                          const void* trueObject, std::uint64_t serial) noexcept;

  /// An empty or invalid pointer was used. Prints, enters breakpoint(), and throws
  /// NullPtrException. `arrow` tells `->` from `*`; `pointerType` is the type of the pointer,
  /// `identity` the object's address as far as it is known, `via` the address of the record.
  [[noreturn]] void InvalidPtrAccess(bool arrow, const std::type_info& pointerType,
                                     const std::type_info& objectType,
                                     const std::type_info& baseType, const std::type_info& trueType,
                                     int strong, int weak, const void* identity, const void* via,
                                     std::uint64_t serial);

  /// @name Silent events
  /// Places for a debugger to stop at: they compute the readable type name and print nothing.
  /// @{
  void DestructionCancelled(int strong, int weak, const std::type_info& type) noexcept;
  void DestructionAssertion(int strong, int weak, const std::type_info& type) noexcept;
  void WarningUnctionChange(int strong, int weak, const std::type_info& type) noexcept;
  void DynPtrInvalid(const void* referer, const void* object, int strong, int weak,
                     const std::type_info& type) noexcept;
  void WeakPtrConstructionInfo(int strong, int weak, const std::type_info& type,
                               const void* object) noexcept;
  void WeakPtrDestructionInfo(int strong, int weak, const std::type_info& type,
                              const void* object) noexcept;
  /// @}

private:
  SpeakPtr() = default;
  ~SpeakPtr() = default;
};

/// Where a strong pointer to a dead object was copied.
struct TOLVANE_API IncrementDeadRefPtr {
  /// Called with the counts after the copy; silent like the events of SpeakPtr.
  static void inc(int strong, int weak, const std::type_info& type,
                  const std::type_info& baseType) noexcept;
};

/// An address as text, as "%p" writes it on the platform.
TOLVANE_API std::string to_address_string(const void* address);

/// Notes the source line that a host is at, for its own reports. The text is not copied: it must
/// live as long as it may be asked for. Any thread may call.
TOLVANE_API void setLastKnownSourceCodeLine(const char* line) noexcept;

/// The text noted last; "(none)" before the first.
TOLVANE_API const char* getLastKnownSourceCodeLine() noexcept;

} // namespace Tolvane
