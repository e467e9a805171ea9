#pragma once

/// @file
/// What the hostile tests share: things to be done inside of what is called and destroyed, and
/// types in plenty.

#include <functional>
#include <memory>
#include <typeinfo>
#include <utility>

namespace hostile {

using Action = std::function<void()>;

/// What is done inside of calls and destructors; global, because those who do it may go meanwhile.
inline Action onCall, onEnd;
/// How many calls are inside of each other, how many more are to be made, and how many objects live
/// that count themselves.
inline int depth = 0, left = 0, alive = 0;

/// Does what is wished, and what that calls, but not without end.
inline void act(const Action& wish) {
  if (const Action action = wish; action && depth < 3 && left-- > 0) {
    ++depth;
    const std::shared_ptr<void> back(nullptr, [](void*) { --depth; });
    action();
  }
}

constexpr std::size_t keyCount = 40;
template <int>
struct Key {};
template <int... I>
const std::type_info& keyOf(std::size_t at, std::integer_sequence<int, I...>) {
  static const std::type_info* const keys[] = {&typeid(Key<I>)...};
  return *keys[at];
}
/// One of many types, more than a small hash table takes without growing.
inline const std::type_info& key(std::size_t at) {
  return keyOf(at, std::make_integer_sequence<int, keyCount>());
}
template <class Act>
void forKeys(std::size_t from, std::size_t to, const Act& action) {
  for (; from < to; ++from)
    action(key(from));
}

} // namespace hostile
