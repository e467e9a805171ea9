#include <tolvane/AssertionCallback.hpp>
#include <tolvane/Breakpoint.hpp>

#include <cstdio>
#include <cstdlib>

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#else
#include <csignal>
#include <cstring>
#include <mutex>
#endif

namespace Tolvane {
namespace {

bool isEnabled() {
  static const bool enabled = std::getenv("TOLVANE_ENABLE_BREAKPOINTS") != nullptr;
  return enabled;
}

#ifdef _WIN32

void trapIntoDebugger() {
  if (IsDebuggerPresent())
    DebugBreak();
}

#else

bool isTraced() {
  std::FILE* status = std::fopen("/proc/self/status", "r");
  if (!status)
    return false;
  bool traced = false;
  char line[256];
  while (std::fgets(line, sizeof line, status))
    if (std::strncmp(line, "TracerPid:", 10) == 0) {
      traced = std::atoi(line + 10) != 0;
      break;
    }
  std::fclose(status);
  return traced;
}

void trapIntoDebugger() {
  if (!isTraced())
    return;
  // The disposition is one for all threads: two of them in here would restore each other's.
  static std::mutex& mutex = *new std::mutex;
  const std::lock_guard lock(mutex);
  // A debugger sees the signal before its disposition counts. Ignoring it saves the process from a
  // tracer that is no debugger and hands the signal on.
  struct sigaction ignore {};
  struct sigaction previous {};
  ignore.sa_handler = SIG_IGN;
  if (sigaction(SIGTRAP, &ignore, &previous) != 0)
    return;
  std::raise(SIGTRAP);
  sigaction(SIGTRAP, &previous, nullptr);
}

#endif

void printLine(const char* line) {
  std::printf("%s\n", line);
  std::fflush(stdout);
}

// Captures and prints; a stack that cannot be told leaves no trace.
StackFrames printStack() noexcept {
  StackFrames frames;
  if (AssertionCallback::generate(frames)) {
    try {
      std::fputs(AssertionCallback::to_string(frames).c_str(), stdout);
    } catch (...) {
    }
    std::fflush(stdout);
  }
  return frames;
}

constinit thread_local bool insideCallback = false;

// Whether to stop, as the callback decides.
bool askCallback(AssertionCallback& callback, const std::string& text, const StackFrames& frames) {
  if (insideCallback)
    return false;
  struct Mark {
    Mark() { insideCallback = true; }
    ~Mark() { insideCallback = false; }
  } const mark;
  return callback.assertion(text, frames);
}

} // namespace

void breakpoint(const std::string& text) {
  if (!isEnabled())
    return;
  std::printf("\nREAKPOINT>>> %s\n\n", text.c_str());
  std::fflush(stdout);
  const StackFrames frames = printStack();
  if (const auto callback = AssertionCallback::registeredCallback()) {
    if (!askCallback(*callback, text, frames))
      return;
  } else {
    printLine("BREAKPOINT without assertion callback registered, going straight to the "
              "breakpoint.");
  }
  trapIntoDebugger();
  printLine("BREAKPOINT DONE>>>");
}

} // namespace Tolvane
