#pragma once

#include <tolvane/StrongPtr.hpp>

/// @file
/// A look at the object of a pointer that keeps it alive meanwhile. Internal to the library, not
/// installed.
///
/// @code
/// const Tolvane::detail::Held<Creature> creator(weak);
/// if (creator) { creator->list_info(); }
/// @endcode

namespace Tolvane::detail {

/// Holds an object that somebody holds already, and merely refers to one that nobody holds: a
/// strong pointer to that one would destroy it in the end. So objects on the stack can be looked
/// at as well; for those the caller of the library sees to it that they live.
///
/// Nothing is waited for while an entry of a queue is held without its creator: that may die
/// meanwhile, and who comes across the entry then takes it for one whose creator forgot it.
template <class T, class Base = T>
class Held {
public:
  /// Holds nothing.
  Held() noexcept = default;

  explicit Held(const DynPtr<T, Base>& pointer) noexcept {
    Referer* const record = PointerAccess::referer(pointer);
    if (record == nullptr) {
      return;
    }
    while (record->lock(1) != Referer::Raise::Done)
      [[unlikely]] {
        const std::int32_t strong = record->counts().strong;
        if (strong <= 0 || strong == Referer::MaxCount) {
          object_ = pointer.get();
          return;
        }
        // The first strong pointer of all came between the two looks.
      }
    record_ = record;
    object_ = PointerAccess::held(pointer);
  }

  Held(const Held&) = delete;
  Held& operator=(const Held&) = delete;

  Held(Held&& other) noexcept { swap(other); }
  Held& operator=(Held&& other) noexcept {
    Held(std::move(other)).swap(*this);
    return *this;
  }

  ~Held() { release(record_); }

  /// Lets go of the object.
  void reset() noexcept {
    object_ = nullptr;
    release(std::exchange(record_, nullptr));
  }

  /// Lets go of the object and goes on observing it.
  WeakPtr<T, Base> observe() {
    T* const object = std::exchange(object_, nullptr);
    Referer* const record = std::exchange(record_, nullptr);
    return record != nullptr ? PointerAccess::weaken<T, Base>(*record) : WeakPtr<T, Base>(object);
  }

  /// Holds again what observe() let go of, provided that somebody else holds it still. Takes the
  /// hold of the pointer over.
  void resume(WeakPtr<T, Base>& observed) noexcept {
    Referer* const record = PointerAccess::referer(observed);
    if (record != nullptr && record->strengthen(1) == Referer::Raise::Done) {
      object_ = PointerAccess::held(observed);
      record_ = PointerAccess::takeReferer(observed);
    }
  }

  /// The object; null when it is gone.
  T* get() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }

  /// Whether a strong pointer held the object already, so that it is held now.
  bool owned() const noexcept { return record_ != nullptr; }

  T& operator*() const noexcept { return *object_; }
  T* operator->() const noexcept { return object_; }

  void swap(Held& other) noexcept {
    std::swap(record_, other.record_);
    std::swap(object_, other.object_);
  }

private:
  static void release(Referer* record) noexcept {
    if (record != nullptr) {
      PointerAccess::releaseStrong<T, Base>(*record);
    }
  }

  Referer* record_ = nullptr;
  T* object_ = nullptr;
};

} // namespace Tolvane::detail
