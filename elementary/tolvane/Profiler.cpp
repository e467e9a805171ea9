#include "UnloadLockInternal.hpp"

#include <tolvane/Profiler.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <string_view>

namespace Tolvane {
namespace detail {

constinit std::atomic<long long> profilerLevel{LLONG_MIN};

// One per name, never freed: threads keep pointers to it.
struct ProfilerRecord {
  ProfilerRecord(const char* nameText, const char* fileText, int lineNumber,
                 const char* functionText, int levelNumber)
      : name(nameText), file(fileText), line(lineNumber), function(functionText),
        level(levelNumber) {}

  const std::string name;
  const std::string file;
  const int line;
  const std::string function;
  const int level;
  std::atomic<std::uint64_t> calls{0};
  std::atomic<std::uint64_t> total{0};
  std::atomic<std::uint64_t> longest{0};
};

} // namespace detail

namespace {

using detail::ProfilerRecord;

struct Registry {
  std::mutex mutex;
  std::map<std::string, ProfilerRecord, std::less<>> records;
};

Registry& registry() {
  static Registry& the = *new Registry;
  return the;
}

// The records this thread used last, found by the address of the name. The text is compared as
// well: another name may come to lie at the address of one whose module is gone.
struct Recent {
  const char* name;
  ProfilerRecord* record;
};
constexpr std::size_t recentCount = 32;
constinit thread_local std::array<Recent, recentCount> recents{};

Recent& recentFor(const char* name) {
  const auto address = reinterpret_cast<std::uintptr_t>(name);
  return recents[(address ^ (address >> 5) ^ (address >> 10)) % recentCount];
}

std::int64_t now() noexcept {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

std::string padded(const std::string& text, std::size_t width) {
  return text.size() < width ? std::string(width - text.size(), ' ') + text : text;
}

std::string milliseconds(double nanoseconds) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.6f", nanoseconds * 1e-6);
  return buffer;
}

} // namespace

void Profiler::start(const char* file, int line, const char* function, const char* name,
                     int level) noexcept {
  Recent& recent = recentFor(name);
  if (recent.name != name || recent.record->name != name) {
    try {
      Registry& the = registry();
      const auto lock = detail::lockUnlessEnding(the.mutex);
      if (!lock.owns_lock())
        return;
      auto found = the.records.find(std::string_view(name));
      if (found == the.records.end())
        found = the.records.try_emplace(name, name, file, line, function, level).first;
      recent = {name, &found->second};
    } catch (...) {
      return;
    }
  }
  record_ = recent.record;
  started_ = now();
}

void Profiler::stop() noexcept {
  const auto elapsed = static_cast<std::uint64_t>(std::max<std::int64_t>(0, now() - started_));
  record_->calls.fetch_add(1, std::memory_order_relaxed);
  record_->total.fetch_add(elapsed, std::memory_order_relaxed);
  auto longest = record_->longest.load(std::memory_order_relaxed);
  while (longest < elapsed &&
         !record_->longest.compare_exchange_weak(longest, elapsed, std::memory_order_relaxed)) {
  }
}

void Profiler::enable(int level) noexcept {
  detail::profilerLevel.store(level, std::memory_order_relaxed);
}

void Profiler::disable() noexcept {
  detail::profilerLevel.store(LLONG_MIN, std::memory_order_relaxed);
}

void Profiler::reset() {
  Registry& the = registry();
  const auto lock = detail::lockUnlessEnding(the.mutex);
  if (!lock.owns_lock())
    return;
  for (auto& [name, record] : the.records) {
    record.calls.store(0, std::memory_order_relaxed);
    record.total.store(0, std::memory_order_relaxed);
    record.longest.store(0, std::memory_order_relaxed);
  }
}

std::vector<Profiler::Statistic> Profiler::statistics() {
  std::vector<Statistic> result;
  Registry& the = registry();
  const auto lock = detail::lockUnlessEnding(the.mutex);
  if (!lock.owns_lock())
    return result;
  for (const auto& [name, record] : the.records)
    if (const auto calls = record.calls.load(std::memory_order_relaxed))
      result.push_back({name, record.file, record.line, record.function, record.level, calls,
                        record.total.load(std::memory_order_relaxed),
                        record.longest.load(std::memory_order_relaxed)});
  return result;
}

std::string Profiler::table() {
  std::string text = "     calls        total ms         mean ms      longest ms  level  name\n";
  for (const Statistic& one : statistics()) {
    const auto total = static_cast<double>(one.totalNanoseconds);
    text += padded(std::to_string(one.calls), 10) + padded(milliseconds(total), 16) +
            padded(milliseconds(total / static_cast<double>(one.calls)), 16) +
            padded(milliseconds(static_cast<double>(one.longestNanoseconds)), 16) +
            padded(std::to_string(one.level), 7) + "  " + one.name + "\n";
  }
  return text;
}

void Profiler::print() {
  const std::string text = table();
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

} // namespace Tolvane
