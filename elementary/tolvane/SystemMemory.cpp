#include <tolvane/SystemMemory.hpp>

#include <atomic>

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <cstdlib>
#include <windows.h>
// Version 2 of the interface sits in the kernel library, so nothing more needs to be linked.
#ifndef PSAPI_VERSION
#define PSAPI_VERSION 2
#endif
#include <psapi.h>
#else
#include <cstdio>
#include <memory>
#include <sys/sysinfo.h>
#include <unistd.h>
#endif

namespace Tolvane {
namespace {

// Set once at the start of a program and read for reports: no order is promised to anyone.
std::atomic<memsize_t> initialMemUsage{0};

#ifdef _WIN32

bool queryMemory(MEMORYSTATUSEX& status) {
  static_assert(sizeof status == 64);
  status = {};
  status.dwLength = sizeof status;
  return GlobalMemoryStatusEx(&status) != 0;
}

#else

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File openForReading(const char* path) {
  return {std::fopen(path, "re"), &std::fclose};
}

struct ProcessPages {
  unsigned long long total = 0;
  unsigned long long privateWritable = 0;
};

ProcessPages queryProcess() {
  ProcessPages pages;
  const File file = openForReading("/proc/self/statm");
  if (file && std::fscanf(file.get(), "%llu %*u %*u %*u %*u %llu", &pages.total,
                          &pages.privateWritable) != 2)
    pages = {};
  return pages;
}

memsize_t pageSize() {
  const long size = sysconf(_SC_PAGESIZE);
  return size > 0 ? static_cast<memsize_t>(size) : 0;
}

#endif

} // namespace

memsize_t getMemorySize() {
#ifdef _WIN32
  MEMORYSTATUSEX status;
  queryMemory(status);
  return status.ullTotalPhys;
#else
  struct sysinfo info = {};
  sysinfo(&info);
  return memsize_t{info.totalram} * info.mem_unit;
#endif
}

memsize_t getAvailableMemory() {
#ifdef _WIN32
  MEMORYSTATUSEX status;
  queryMemory(status);
  return status.ullAvailPhys;
#else
  if (const File file = openForReading("/proc/meminfo")) {
    char line[128];
    unsigned long long kilobytes = 0;
    while (std::fgets(line, sizeof line, file.get()))
      if (std::sscanf(line, "MemAvailable: %llu kB", &kilobytes) == 1)
        return kilobytes * 1024;
  }
  struct sysinfo info = {};
  sysinfo(&info);
  return memsize_t{info.freeram} * info.mem_unit;
#endif
}

memsize_t getMemUsage() {
#ifdef _WIN32
  MEMORYSTATUSEX status;
  return queryMemory(status) ? status.ullTotalVirtual - status.ullAvailVirtual : 0;
#else
  return queryProcess().total * pageSize();
#endif
}

memsize_t getMemCommitCharge() {
#ifdef _WIN32
  PROCESS_MEMORY_COUNTERS counters = {};
  static_assert(sizeof counters == 72);
  counters.cb = sizeof counters;
  return GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters)
             ? counters.PagefileUsage
             : 0;
#else
  return queryProcess().privateWritable * pageSize();
#endif
}

memsize_t setInitialMemUsage() {
  const memsize_t usage = getMemUsage();
  initialMemUsage.store(usage, std::memory_order_relaxed);
  return usage;
}

memsize_t setInitialMemUsage(memsize_t usage) {
  const memsize_t previous = initialMemUsage.load(std::memory_order_relaxed);
  initialMemUsage.store(usage, std::memory_order_relaxed);
  return previous;
}

memsize_t getInitialMemUsage() {
  return initialMemUsage.load(std::memory_order_relaxed);
}

long long getRelativeMemUsage() {
  return static_cast<long long>(getMemUsage() - getInitialMemUsage());
}

void ImmediateExitus(int code) {
#ifdef _WIN32
  TerminateProcess(GetCurrentProcess(), static_cast<UINT>(code));
  std::_Exit(code);
#else
  _exit(code);
#endif
}

} // namespace Tolvane
