#pragma once

/// @file
/// What the hostile tests share: things that are done inside of what is called and destroyed, types
/// in plenty, and a run of all of them.

#include "LongRun.hpp"

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

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

/// Counts itself, and does the worst at its end.
template <class Base>
struct Mortal : Base {
  template <class... Arguments>
  explicit Mortal(Arguments... arguments) : Base(arguments...) {
    ++alive;
  }
  ~Mortal() override {
    --alive;
    act(onEnd);
  }
};

struct Deed {
  std::string name;
  Action run;
  bool throws = false; ///< Perhaps, so that no destructor may do it.
};

inline Deed throwing() {
  return {"throw", [] { throw std::runtime_error("from inside"); }, true};
}

inline std::vector<Deed> joined(std::vector<Deed> deeds, const std::vector<Deed>& more) {
  deeds.insert(deeds.end(), more.begin(), more.end());
  return deeds;
}

struct Hostile : testing::Test {
  /// Does every deed in every operation: in calls, and where it does not throw in destructors. Each
  /// time it fills anew, checks what is left, and expects that in the end nothing is.
  static void doTheWorst(const std::vector<Deed>& operations, const std::vector<Deed>& deeds,
                         const Action& fill, const Action& check) {
    testing::internal::CaptureStdout(); // of use only to find a failure
    for (const Deed& operation : operations)
      for (const Deed& deed : deeds)
        for (const bool atTheEnd : {false, true}) {
          if (atTheEnd && deed.throws)
            continue;
          SCOPED_TRACE(operation.name + " / " + deed.name + (atTheEnd ? " at the end" : ""));
          fill();
          left = 5;
          (atTheEnd ? onEnd : onCall) = deed.run;
          try {
            operation.run();
          } catch (const std::exception&) {
            EXPECT_TRUE(deed.throws || operation.throws);
          }
          onCall = onEnd = nullptr;
          check();
          EXPECT_TRUE(depth == 0 && alive == 0);
        }
    const std::string said = testing::internal::GetCapturedStdout();
    if (HasFailure())
      std::puts(said.c_str());
  }
  const testsupport::Watchdog watchdog;
};

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
