#pragma once

/// @file
/// Call stacks for reports, and the callback that decides what a breakpoint of the library does.
/// A stack is captured as bare addresses, which is cheap; names are looked up when it is rendered.
///
/// @code
/// #include <tolvane/AssertionCallback.hpp>
/// #include <cstdio>
///
/// void whereAmI() {
///   Tolvane::StackFrames frames;
///   if (Tolvane::AssertionCallback::generate(frames))
///     std::fputs(Tolvane::AssertionCallback::to_string(frames).c_str(), stderr);
/// }
/// @endcode

#include <tolvane/Api.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Tolvane {

/// One frame of a captured call stack.
struct StackFrame {
  /// Where the frame goes on, an address in the code of this process.
  std::uintptr_t address;
};

/// A captured call stack, the innermost frame first.
using StackFrames = std::vector<StackFrame>;

/// Decides what `breakpoint` does, in place of the built-in way: a host derives its own class (to
/// show a dialogue, say, or to collect the reports of a test run) and registers one object of it.
///
/// @par Thread safety
/// The static functions may be called from any thread. `assertion` is called on the thread that
/// ran into the breakpoint, so on several threads at once. The hook holds no lock; a breakpoint
/// inside of an eviction comes while the cache holds the queue that is evicted.
class TOLVANE_API AssertionCallback {
public:
  AssertionCallback() = default;
  AssertionCallback(const AssertionCallback&) = delete;
  AssertionCallback& operator=(const AssertionCallback&) = delete;
  virtual ~AssertionCallback();

  /// Called by `breakpoint` once it has printed @p text and the stack.
  ///
  /// A breakpoint that this function itself runs into is printed and passed over. An exception
  /// goes through `breakpoint` to its caller; in the report of an inconsistent pointer, which may
  /// not throw, it ends the process.
  /// @param text    what `breakpoint` was given.
  /// @param frames  the call stack, empty when none could be captured.
  /// @return true to stop in the debugger, false to go on.
  virtual bool assertion(const std::string& text, const StackFrames& frames) = 0;

  /// Makes @p callback the one that decides; null goes back to the built-in way.
  ///
  /// The library shares the ownership until another callback is registered, and a call that is
  /// under way holds it until it returns. A module that is unloaded takes its callback back first.
  /// @return the callback that was registered before, null when there was none.
  static std::shared_ptr<AssertionCallback>
  registerCallback(std::shared_ptr<AssertionCallback> callback);

  /// The registered callback, null when there is none.
  static std::shared_ptr<AssertionCallback> registeredCallback();

  /// Replaces @p frames by the call stack of the calling thread, from the caller of this function
  /// outwards and at most 256 frames deep. Takes microseconds.
  /// @return whether there is at least one frame; @p frames is empty otherwise. Nothing is thrown,
  ///         a stack for which there is no memory counts as none.
  static bool generate(StackFrames& frames) noexcept;

  /// Renders a stack as text, one line per frame and a line end after each: number, address, and
  /// as far as they can be found the function, the source line, and the module with the offset in
  /// it that symbol tools ask for.
  ///
  /// The names are looked up now, so the modules should still be loaded. Where inlined functions
  /// can be told, each has a line of its own. Symbols are read from the modules' files, which takes
  /// from milliseconds to the better part of a second the first time.
  /// @throws std::bad_alloc when there is no memory for the text.
  static std::string to_string(const StackFrames& frames);
};

} // namespace Tolvane
