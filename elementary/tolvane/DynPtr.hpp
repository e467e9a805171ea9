#pragma once

#include <tolvane/Exception.hpp>
#include <tolvane/PointerID.hpp>
#include <tolvane/Referer.hpp>
#include <tolvane/SpeakPtr.hpp>

#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <typeinfo>
#include <utility>

/// @file
/// What strong and weak pointers have in common: the record they refer to, the checked access,
/// and the comparisons.
///
/// @code
/// Tolvane::WeakPtr<Grid> watched = grid;
/// if (watched == grid && watched) { use(watched.get()); }
/// @endcode

namespace Tolvane {

template <class T>
class ReferenceBase;
template <class T, class Base>
class DynPtr;
template <class T, class Base = std::remove_const_t<T>>
class StrongPtr;
template <class T, class Base = std::remove_const_t<T>>
class WeakPtr;
class Cacheable;

namespace detail {

/// Tells a cacheable that its last strong pointer went, before it is destroyed.
TOLVANE_API void preDestruct(ReferenceBase<Cacheable>& object) noexcept;

/// The target as `T*`, kept only by pointers whose record knows the object as something else.
template <class T, bool Kept>
class Target {
public:
  T* get() const noexcept { return target_; }
  void set(T* target) noexcept { target_ = target; }

private:
  T* target_ = nullptr;
};

template <class T>
class Target<T, false> {};

template <class Base>
void releaseLast(Referer& referer) noexcept;

/// The way to a pointer's record for the pointers themselves and for tests.
struct PointerAccess {
  template <class T, class Base>
  static Referer* referer(const DynPtr<T, Base>& pointer) noexcept {
    return pointer.myReferer;
  }

  template <class T, class Base>
  static Referer* takeReferer(DynPtr<T, Base>& pointer) noexcept {
    return std::exchange(pointer.myReferer, nullptr);
  }

  template <class T, class Base>
  static T* target(const DynPtr<T, Base>& pointer) noexcept {
    return pointer.target_.get();
  }

  /// The object of a pointer that is known to be held.
  template <class T, class Base>
  static T* held(const DynPtr<T, Base>& pointer) noexcept {
    return pointer.known();
  }

  template <class T, class Base>
  static void releaseStrong(Referer& referer) noexcept {
    DynPtr<T, Base>::releaseStrong(referer);
  }

  /// Makes a strong pointer's hold that of a weak one.
  template <class T, class Base>
  static WeakPtr<T, Base> weaken(Referer& referer) noexcept {
    static_assert(std::is_same_v<T, Base>, "any other pointer has a target of its own");
    if (referer.dropSharedStrong() == 1) [[unlikely]] {
      releaseLast<Base>(referer);
    }
    return WeakPtr<T, Base>(&referer);
  }
};

/// The release of what was found to be the last strong pointer, without its hold on the record.
template <class Base>
void releaseLast(Referer& referer) noexcept {
  if (auto* object = static_cast<ReferenceBase<Base>*>(referer.object())) {
    object->unction();
  }
  Referer::Counts counts = referer.counts();
  if (counts.strong != 1) {
    SpeakPtr::theSpeaker().WarningUnctionChange(counts.strong, counts.weak,
                                                typeid(ReferenceBase<Base>));
  }
  counts = referer.dropStrong();
  if (counts.strong != 1) {
    if (counts.strong > 1) {
      SpeakPtr::theSpeaker().DestructionCancelled(counts.strong - 1, counts.weak,
                                                  typeid(ReferenceBase<Base>));
    }
    return;
  }
  auto* object = static_cast<ReferenceBase<Base>*>(referer.takeObject());
  if (object == nullptr) {
    SpeakPtr::theSpeaker().DynPtrInvalid(&referer, object, Referer::Destroyed, counts.weak,
                                         typeid(ReferenceBase<Base>));
    return;
  }
  if constexpr (std::is_same_v<Base, Cacheable>) {
    preDestruct(*object);
  }
  delete object;
}

} // namespace detail

/// The common core of StrongPtr and WeakPtr; hosts use those two.
///
/// `T` is the type pointed to, `Base` the class that derives from `ReferenceBase<Base>`. A pointer
/// with `T` and `Base` the same takes 16 bytes, any other 24.
///
/// A pointer is *valid* while its object is alive: it has a record, the record knows the object,
/// and the strong count is not negative. Pointers are compared, ordered and hashed by record, so
/// that a new object at a reused address is never taken for an old one; the order is that of
/// addresses and differs between runs.
///
/// Where a class is only named, its pointers are held, moved, compared and dropped; whatever else
/// is done with them needs its header.
///
/// Thread safety: the counts are atomic, a pointer object is not. Threads that share one pointer
/// object, one of them changing it, must serialise; threads with pointers of their own to one
/// object need not.
template <class T, class Base>
class DynPtr {
  static_assert(std::is_class_v<T> && std::is_class_v<Base>,
                "pointers of this library refer to objects of classes: name the class, not a "
                "pointer or a reference to it");

public:
  using element_type = T; ///< what it points to
  using base_type = Base; ///< what carries the counts

  /// The object while it is alive, else null. Reports nothing.
  T* get() const noexcept {
    static_assert(
        requires { sizeof(T); }, "include the header of T before its object is looked at");
    return myReferer != nullptr ? aimed(myReferer->living()) : nullptr;
  }

  /// Whether the object is alive.
  explicit operator bool() const noexcept { return myReferer != nullptr && myReferer->alive(); }

  /// The number of strong pointers; negative for a dead object, 0 for an empty pointer.
  std::int32_t strongCount() const noexcept {
    return myReferer != nullptr ? myReferer->counts().strong : 0;
  }

  /// The number of holders of the record: all pointers and the object itself; 0 for an empty
  /// pointer.
  std::int32_t weakCount() const noexcept {
    return myReferer != nullptr ? myReferer->counts().weak : 0;
  }

  /// The number of this pointer object; every pointer has its own, also an empty one.
  std::uint64_t serial() const noexcept { return serial_; }

  /// The hash of the record; the same for all pointers to one object.
  std::size_t hash() const noexcept { return std::hash<const void*>{}(myReferer); }

  /// @cond
protected:
  static constexpr bool KeepsTarget = !std::is_same_v<T, Base>;

  DynPtr() noexcept = default;

  /// Takes over a hold that is counted already. The serial is drawn behind the atomic step of the
  /// count: before it, that would have to wait for the line that all threads write.
  explicit DynPtr(detail::Referer* counted) noexcept : myReferer(counted) {}

  ~DynPtr() = default;

  DynPtr(const DynPtr&) = delete;
  DynPtr& operator=(const DynPtr&) = delete;

  /// Prepares to refer to the object of `source`: finds the target. False when there is nothing to
  /// refer to, because `source` is empty or its object is of another type.
  template <class U>
  bool aim(const DynPtr<U, Base>& source) noexcept {
    static_assert(std::is_const_v<T> || !std::is_const_v<U>,
                  "a pointer to a constant object converts to pointers to constant objects only");
    detail::Referer* referer = detail::PointerAccess::referer(source);
    if (referer == nullptr) {
      return false;
    }
    if constexpr (KeepsTarget) {
      if constexpr (std::is_same_v<T, U>) {
        target_.set(detail::PointerAccess::target(source));
      } else {
        target_.set(castTarget(*referer));
        return target_.get() != nullptr;
      }
    }
    return true;
  }

  /// The same for an object itself, which must cast to what it was handed over as.
  detail::Referer* aim(T* object) noexcept {
    static_assert(
        requires { sizeof(T); }, "include the header of T before a pointer is made of a T*");
    static_assert(std::is_base_of_v<ReferenceBase<Base>, T>,
                  "T must derive from ReferenceBase<Base>; where a base class of T does, name "
                  "that class as the second argument, as in StrongPtr<T, Base>");
    if (object == nullptr) {
      return nullptr;
    }
    detail::Referer* referer =
        detail::PointerAccess::referer(static_cast<const ReferenceBase<Base>*>(object)->self());
    if constexpr (KeepsTarget) {
      // In the destructor of its object, a pointer is dead from the beginning.
      if (auto* stored = static_cast<ReferenceBase<Base>*>(referer->object())) {
        target_.set(verifiedTarget(stored, object));
        if (target_.get() == nullptr) {
          return nullptr;
        }
      }
    }
    return referer;
  }

  /// The object, which is held.
  T* known() const noexcept {
    if constexpr (KeepsTarget) {
      return target_.get();
    } else {
      return aimed(myReferer->object());
    }
  }

  /// What the record knows as `object`, as what the pointer knows it as; null remains null.
  T* aimed(void* object) const noexcept {
    if constexpr (KeepsTarget) {
      return object != nullptr ? target_.get() : nullptr;
    } else {
      return static_cast<T*>(static_cast<ReferenceBase<Base>*>(object));
    }
  }

  void swapRecords(DynPtr& other) noexcept {
    std::swap(myReferer, other.myReferer);
    if constexpr (KeepsTarget) {
      std::swap(target_, other.target_);
    }
  }

  /// Whether a pointer member was handed itself to copy from; says so and stays empty.
  static bool copiesItself(const DynPtr* pointer, const DynPtr& source) noexcept {
    if (pointer != &source) [[likely]] {
      return false;
    }
    SpeakPtr::theSpeaker().SelfConstruction(typeid(DynPtr), pointer, &source);
    return true;
  }

  /// The target of a pointer of the same type.
  void copyTarget(const DynPtr& source) noexcept {
    if constexpr (KeepsTarget) {
      target_.set(source.target_.get());
    }
  }

  /// The target of a pointer of another type: what the cast gives while the object is held, or
  /// null when it is of another type or dead.
  static T* castTarget(detail::Referer& referer) noexcept {
    // An object that somebody holds is held here as well, lest it dies under the cast.
    const bool held = referer.lock(1) == detail::Referer::Raise::Done;
    T* target = nullptr;
    if (referer.alive()) {
      target = dynamic_cast<T*>(static_cast<ReferenceBase<Base>*>(referer.object()));
    }
    if (held) {
      releaseStrong(referer);
    }
    return target;
  }

  /// What the record's object casts to; anything else than `object` is reported.
  T* verifiedTarget(ReferenceBase<Base>* stored, T* object) const noexcept {
    T* target = dynamic_cast<T*>(stored);
    if (target != object) [[unlikely]] {
      const ReferenceBase<Base>& actual = *object;
      SpeakPtr::theSpeaker().InconsistentDynPtr(typeid(T), typeid(Base), typeid(actual), target,
                                                object, stored, object, serial_);
    }
    return target;
  }

  static void releaseStrong(detail::Referer& referer) noexcept {
    const std::int32_t strong = referer.dropShared();
    if (strong <= 1) [[unlikely]] {
      releaseUnshared(referer, strong);
    }
  }

  /// Apart, so that there is little code where a pointer is dropped.
  [[gnu::noinline]] static void releaseUnshared(detail::Referer& referer,
                                                std::int32_t strong) noexcept {
    if (strong == 1) {
      detail::releaseLast<Base>(referer);
    }
    releaseWeak(referer);
  }

  static void releaseWeak(detail::Referer& referer) noexcept {
    if (!referer.dropWeak()) [[unlikely]] {
      SpeakPtr::theSpeaker().CriticalWarning(
          typeid(ReferenceBase<Base>), typeid(ReferenceBase<Base>), referer.object(), &referer);
    }
  }

  /// Throws MaxExceptionCount for a record that stands at its limit.
  [[noreturn]] static void throwAtLimit(const detail::Referer& referer) {
    const detail::Referer::Counts counts = referer.counts();
    MaxExceptionCount::throwMaxExceptionCount(
        counts.strong == detail::Referer::MaxCount ? counts.strong : counts.weak, typeid(T),
        typeid(Base));
  }

  /// The object of a valid pointer; reports any other access and throws NullPtrException.
  T* checked(bool arrow, const std::type_info& pointerType) const {
    T* object = get();
    if (object == nullptr) [[unlikely]] {
      reportAccess(arrow, pointerType);
    }
    return object;
  }

  [[noreturn, gnu::cold, gnu::noinline]] void
  reportAccess(bool arrow, const std::type_info& pointerType) const {
    SpeakPtr::theSpeaker().InvalidPtrAccess(
        arrow, pointerType, typeid(T), typeid(Base), typeid(void), strongCount(), weakCount(),
        myReferer != nullptr ? myReferer->object() : nullptr, myReferer, serial_);
  }

  std::uint64_t serial_ = nextPointerID();
  detail::Referer* myReferer = nullptr;
  [[no_unique_address]] detail::Target<T, KeepsTarget> target_;

  friend struct detail::PointerAccess;
  /// @endcond
};

/// Whether two pointers refer to one object, or both to none.
template <class T, class U, class Base>
bool operator==(const DynPtr<T, Base>& a, const DynPtr<U, Base>& b) noexcept {
  return detail::PointerAccess::referer(a) == detail::PointerAccess::referer(b);
}

/// The order of the records' addresses; it differs between runs.
template <class T, class U, class Base>
std::strong_ordering operator<=>(const DynPtr<T, Base>& a, const DynPtr<U, Base>& b) noexcept {
  return std::compare_three_way{}(detail::PointerAccess::referer(a),
                                  detail::PointerAccess::referer(b));
}

/// Whether a pointer refers to `object`. Compared with null it asks whether there is no live
/// object, as `!pointer` does.
template <class T, class Base, class U>
requires std::derived_from<U, ReferenceBase<Base>>
bool operator==(const DynPtr<T, Base>& pointer, const U* object) noexcept {
  if (object == nullptr) {
    return !pointer;
  }
  return pointer == static_cast<const ReferenceBase<Base>*>(object)->self();
}

/// Whether there is no live object.
template <class T, class Base>
bool operator==(const DynPtr<T, Base>& pointer, std::nullptr_t) noexcept {
  return !pointer;
}

} // namespace Tolvane
