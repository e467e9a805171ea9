#pragma once

#include <tolvane/InstanceCounter.hpp>
#include <tolvane/WeakPtr.hpp>

/// @file
/// The base of every object that pointers of this library refer to.
///
/// @code
/// #include <tolvane/StrongPtr.hpp>
///
/// class Grid : public Tolvane::ReferenceBase<Grid> {
/// public:
///   explicit Grid(int cells) : cells(cells) {}
///   const int cells;
/// };
///
/// Tolvane::StrongPtr<Grid> grid = new Grid(8);
/// @endcode

namespace Tolvane {

/// Gives a class its reference counts, a weak pointer to itself, and a number.
///
/// `T` is the deriving class. Classes derived from `T` are held through `StrongPtr<Derived, T>`.
///
/// Thread safety: the counts are atomic. Construction and destruction belong to one thread, as
/// those of any object.
template <class T>
class ReferenceBase {
public:
  /// Called when the last strong pointer is about to go, while it still holds the object. A strong
  /// pointer taken here and kept saves the object. Does nothing by default. Must not throw: it is
  /// called from destructors.
  virtual void unction() {}

  /// Marks the object as dead for the pointers that remain.
  virtual ~ReferenceBase() { detail::PointerAccess::referer(self_)->markDestructor(); }

  /// The object's pointer to itself; to be passed wherever a weak pointer to it is wanted.
  const WeakPtr<T, T>& self() const noexcept { return self_; }

  /// How many instances of `T` the process made before this one.
  std::uint64_t instanceNumber() const noexcept { return instance_; }

  /// How many instances of `T` the process made so far; the next one gets this number.
  static std::uint64_t instancesMade() { return counter().load(); }

protected:
  /// Throws std::bad_alloc when there is no memory for the record.
  ReferenceBase() : self_(detail::Referer::create(this)), instance_(counter().fetch_add(1)) {}

  /// A copy is an object of its own: with its own counts, pointer and number.
  ReferenceBase(const ReferenceBase&) : ReferenceBase() {}

  /// Counts, pointer and number belong to the object, not to its value.
  ReferenceBase& operator=(const ReferenceBase&) noexcept { return *this; }

private:
  TOLVANE_LOCAL static std::atomic<std::uint64_t>& counter() {
    static std::atomic<std::uint64_t>& shared = detail::instanceCounter(typeid(T));
    return shared;
  }

  // The hold of this pointer is the object's own hold on its record.
  WeakPtr<T, T> self_;
  std::uint64_t instance_;
};

} // namespace Tolvane
