#include "UnloadLockInternal.hpp"

#include <tolvane/AssertionCallback.hpp>

#include <cstdio>
#include <cstdlib>
#include <cxxabi.h>
#include <mutex>
#include <utility>

#ifdef TOLVANE_HAVE_CPPTRACE
#include <atomic>
#include <chrono>
#include <cpptrace/cpptrace.hpp>
#include <thread>
#else
#include <unwind.h>
#endif

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace Tolvane {
namespace {

constexpr std::size_t maximumDepth = 256;

struct Registration {
  std::mutex mutex;
  std::shared_ptr<AssertionCallback> callback;
};

Registration& registration() {
  static Registration& the = *new Registration;
  return the;
}

// What can be told of one line of a rendered stack; empty texts were not found.
struct FrameText {
  std::uintptr_t address = 0;
  std::string function;
  std::uintptr_t functionOffset = 0;
  std::string source;
  std::string module;
  std::uintptr_t moduleOffset = 0;
};

// The readable form comes straight from the demangler: the library's own table of type names has
// first-call effects that a stack trace must not set off.
std::string demangled(const char* symbol) {
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> text(
      abi::__cxa_demangle(symbol, nullptr, nullptr, &status), &std::free);
  return text ? text.get() : symbol;
}

#ifdef _WIN32

// The exported name of the function that begins at an offset of a module, null when it has none.
const char* exportedName(const char* base, DWORD begin) {
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const auto& entry = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
  if (entry.Size == 0)
    return nullptr;
  const auto* exports =
      reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + entry.VirtualAddress);
  const auto* functions = reinterpret_cast<const DWORD*>(base + exports->AddressOfFunctions);
  const auto* names = reinterpret_cast<const DWORD*>(base + exports->AddressOfNames);
  const auto* ordinals = reinterpret_cast<const WORD*>(base + exports->AddressOfNameOrdinals);
  for (DWORD i = 0; i < exports->NumberOfNames; ++i)
    if (functions[ordinals[i]] == begin)
      return base + names[i];
  return nullptr;
}

void describeByPlatform(FrameText& text) {
  HMODULE module = nullptr;
  // The return address may already belong to the next function.
  const std::uintptr_t inside = text.address - 1;
  // Address 0 would stand for the program itself.
  if (inside == 0 || !GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                             GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                                         reinterpret_cast<LPCSTR>(inside), &module))
    return;
  char path[MAX_PATH];
  text.module.assign(path, GetModuleFileNameA(module, path, MAX_PATH));
  text.moduleOffset = text.address - reinterpret_cast<std::uintptr_t>(module);
  // Only an export that begins where the unwind table says that the function begins is believed;
  // the nearest one below is mostly another function.
  DWORD64 base = 0;
  const auto* function = RtlLookupFunctionEntry(inside, &base, nullptr);
  if (!function || !text.function.empty())
    return;
  if (const char* name =
          exportedName(reinterpret_cast<const char*>(base), function->BeginAddress)) {
    text.function = demangled(name);
    text.functionOffset = text.address - (base + function->BeginAddress);
  }
}

#else

void describeByPlatform(FrameText& text) {
  Dl_info info{};
  // The return address may already belong to the next function.
  if (!dladdr(reinterpret_cast<void*>(text.address - 1), &info))
    return;
  if (info.dli_fname) {
    text.module = info.dli_fname;
    text.moduleOffset = text.address - reinterpret_cast<std::uintptr_t>(info.dli_fbase);
  }
  if (info.dli_sname && text.function.empty()) {
    text.function = demangled(info.dli_sname);
    text.functionOffset = text.address - reinterpret_cast<std::uintptr_t>(info.dli_saddr);
  }
}

#endif

std::string rendered(std::size_t number, const FrameText& text) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "#%-2zu 0x%016llx", number,
                static_cast<unsigned long long>(text.address));
  std::string line = buffer;
  const auto appendOffset = [&](std::uintptr_t offset) {
    std::snprintf(buffer, sizeof buffer, " + 0x%llx", static_cast<unsigned long long>(offset));
    line += buffer;
  };
  if (!text.function.empty()) {
    line += " in " + text.function;
    if (text.functionOffset != 0)
      appendOffset(text.functionOffset);
  }
  if (!text.source.empty())
    line += " at " + text.source;
  if (!text.module.empty()) {
    line += " of " + text.module;
    appendOffset(text.moduleOffset);
  }
  return line + "\n";
}

std::vector<FrameText> describeAllByPlatform(const StackFrames& frames) {
  std::vector<FrameText> texts;
  for (const StackFrame& frame : frames) {
    FrameText& text = texts.emplace_back();
    text.address = frame.address;
    describeByPlatform(text);
  }
  return texts;
}

#ifdef TOLVANE_HAVE_CPPTRACE

/// Keeps threads out of cpptrace once its static objects go, at the end of the process or of the
/// library: other threads report until the very last moment.
class Resolving {
public:
  /// Whether cpptrace may be asked; if so, leave() follows.
  bool enter() noexcept {
    inside_.fetch_add(1);
    if (!over_) {
      return true;
    }
    leave();
    return false;
  }

  void leave() noexcept { inside_.fetch_sub(1); }

  /// Lets nobody in any more, and waits for who is inside. Not for long: that may be this thread,
  /// which ends the process for want of memory.
  void end() noexcept {
    over_ = true;
    for (int wait = 0; wait < 1000 && inside_ > 0 && !detail::otherThreadsAreGone(); ++wait)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }

private:
  std::atomic<int> inside_{0};
  std::atomic<bool> over_{false};
};

constinit Resolving resolving;

struct EndOfResolving {
  ~EndOfResolving() { resolving.end(); }
};

cpptrace::stacktrace resolved(const StackFrames& frames) {
  cpptrace::raw_trace raw;
  for (const StackFrame& frame : frames)
    raw.frames.push_back(frame.address);
  cpptrace::stacktrace trace = raw.resolve();
  // Made after what cpptrace made for its first answer, so destroyed before that.
  [[maybe_unused]] static const EndOfResolving end;
  return trace;
}

std::vector<FrameText> describe(const StackFrames& frames) {
  if (!resolving.enter())
    return describeAllByPlatform(frames);
  const std::unique_ptr<Resolving, void (*)(Resolving*)> inside(
      &resolving, [](Resolving* the) { the->leave(); });
  std::vector<FrameText> texts;
  for (const cpptrace::stacktrace_frame& frame : resolved(frames).frames) {
    FrameText& text = texts.emplace_back();
    text.address = frame.raw_address;
    text.function = frame.symbol;
    if (!frame.filename.empty()) {
      text.source = frame.filename;
      if (frame.line.has_value())
        text.source += ":" + std::to_string(frame.line.value());
    }
    if (!frame.is_inline)
      describeByPlatform(text);
  }
  // What fails inside of cpptrace, for want of memory above all, is told by no exception.
  return texts.empty() ? describeAllByPlatform(frames) : texts;
}

#else

std::vector<FrameText> describe(const StackFrames& frames) {
  return describeAllByPlatform(frames);
}

struct Capture {
  StackFrames& frames;
  std::size_t toSkip;
};

_Unwind_Reason_Code captureFrame(_Unwind_Context* context, void* argument) {
  auto& capture = *static_cast<Capture*>(argument);
  const std::uintptr_t address = _Unwind_GetIP(context);
  if (address == 0)
    return _URC_END_OF_STACK;
  if (capture.toSkip != 0) {
    --capture.toSkip;
    return _URC_NO_REASON;
  }
  // Room was made beforehand: nothing may be thrown through the unwinder.
  capture.frames.push_back({address});
  return capture.frames.size() == maximumDepth ? _URC_END_OF_STACK : _URC_NO_REASON;
}

#endif

} // namespace

AssertionCallback::~AssertionCallback() = default;

std::shared_ptr<AssertionCallback>
AssertionCallback::registerCallback(std::shared_ptr<AssertionCallback> callback) {
  Registration& the = registration();
  const auto lock = detail::lockUnlessEnding(the.mutex);
  if (lock.owns_lock())
    the.callback.swap(callback);
  return callback;
}

std::shared_ptr<AssertionCallback> AssertionCallback::registeredCallback() {
  Registration& the = registration();
  const auto lock = detail::lockUnlessEnding(the.mutex);
  return lock.owns_lock() ? the.callback : nullptr;
}

// Not inlined, or there would be no frame of its own to leave out.
[[gnu::noinline]] bool AssertionCallback::generate(StackFrames& frames) noexcept {
  frames.clear();
  try {
#ifdef TOLVANE_HAVE_CPPTRACE
    for (const cpptrace::frame_ptr address : cpptrace::generate_raw_trace(1, maximumDepth).frames)
      frames.push_back({address});
#else
    frames.reserve(maximumDepth);
    Capture capture{frames, 1};
    _Unwind_Backtrace(&captureFrame, &capture);
#endif
  } catch (...) {
    frames.clear();
  }
  return !frames.empty();
}

std::string AssertionCallback::to_string(const StackFrames& frames) {
  std::string text;
  std::size_t number = 0;
  for (const FrameText& frame : describe(frames))
    text += rendered(number++, frame);
  return text;
}

} // namespace Tolvane
