#pragma once

#include <tolvane/StrongPtr.hpp>

/// @file
/// A look at the object of a weak pointer that keeps it alive meanwhile.
///
/// @code
/// const Tolvane::detail::Held<Creature> creator(weak);
/// if (creator) { creator->list_info(); }
/// @endcode

namespace Tolvane::detail {

/// Holds an object that somebody holds already, and merely refers to one that nobody holds: a
/// strong pointer to that one would destroy it in the end. So objects on the stack can be looked
/// at as well; for those the caller of the library sees to it that they live.
template <class T, class Base = T>
class Held {
public:
  explicit Held(const WeakPtr<T, Base>& pointer) {
    do {
      hold_ = StrongPtr<T, Base>::holdIfHeld(pointer);
      if (hold_ != nullptr || pointer.strongCount() == 0) {
        object_ = pointer.get();
        return;
      }
      // Again where the first strong pointer of all came between the two looks.
    } while (pointer.strongCount() > 0);
  }

  /// The object; null when it is gone.
  T* get() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }

  T& operator*() const { return object_ != nullptr ? *object_ : *hold_; }
  /// The object; the report and the exception of an empty pointer when it is gone.
  T* operator->() const { return object_ != nullptr ? object_ : hold_.operator->(); }

private:
  StrongPtr<T, Base> hold_;
  T* object_ = nullptr;
};

} // namespace Tolvane::detail
