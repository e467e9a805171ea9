#pragma once

#include <tolvane/DynPtr.hpp>

/// @file
/// The observing pointer: it knows whether its object is still alive and does not keep it so.
///
/// @code
/// #include <tolvane/WeakPtr.hpp>
///
/// void show(const Tolvane::WeakPtr<Grid>& watched) {
///   if (Tolvane::StrongPtr<Grid> grid = watched.lock()) {
///     std::cout << grid->cells;   // alive until the end of this block
///   }
/// }
/// @endcode

namespace Tolvane {

/// An observing pointer to a `T` whose count lives in the object (`ReferenceBase<Base>`).
///
/// It never keeps the object alive, only its record. lock(), or the conversion to StrongPtr,
/// gives the object for as long as it is used; access through `->` and `*` is checked but holds
/// nothing, so it is for objects that the caller knows to be held elsewhere.
///
/// Conversions, access to empty pointers and limits are those of StrongPtr.
///
/// Thread safety: see DynPtr; lock() is safe beside the release of the last strong pointer.
template <class T, class Base>
class WeakPtr : public DynPtr<T, Base> {
  using Core = DynPtr<T, Base>;
  using Core::myReferer;

  template <class U>
  static constexpr bool
      Upcast = (std::is_same_v<T, Base> && !std::is_const_v<U>) || std::is_convertible_v<U*, T*>;

public:
  /// An empty pointer.
  WeakPtr() noexcept = default;
  /// An empty pointer.
  WeakPtr(std::nullptr_t) noexcept {}

  /// Observes `object`; nothing when it is null.
  WeakPtr(T* object) { myReferer = watched(Core::aim(object)); }

  /// Observes the object of `other`.
  WeakPtr(const WeakPtr& other)
      : Core(Core::copiesItself(this, other) ? nullptr : watched(other.myReferer)) {
    Core::copyTarget(other);
  }

  /// Takes over the hold on the record; `other` is empty afterwards. Changes no count.
  WeakPtr(WeakPtr&& other) noexcept : Core() { Core::swapRecords(other); }

  /// Observes the object of any pointer of the same base.
  template <class U>
  explicit(!Upcast<U>) WeakPtr(const DynPtr<U, Base>& other) {
    if (Core::aim(other)) {
      myReferer = watched(detail::PointerAccess::referer(other));
    }
  }

  /// Refused: two bases count apart.
  template <class U, class OtherBase>
  requires(!std::is_same_v<OtherBase, Base>) explicit WeakPtr(const DynPtr<U, OtherBase>&) {
    static_assert(std::is_same_v<OtherBase, Base>,
                  "the two pointers count in different ReferenceBase classes: convert through "
                  "get() where the object really has both");
  }

  ~WeakPtr() {
    if (myReferer != nullptr) {
      Core::releaseWeak(*myReferer);
    }
  }

  /// Observes the object of `other` from now on; the serial stays.
  WeakPtr& operator=(const WeakPtr& other) {
    if (myReferer != other.myReferer) {
      WeakPtr(other).swap(*this);
    }
    return *this;
  }

  /// The same, taking the hold over; `other` is empty afterwards.
  WeakPtr& operator=(WeakPtr&& other) noexcept {
    WeakPtr(std::move(other)).swap(*this);
    return *this;
  }

  /// Stops observing.
  void reset() noexcept { WeakPtr().swap(*this); }

  /// Exchanges the objects; the serials stay.
  void swap(WeakPtr& other) noexcept { Core::swapRecords(other); }

  /// A strong pointer to the object; empty when it is gone.
  StrongPtr<T, Base> lock() const { return StrongPtr<T, Base>(*this); }

  /// The object; a report and NullPtrException when there is none.
  T* operator->() const { return Core::checked(true, typeid(WeakPtr)); }
  /// The object; a report and NullPtrException when there is none.
  T& operator*() const { return *Core::checked(false, typeid(WeakPtr)); }

private:
  /// The record with one weak pointer more; null for none.
  static detail::Referer* watched(detail::Referer* referer) {
    if (referer != nullptr && referer->addWeak() == detail::Referer::Raise::AtLimit) [[unlikely]] {
      Core::throwAtLimit(*referer);
    }
    return referer;
  }

  /// Takes over a hold that is counted already: that of an object on its own record, or what is
  /// left of a strong one.
  explicit WeakPtr(detail::Referer* counted) noexcept : Core(counted) {}
  friend class ReferenceBase<Base>;
  friend struct detail::PointerAccess;
};

} // namespace Tolvane

/// The hash of a weak pointer: that of its record.
template <class T, class Base>
struct std::hash<Tolvane::WeakPtr<T, Base>> {
  /// The hash of the record.
  std::size_t operator()(const Tolvane::WeakPtr<T, Base>& pointer) const noexcept {
    return pointer.hash();
  }
};

#include <tolvane/StrongPtr.hpp> // what lock() gives
