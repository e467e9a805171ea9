#include "Probe.hpp"

#include <tolvane/AssertionCallback.hpp>
#include <tolvane/Breakpoint.hpp>
#include <tolvane/Irregularity.hpp>

#include <cstdio>
#include <stdexcept>
#include <thread>

#ifdef __linux__
#include <csignal>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

using namespace Tolvane;
using probe::Arguments;

namespace {

struct Answering : AssertionCallback {
  explicit Answering(std::string how) : answer(std::move(how)) {}
  bool assertion(const std::string& text, const StackFrames& frames) override {
    std::printf("asked about %s with %d\n", text.c_str(), !frames.empty());
    if (answer == "nested")
      breakpoint("nested");
    if (answer == "throw")
      throw std::runtime_error("by the callback");
    return answer == "stop";
  }
  const std::string answer;
};

struct LateReport {
  ~LateReport() { Irregularity("late.cpp", 1, "f()", "the end"); }
};

// LINE REASON [APPENDED]
void report(const Arguments& a) {
  Irregularity report("dir/file.cpp", std::stoi(a.at(0)), "void f(int)", a.at(1).c_str());
  if (a.size() > 2)
    report << a[2] << typeid(LateReport);
}

void reportFromThreads(const Arguments& a) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < std::stoi(a.at(0)); ++thread)
    threads.emplace_back([&, thread] {
      for (int i = 0; i < std::stoi(a.at(1)); ++i)
        TOLVANE_IRREGULARITY("thread ") << thread << "/" << i << " end";
    });
  for (std::thread& thread : threads)
    thread.join();
}

void breakAt(const Arguments& a) {
  try {
    breakpoint(a.at(0));
  } catch (const std::runtime_error& e) {
    std::puts(e.what());
  }
  std::puts("went on");
}

const probe::Commands commands = {
    {"report", report},
    {"report_from_threads", reportFromThreads},
    {"late_report", [](const Arguments&) { static const LateReport late; }},
    {"break_at", breakAt},
    {"answer_breakpoints",
     [](const Arguments& a) {
       AssertionCallback::registerCallback(std::make_shared<Answering>(a.at(0)));
     }},
};

} // namespace

PROBE_COMMAND(report_macros) {
  int evaluated = 0;
  const auto count = [&] { return std::to_string(++evaluated); };
  for (const bool wrong : {false, true})
    if (wrong)
#line 1001
      TOLVANE_IRREGULARITY_IF(evaluated == 0) << ": " << count();
    else
      TOLVANE_IRREGULARITY_IF(evaluated != 0) << ": " << count();
#line 1002
  TOLVANE_IRREGULARITY(static_cast<const char*>(nullptr)) << 5 << 0.5 << typeid(int).name();
  return evaluated == 1 ? 0 : 1;
}

#ifdef __linux__
// HOW [THREADS TIMES]: runs into a breakpoint, and then into more on threads, under a tracer, which
// hands the signals it sees on or not, and tells them.
PROBE_COMMAND(break_traced) {
  const pid_t child = fork();
  if (child == 0) {
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    breakpoint("traced");
    std::vector<std::thread> threads;
    for (int n = arguments.size() > 1 ? std::stoi(arguments[1]) : 0; n > 0; --n)
      threads.emplace_back([&] {
        for (int i = 0; i < std::stoi(arguments.at(2)); ++i)
          breakpoint("traced");
      });
    for (std::thread& thread : threads)
      thread.join();
    _exit(7);
  }
  int status = 0;
  pid_t stopped = 0;
  while ((stopped = waitpid(-1, &status, __WALL)) > 0 && (stopped != child || WIFSTOPPED(status))) {
    if (!WIFSTOPPED(status))
      continue;
    // Beside signals there are the stops in which a thread begins another, and those of new ones.
    const int signal = status >> 16 == 0 && WSTOPSIG(status) != SIGSTOP ? WSTOPSIG(status) : 0;
    if (signal != 0)
      std::printf("stopped by %s\n", signal == SIGTRAP ? "SIGTRAP" : "another signal");
    ptrace(PTRACE_SETOPTIONS, stopped, nullptr, PTRACE_O_TRACECLONE);
    ptrace(PTRACE_CONT, stopped, nullptr, arguments.at(0) == "hand-on" ? signal : 0);
  }
  std::printf("exit code %d\n", WIFEXITED(status) ? WEXITSTATUS(status) : -1);
  return 0;
}
#endif
