#include "CacheFiguresInternal.hpp"
#include "GlobalsInternal.hpp"
#include "UnloadLockInternal.hpp"

#include <tolvane/Breakpoint.hpp>
#include <tolvane/SystemMemory.hpp>
#include <tolvane/Verbose.hpp>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <unistd.h>
#include <utility>

namespace Tolvane {

using Globals::VerboseFiles;

// Lets every message have a closer look until the settings are read.
constinit std::atomic<int> detail::verboseThreshold{INT_MAX};

constinit VerboseCatcher::Slot VerboseCatcher::theCatcher;

namespace {

struct ThreadState {
  int indentDepth = 0;
  char indentChar = ' ';
  bool insideCatcher = false;
};
constinit thread_local ThreadState threadState;

// Amounts are the caller's; a sum that overflows must come back to where it was.
void changeIndentDepth(unsigned amount) {
  threadState.indentDepth =
      static_cast<int>(static_cast<unsigned>(threadState.indentDepth) + amount);
}

// Calls of `action` while another exception is passing, or from destructors after the library's
// unload code, must not throw, or the process would end.
template <typename Action>
void dropWhileUnwinding(const Action& action) {
  if (std::uncaught_exceptions() == 0 && !VerboseFiles::instance().unloading) {
    action();
    return;
  }
  try {
    action();
  } catch (...) {
    // The message is given up.
  }
}

struct InstalledCatcher {
  std::mutex mutex;
  WeakPtr<VerboseCatcher> catcher;
  bool wasHeld = false; // by a strong pointer, at some time
};

InstalledCatcher& installedCatcher() {
  static InstalledCatcher& the = *new InstalledCatcher;
  return the;
}

// Spares the messages of hosts without a catcher the lock.
constinit std::atomic<bool> catcherIsInstalled{false};

void install(const WeakPtr<VerboseCatcher>& catcher) {
  InstalledCatcher& the = installedCatcher();
  const bool any = static_cast<bool>(catcher);
  const int threshold = VerboseFiles::instance().quietThreshold;
  const auto lock = detail::lockUnlessEnding(the.mutex);
  if (!lock.owns_lock())
    return;
  the.catcher = catcher;
  the.wasHeld = catcher.strongCount() > 0;
  catcherIsInstalled.store(any, std::memory_order_relaxed);
  detail::verboseThreshold.store(any ? INT_MAX : threshold, std::memory_order_relaxed);
}

// The catcher for the length of one call.
class CatcherCall {
public:
  CatcherCall() {
    if (!catcherIsInstalled.load(std::memory_order_relaxed) || threadState.insideCatcher)
      return;
    const int threshold = VerboseFiles::instance().quietThreshold;
    InstalledCatcher& the = installedCatcher();
    const auto lock = detail::lockUnlessEnding(the.mutex);
    if (!lock.owns_lock())
      return;
    hold_ = StrongPtr<VerboseCatcher>::holdIfHeld(the.catcher);
    catcher_ = hold_.get();
    if (catcher_) {
      the.wasHeld = true;
    } else if (!the.wasHeld && the.catcher) {
      catcher_ = the.catcher.get();
    } else {
      the.catcher = nullptr;
      catcherIsInstalled.store(false, std::memory_order_relaxed);
      detail::verboseThreshold.store(threshold, std::memory_order_relaxed);
    }
  }

  explicit operator bool() const { return catcher_; }

  template <typename... Parameters, typename... Arguments>
  void operator()(void (VerboseCatcher::*operation)(Parameters...), const Arguments&... arguments) {
    struct Mark {
      Mark() { threadState.insideCatcher = true; }
      ~Mark() { threadState.insideCatcher = false; }
    } const mark;
    (catcher_->*operation)(arguments...);
  }

private:
  StrongPtr<VerboseCatcher> hold_;
  VerboseCatcher* catcher_ = nullptr;
};

bool passesLevel(const VerboseFiles& files, int level, bool breakpoint) {
  return breakpoint || level <= files.shownLevel();
}

bool passesDomain(const VerboseFiles& files, std::string_view domain, int level, bool breakpoint) {
  // The test comes first: a malformed filter surfaces from breakpoint messages as well.
  return files.domainPasses(domain, level) || breakpoint;
}

std::string locationText(const char* file, int line, const char* function) {
  const std::string_view name = file ? file : "";
  const std::string_view from = function ? function : "";
  std::string location;
  location.reserve(name.size() + from.size() + 40);
  location += name;
  location += ':';
  location += detail::NumberText(static_cast<long long>(line)).view();
  location += ": In function ";
  location += from;
  return location += ": ";
}

// One write of the system for a whole text where the stream has a file: the stream's own lock, held
// during a write, would put the other threads that have something to say to sleep.
void writeToStandardError(std::string_view text) {
  std::fflush(stderr); // what the host wrote there came first
  const int file = fileno(stderr);
  if (file < 0) {
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
    return;
  }
  while (!text.empty()) {
    constexpr std::size_t atMost = 1 << 30; // what every system takes at once
    const auto size = static_cast<unsigned>(std::min(text.size(), atMost));
    const auto written = ::write(file, text.data(), size);
    if (written > 0)
      text.remove_prefix(static_cast<std::size_t>(written));
    else if (written == 0 || errno != EINTR)
      return;
  }
}

const char* colour(int level) {
  if (level < 1)
    return "\033[1m\033[31m";
  if (level < 10)
    return "\033[31m";
  if (level < 30)
    return "\033[1m\033[35m";
  if (level < 50)
    return "\033[35m";
  if (level < 100)
    return "\033[1m\033[34m";
  return "\033[1m";
}

/// What opens the editor at the place of a message; empty when there is no editor.
std::string editorCommand(const char* file, int line) {
  const std::string& editor = VerboseFiles::instance().editor;
  return editor.empty() ? "" : editor + " +" + std::to_string(line) + " " + (file ? file : "");
}

std::string cacheText(const detail::CacheFigures& figures) {
  if (!figures.present)
    return " - NO CACHE!";
  return "total " + VerboseStream::MemString(static_cast<long long>(figures.total)) +
         ", freeable " + VerboseStream::MemString(static_cast<long long>(figures.freeable));
}

} // namespace

VerboseStream::VerboseStream(Noted, bool breakpoint, int level, const char* file, int line,
                             const char* func, std::string_view domain)
    : level_(level), file_(file), line_(line), function_(func),
      editorCommand_(editorCommand(file, line)), domain_(domain), suppressed_(false),
      breakpoint_(breakpoint) {}

VerboseStream::VerboseStream(bool suppressed, bool breakpoint, int level, const char* file,
                             int line, const char* func, const std::string& initialText,
                             const std::string& domain)
    : level_(level), file_(file), line_(line), function_(func), text_(initialText),
      editorCommand_(editorCommand(file, line)), domain_(domain),
      suppressed_(VerboseFiles::instance().enterFile(file) || suppressed), breakpoint_(breakpoint) {
}

VerboseStream::VerboseStream(bool suppressed, bool breakpoint, int level, const char* file,
                             int line, const char* func, const char* initialText,
                             const std::string& domain)
    : VerboseStream(suppressed, breakpoint, level, file, line, func,
                    std::string(initialText ? initialText : ""), domain) {}

VerboseStream::~VerboseStream() noexcept(false) {
  dropWhileUnwinding([this] { finish(); });
}

VerboseStream& VerboseStream::operator<<(const Cache& cache) {
  return *this << cacheText(detail::cacheFigures(cache));
}

VerboseStream& VerboseStream::operator<<(const WeakPtr<Cache, CacheBase>& cache) {
  return *this << cacheText(detail::cacheFigures(cache));
}

VerboseStream::operator bool() const {
  const VerboseFiles& files = VerboseFiles::instance();
  bool shown = false;
  dropWhileUnwinding([&] {
    shown = !suppressed_ && passesDomain(files, domain_, level_, breakpoint_) &&
            passesLevel(files, level_, breakpoint_);
  });
  return shown;
}

bool VerboseStream::show(int level) {
  return level <= VerboseFiles::instance().shownLevel();
}

std::string VerboseStream::MemString(long long bytes) {
  const auto cut = [bytes](double unit) {
    return static_cast<long long>(static_cast<double>(bytes) / unit);
  };
  if (const long long count = cut(0x1p30); count >= 1)
    return std::to_string(count) + "GiB";
  if (const long long count = cut(0x1p20); count >= 1)
    return std::to_string(count) + "MiB";
  return std::to_string(cut(0x1p10)) + "KiB";
}

void VerboseStream::writeUsedFiles() {
  VerboseFiles::instance().writeUsedFiles();
}

void VerboseStream::finish() const {
  const VerboseFiles& files = VerboseFiles::instance();
  if (suppressed_ || !passesDomain(files, domain_, level_, breakpoint_))
    return;
  if (CatcherCall call; call) {
    call(&VerboseCatcher::catchMessage, level_, locationText(file_, line_, function_), text_,
         domain_, threadState.indentDepth, threadState.indentChar);
  } else {
    if (!passesLevel(files, level_, breakpoint_))
      return;
    // Few hosts ask for the location, and putting it together is a good part of a message.
    if (!files.constraints.empty() && !files.constraintsPass(locationText(file_, line_, function_)))
      return;
    print();
  }
  if (breakpoint_) {
    if (!editorCommand_.empty()) [[maybe_unused]]
      const int status = std::system(editorCommand_.c_str());
    Tolvane::breakpoint(text_);
  }
}

void VerboseStream::print() const {
  std::string line;
  line.reserve(text_.size() + 40);
  if (VerboseFiles::instance().verbosity < 0)
    line += "\033[0m" + locationText(file_, line_, function_);
  if (!domain_.empty()) {
    char levelText[16];
    std::snprintf(levelText, sizeof levelText, "<%3u> ", static_cast<unsigned>(level_));
    line += "\033[0m" + domain_ + levelText;
  }
  line += colour(level_);
  if (threadState.indentDepth > 0) {
    line.append(static_cast<std::size_t>(threadState.indentDepth), threadState.indentChar);
    line += ' ';
  }
  line += text_;
  line += "\033[0m\n";
  writeToStandardError(line);
}

VerboseStream::Indentator::Indentator(const char* file, int line, const char* func, int level,
                                      char indentChar, int indentAmount, const std::string& domain)
    : level_(level), file_(file), line_(line), function_(func), indentAmount_(indentAmount),
      savedIndentChar_(threadState.indentChar), startTime_(std::chrono::system_clock::now()),
      domain_(domain) {
  changeIndentDepth(static_cast<unsigned>(indentAmount));
  threadState.indentChar = indentChar;
  try {
    // The figures cost system calls and serve only the report.
    if (VerboseFiles::instance().sectionsEnabled != 0) {
      memAtStart_ = getMemUsage();
      const detail::CacheFigures figures = detail::defaultCacheFigures();
      cacheTotalAtStart_ = figures.total;
      cacheFreeableAtStart_ = figures.freeable;
    }
    if (CatcherCall call; call)
      call(&VerboseCatcher::enterSection, this, level_, file_, line_, function_);
  } catch (...) {
    restoreIndentation();
    throw;
  }
}

VerboseStream::Indentator::~Indentator() noexcept(false) {
  restoreIndentation();
  dropWhileUnwinding([this] { finish(); });
}

void VerboseStream::Indentator::restoreIndentation() const noexcept {
  changeIndentDepth(0u - static_cast<unsigned>(indentAmount_));
  threadState.indentChar = savedIndentChar_;
}

void VerboseStream::Indentator::finish() const {
  const auto lasted = std::chrono::system_clock::now() - startTime_;
  const int enabled = VerboseFiles::instance().sectionsEnabled;
  memsize_t memory = 0;
  detail::CacheFigures cache{};
  if (enabled != 0) {
    memory = getMemUsage();
    cache = detail::defaultCacheFigures();
  }
  if (CatcherCall call; call)
    call(&VerboseCatcher::leaveSection, this, level_, file_);
  if (enabled == 0)
    return;
  if (enabled < 0)
    writeToStandardError(" Section finished in " + std::string(function_ ? function_ : "") + "\n");

  const auto used = static_cast<long long>(memory - memAtStart_);
  const auto totalChange = static_cast<long long>(cache.total - cacheTotalAtStart_);
  const auto freeableChange = static_cast<long long>(cache.freeable - cacheFreeableAtStart_);
  const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(lasted).count();
  const detail::NumberText number(static_cast<double>(nanoseconds) * 1e-9);
  const std::string seconds = std::string(number.view()) + "s ";
  const std::string usedText =
      "and used " + std::to_string(used) + " Bytes (" + MemString(used) + ")";
  const std::string memoryText = " [Total RAM: " + MemString(static_cast<long long>(memory)) +
                                 ", total Cache: " + MemString(static_cast<long long>(cache.total));
  const std::string freeable = MemString(static_cast<long long>(cache.freeable));

  VerboseStream report(false, false, level_, file_, line_, function_, "", domain_);
  if (totalChange != 0 || freeableChange != 0)
    report << " *** MEMORY INCREASING SECTION lasted " << seconds << " " << usedText
           << " - Cache Increment " << MemString(totalChange) << ", freeable "
           << MemString(freeableChange) << memoryText << " with " << freeable << "freeable].";
  else
    report << " *** TIMED SECTION lasted " << seconds << usedText << memoryText << " freeable "
           << freeable << "]" << (cache.present ? "." : " - NO CACHE!");
}

VerboseRecursion::VerboseRecursion(char indentChar) noexcept
    : savedIndentChar_(std::exchange(threadState.indentChar, indentChar)) {
  changeIndentDepth(1);
}

VerboseRecursion::~VerboseRecursion() {
  changeIndentDepth(0u - 1u);
  threadState.indentChar = savedIndentChar_;
}

VerboseCatcher::VerboseCatcher() = default;
VerboseCatcher::~VerboseCatcher() = default;

void VerboseCatcher::catchMessage(int, const std::string&, const std::string&, const std::string&,
                                  int, char) {}

void VerboseCatcher::enterSection(const VerboseStream::Indentator*, int, const char*, int,
                                  const char*) {}

void VerboseCatcher::leaveSection(const VerboseStream::Indentator*, int, const char*) {}

VerboseCatcher::Slot& VerboseCatcher::Slot::operator=(const WeakPtr<VerboseCatcher>& catcher) {
  install(catcher);
  return *this;
}

VerboseCatcher::Slot& VerboseCatcher::Slot::operator=(std::nullptr_t) {
  install({});
  return *this;
}

WeakPtr<VerboseCatcher> VerboseCatcher::Slot::weak() {
  InstalledCatcher& the = installedCatcher();
  const auto lock = detail::lockUnlessEnding(the.mutex);
  return lock.owns_lock() ? the.catcher : WeakPtr<VerboseCatcher>();
}

Console::Console() = default;

Console::~Console() {
  writeToStandardError(text_);
  writeToStandardError("\n");
}

bool detail::verboseWanted(VerboseSite& site, int line, const char* function, int level,
                           std::string_view domain, bool breakpoint) {
  VerboseFiles& files = VerboseFiles::instance();
  if (site.state.load(std::memory_order_relaxed) == VerboseSite::Fresh)
    site.state.store(files.enterFile(site.file) ? VerboseSite::SwitchedOff : VerboseSite::Open,
                     std::memory_order_relaxed);
  if (site.state.load(std::memory_order_relaxed) == VerboseSite::SwitchedOff)
    return false;
  bool wanted = false;
  dropWhileUnwinding([&] {
    if (!passesDomain(files, domain, level, breakpoint))
      return;
    wanted = CatcherCall() || (passesLevel(files, level, breakpoint) &&
                               (files.constraints.empty() ||
                                files.constraintsPass(locationText(site.file, line, function))));
  });
  return wanted;
}

} // namespace Tolvane
