#pragma once

#include <tolvane/DynPtr.hpp>
#include <tolvane/ReferenceBase.hpp>

/// @file
/// The owning pointer: an object lives as long as one refers to it.
///
/// @code
/// #include <tolvane/StrongPtr.hpp>
///
/// struct Grid : Tolvane::ReferenceBase<Grid> {
///   int cells = 0;
/// };
///
/// Tolvane::StrongPtr<Grid> grid = new Grid;
/// grid->cells = 8;
/// Tolvane::WeakPtr<Grid> watched = grid;
/// grid = nullptr;           // the grid is destroyed here
/// assert(!watched.lock());
/// @endcode

namespace Tolvane {

/// An owning pointer to a `T` whose count lives in the object (`ReferenceBase<Base>`).
///
/// The first strong pointer decides over the object's life: when the last one goes, the object is
/// destroyed with `delete`. So an object made on the stack is never held by a strong pointer, and
/// a constructor that takes a strong pointer to its own object and drops it destroys the object
/// under construction.
///
/// Conversion to a base class is implicit; down and across it is explicit, goes through a dynamic
/// cast, and gives an empty pointer when the object is of another type.
///
/// Access through an empty or invalid pointer prints a report and throws NullPtrException. More
/// pointers than a signed 32-bit count holds make a copy throw MaxExceptionCount.
///
/// Thread safety: see DynPtr. A copy of a dead pointer is dead as well; it holds the record only.
template <class T, class Base>
class StrongPtr : public DynPtr<T, Base> {
  using Core = DynPtr<T, Base>;
  using Core::myReferer;

  template <class U>
  static constexpr bool
      Upcast = (std::is_same_v<T, Base> && !std::is_const_v<U>) || std::is_convertible_v<U*, T*>;

public:
  /// An empty pointer.
  StrongPtr() noexcept = default;
  /// An empty pointer.
  StrongPtr(std::nullptr_t) noexcept {}

  /// Owns `object`, which was made with `new`; nothing when it is null.
  StrongPtr(T* object) { myReferer = shared(Core::aim(object)); }

  /// One more owner of the object of `other`.
  StrongPtr(const StrongPtr& other)
      : Core(Core::copiesItself(this, other) ? nullptr : shared(other.myReferer)) {
    Core::copyTarget(other);
  }

  /// Takes over the hold of `other`, which is empty afterwards. Changes no count.
  StrongPtr(StrongPtr&& other) noexcept : Core() { Core::swapRecords(other); }

  /// Converts a strong pointer to another type of the same base.
  template <class U>
  explicit(!Upcast<U>) StrongPtr(const StrongPtr<U, Base>& other) {
    if (Core::aim(other)) {
      myReferer = shared(detail::PointerAccess::referer(other));
    }
  }

  /// The same, taking over the hold; `other` keeps it when its object is of another type.
  template <class U>
  explicit(!Upcast<U>) StrongPtr(StrongPtr<U, Base>&& other) noexcept {
    if (Core::aim(other)) {
      myReferer = detail::PointerAccess::takeReferer(other);
    }
  }

  /// Owns the object of a weak pointer; empty when that is gone.
  template <class U>
  requires std::is_same_v<U, T> StrongPtr(const WeakPtr<U, Base>& other)
      : Core(locked(detail::PointerAccess::referer(other), 0)) {
    Core::copyTarget(other);
  }

  /// The same for a weak pointer of another type.
  template <class U>
  explicit(!Upcast<U>) StrongPtr(const WeakPtr<U, Base>& other) {
    if (Core::aim(other)) {
      myReferer = locked(detail::PointerAccess::referer(other), 0);
    }
  }

  /// Refused: two bases count apart.
  template <class U, class OtherBase>
  requires(!std::is_same_v<OtherBase, Base>) explicit StrongPtr(const DynPtr<U, OtherBase>&) {
    static_assert(std::is_same_v<OtherBase, Base>,
                  "the two pointers count in different ReferenceBase classes: convert through "
                  "get() where the object really has both");
  }

  ~StrongPtr() {
    if (myReferer != nullptr) {
      Core::releaseStrong(*myReferer);
    }
  }

  /// Owns the object of `other` from now on; the serial stays.
  StrongPtr& operator=(const StrongPtr& other) {
    if (myReferer != other.myReferer) {
      StrongPtr(other).swap(*this);
    }
    return *this;
  }

  /// The same, taking the hold over; `other` is empty afterwards.
  StrongPtr& operator=(StrongPtr&& other) noexcept {
    StrongPtr(std::move(other)).swap(*this);
    return *this;
  }

  /// Drops the hold; destroys the object when it was the last one.
  void reset() noexcept { StrongPtr().swap(*this); }

  /// Exchanges the objects; the serials stay.
  void swap(StrongPtr& other) noexcept { Core::swapRecords(other); }

  /// The object; a report and NullPtrException when there is none.
  T* operator->() const { return Core::checked(true, typeid(StrongPtr)); }
  /// The object; a report and NullPtrException when there is none.
  T& operator*() const { return *Core::checked(false, typeid(StrongPtr)); }

  /// A further hold on an object that has a strong pointer already, for as long as it is looked
  /// at; empty for any other, which the end of the hold would destroy.
  static StrongPtr holdIfHeld(const WeakPtr<T, Base>& pointer) {
    StrongPtr hold(Counted{locked(detail::PointerAccess::referer(pointer), 1)});
    hold.copyTarget(pointer);
    return hold;
  }

private:
  /// Tells a record that is held for the pointer already from any other argument.
  struct Counted {
    detail::Referer* referer;
  };
  explicit StrongPtr(Counted counted) noexcept : Core(counted.referer) {}

  /// The record with one strong pointer more; null for none.
  static detail::Referer* shared(detail::Referer* referer) {
    if (referer == nullptr) {
      return nullptr;
    }
    const detail::Referer::Raise raised = referer->addStrong();
    if (raised != detail::Referer::Raise::Done) [[unlikely]] {
      if (raised == detail::Referer::Raise::AtLimit) {
        Core::throwAtLimit(*referer);
      }
      const detail::Referer::Counts counts = referer->counts();
      IncrementDeadRefPtr::inc(counts.strong, counts.weak, typeid(T), typeid(Base));
    }
    return referer;
  }

  /// The same of an object that is alive and has `least` strong pointers; null for any other.
  static detail::Referer* locked(detail::Referer* referer, std::int32_t least) {
    if (referer == nullptr) {
      return nullptr;
    }
    const detail::Referer::Raise raised = referer->lock(least);
    if (raised == detail::Referer::Raise::AtLimit) [[unlikely]] {
      Core::throwAtLimit(*referer);
    }
    return raised == detail::Referer::Raise::Done ? referer : nullptr;
  }
};

} // namespace Tolvane

/// The hash of a strong pointer: that of its record.
template <class T, class Base>
struct std::hash<Tolvane::StrongPtr<T, Base>> {
  /// The hash of the record.
  std::size_t operator()(const Tolvane::StrongPtr<T, Base>& pointer) const noexcept {
    return pointer.hash();
  }
};
