#include "FileInternal.hpp"
#include "GlobalsInternal.hpp"
#include "UnloadLockInternal.hpp"

#include <tolvane/AssertionCallback.hpp>
#include <tolvane/Irregularity.hpp>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <utility>

namespace Tolvane {
namespace {

constexpr const char* logName = "Irregularities.log";

struct Log {
  std::mutex mutex;
  std::FILE* file = nullptr;
  bool closed = false;
  // Tells the first report, which starts the file afresh, also where the mutex cannot be had.
  std::atomic<bool> created{false};
};

Log& theLog() {
  static Log& log = *new Log;
  return log;
}

std::FILE* openLog(Log& log) {
  std::FILE* file = detail::openForWriting(logName, log.created.load() ? "at" : "wt");
  if (file)
    log.created.store(true);
  return file;
}

void write(std::FILE* file, const std::string& report, const std::string& stack) {
  std::fwrite(report.data(), 1, report.size(), file);
  if (!stack.empty())
    std::fwrite(stack.data(), 1, stack.size(), file);
  std::fflush(file);
}

void writeToLog(const std::string& report, const std::string& stack) {
  Log& log = theLog();
  const auto lock = detail::lockUnlessEnding(log.mutex);
  if (lock.owns_lock() && !log.closed) {
    if (!log.file)
      log.file = openLog(log);
    if (log.file)
      write(log.file, report, stack);
  } else if (std::FILE* file = openLog(log)) {
    // The process is ending and has closed the log, or a thread that is gone had locked it.
    write(file, report, stack);
    std::fclose(file);
  }
}

// Unlike time(), which may look the time zone up, this needs no lock anywhere.
std::time_t now() {
  return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
}

std::tm localTime(std::time_t time) {
  std::tm local{};
#ifdef _WIN32
  // A thread that is gone may own the locks of the time zone: what local time was ahead of
  // universal time when it was last asked for does as well.
  static constinit std::atomic<std::time_t> ahead{0};
  if (detail::otherThreadsAreGone()) {
    time += ahead.load();
    gmtime_s(&local, &time);
  } else {
    localtime_s(&local, &time);
    std::tm fields = local;
    ahead.store(_mkgmtime(&fields) - time);
  }
#else
  localtime_r(&time, &local);
#endif
  return local;
}

std::string timeStamp() {
  const std::tm local = localTime(now());
  char buffer[20];
  buffer[std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S", &local)] = '\0';
  return buffer;
}

std::string callStack() {
  // A thread that is gone may own the locks of what looks the names up.
  if (detail::otherThreadsAreGone())
    return {};
  StackFrames frames;
  if (!AssertionCallback::generate(frames))
    return {};
  return "\n --- Call Stack --- \n" + AssertionCallback::to_string(frames);
}

} // namespace

Irregularity::Irregularity(const char* file, int line, const char* func,
                           const char* reason) noexcept {
  try {
    report_ = "\n\n** IRREGULARITY at " + timeStamp() + " **";
  } catch (...) {
    // Without memory the report begins later, or is empty.
  }
  *this << "\nSource:" << file << ":" << line << " within " << func << " because of " << reason;
}

Irregularity::~Irregularity() {
  std::string stack;
  try {
    stack = callStack();
  } catch (...) {
    // The report goes without it.
  }
  try {
    writeToLog(report_, stack);
  } catch (...) {
    // The report is dropped.
  }
}

Irregularity& Irregularity::operator<<(const std::type_info& type) noexcept {
  try {
    append(detail::typeText(type));
  } catch (...) {
    // The name is left out.
  }
  return *this;
}

void Irregularity::append(std::string_view piece) noexcept {
  try {
    report_ += piece;
  } catch (...) {
    // The piece is left out.
  }
}

void detail::prepareIrregularityLog() {
  theLog();
#ifdef _WIN32
  localTime(now());
#endif
}

void detail::closeIrregularityLog() noexcept {
  if (otherThreadsAreGone())
    return; // every report was flushed, and one of them may own the heap
  Log& log = theLog();
  try {
    const auto lock = lockUnlessEnding(log.mutex);
    if (!lock.owns_lock())
      return;
    log.closed = true;
    if (log.file)
      std::fclose(std::exchange(log.file, nullptr));
  } catch (...) {
    // A mutex that cannot be locked: as above.
  }
}

} // namespace Tolvane
