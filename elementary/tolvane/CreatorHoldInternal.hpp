#pragma once

#include <tolvane/Cacheable.hpp>
#include <tolvane/HeldInternal.hpp>

/// @file
/// What lets a thread that holds an object's creator ask the object about it for nothing. Internal
/// to the library, not installed.

namespace Tolvane {

/// Says, while it lives, that this thread holds the creator of an object: Cacheable::CreatorType()
/// is a virtual operation without arguments, and would have to hold the creator again.
class Cacheable::CreatorHold {
public:
  /// Both must outlive this.
  CreatorHold(const Cacheable& object, const Creature& creator) noexcept
      : object_(object), creator_(creator), outer_(innermost) {
    innermost = this;
  }
  ~CreatorHold() { innermost = outer_; }

  CreatorHold(const CreatorHold&) = delete;
  CreatorHold& operator=(const CreatorHold&) = delete;

  /// The creator that this thread holds for an object at last; null when it holds none.
  static const Creature* find(const Cacheable& object) noexcept {
    return innermost != nullptr && &innermost->object_ == &object ? &innermost->creator_ : nullptr;
  }

private:
  [[gnu::tls_model("initial-exec")]] static constinit thread_local const CreatorHold* innermost;

  const Cacheable& object_;
  const Creature& creator_;
  const CreatorHold* const outer_;
};

} // namespace Tolvane
