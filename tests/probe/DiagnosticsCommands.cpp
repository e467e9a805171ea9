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

namespace {

class Answering : public AssertionCallback {
public:
  explicit Answering(std::string answer) : answer_(std::move(answer)) {}

  bool assertion(const std::string& text, const StackFrames& frames) override {
    std::printf("asked about %s with %d\n", text.c_str(), !frames.empty());
    if (answer_ == "nested")
      breakpoint("nested");
    if (answer_ == "throw")
      throw std::runtime_error("by the callback");
    return answer_ == "stop";
  }

private:
  std::string answer_;
};

struct LateReport {
  ~LateReport() { Irregularity("late.cpp", 1, "f()", "the end"); }
};

} // namespace

// LINE REASON [APPENDED]
PROBE_COMMAND(report) {
  Irregularity report("dir/file.cpp", std::stoi(arguments.at(0)), "void f(int)",
                      arguments.at(1).c_str());
  if (arguments.size() > 2)
    report << arguments[2] << typeid(LateReport);
  return 0;
}

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

PROBE_COMMAND(report_from_threads) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < std::stoi(arguments.at(0)); ++thread)
    threads.emplace_back([&, thread] {
      for (int i = 0; i < std::stoi(arguments.at(1)); ++i)
        TOLVANE_IRREGULARITY("thread ") << thread << "/" << i << " end";
    });
  for (std::thread& thread : threads)
    thread.join();
  return 0;
}

// A report from the destructor of a static object.
PROBE_COMMAND(late_report) {
  static const LateReport late;
  return 0;
}

PROBE_COMMAND(break_at) {
  try {
    breakpoint(arguments.at(0));
  } catch (const std::runtime_error& e) {
    std::puts(e.what());
  }
  std::puts("went on");
  return 0;
}

PROBE_COMMAND(answer_breakpoints) {
  const bool first =
      !AssertionCallback::registerCallback(std::make_shared<Answering>(arguments.at(0)));
  return first ? 0 : 1;
}

#ifdef __linux__

// Runs into a breakpoint under a tracer, which hands the signal it sees on or not. Tells the
// signal.
PROBE_COMMAND(break_traced) {
  const pid_t child = fork();
  if (child == 0) {
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    breakpoint("traced");
    _exit(7);
  }
  int status = 0;
  for (bool handOn = arguments.at(0) == "hand on"; waitpid(child, &status, 0) == child;) {
    if (!WIFSTOPPED(status))
      break;
    const int signal = WSTOPSIG(status);
    std::printf("stopped by %s\n", signal == SIGTRAP ? "SIGTRAP" : "another signal");
    ptrace(PTRACE_CONT, child, nullptr, handOn ? signal : 0);
  }
  std::printf("exit code %d\n", WIFEXITED(status) ? WEXITSTATUS(status) : -1);
  return 0;
}

#endif
