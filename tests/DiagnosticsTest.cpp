// Breakpoints and their callback, irregularity reports, the profiler.

#include "Patterns.hpp"
#include "RunProbe.hpp"

#include <tolvane/AssertionCallback.hpp>
#include <tolvane/Profiler.hpp>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>

using namespace Tolvane;

namespace {

namespace fs = std::filesystem;

const std::string frames = R"((#\d+ +0x[0-9a-f]{16}[^\n]*\n)+)";
const Variables enabled = {{"TOLVANE_ENABLE_BREAKPOINTS", "0"}};
const std::string straight = "BREAKPOINT without assertion callback registered, going straight to "
                             "the breakpoint\\.\n";
const std::string done = "BREAKPOINT DONE>>>\n";

std::string stopped(const std::string& text) {
  return "\nREAKPOINT>>> " + text + "\n\n" + frames;
}

TEST(Breakpoint, DoesNothingUnlessTheVariableIsPresent) {
  EXPECT_EQ(outputOf("answer_breakpoints stop -- break_at text"), "went on\n");
  // Tested once in the process, and not listed.
  EXPECT_EQ(outputOf("break_at a -- env_set TOLVANE_ENABLE_BREAKPOINTS 1 -- break_at b"),
            "went on\nwent on\n");
  const std::string listed =
      outputOf("break_at text",
               {{"TOLVANE_ENABLE_BREAKPOINTS", "1"}, {"SHOW_ENVIRONMENT_CONTROL_VARIABLES", "1"}});
  EXPECT_EQ(listed.find("TOLVANE_ENABLE_BREAKPOINTS"), std::string::npos) << listed;
}

TEST(Breakpoint, AsksTheCallback) {
  const std::string asked = stopped("text") + "asked about text with 1\n", on = "went on\n";
  const std::pair<const char*, std::string> cases[] = {
      {"break_at 100%s", stopped("100%s") + straight + done + on}, // no callback and no debugger
      {"answer_breakpoints stop -- break_at text", asked + done + on},
      {"answer_breakpoints go -- break_at text", asked + on},
      {"answer_breakpoints nested -- break_at text", asked + stopped("nested") + on},
      {"answer_breakpoints throw -- break_at text", asked + "by the callback\n" + on}};
  for (const auto& [command, expected] : cases) {
    const std::string text = outputOf(command, enabled);
    EXPECT_TRUE(matches(text, expected)) << command << text;
  }
}

TEST(Breakpoint, EndsMessagesWithTheFlag) {
  // The editor is the command interpreter's own, so that its call can be watched.
  const ProbeResult run =
      probe("message 9 text +x b",
            {.environment = {{"EDITOR", "echo edit"}, {"TOLVANE_ENABLE_BREAKPOINTS", "1"}}});
  // The interpreter may write before this process flushes its own.
  EXPECT_TRUE(
      matches(run.out, "(1\n)?edit \\+12 dir/file.cpp\n(1\n)?" + stopped("text") + straight + done))
      << run.out;
  EXPECT_EQ(run.err, "\033[0m+x<  9> \033[31mtext\033[0m\n");
  // A message that is suppressed, or that the constraints hold back, does not stop; a caught does.
  EXPECT_EQ(outputOf("message 9 text '' sb", enabled), "0\n");
  EXPECT_EQ(outputOf("message 9 text '' b", {{"TOLVANE_ENABLE_BREAKPOINTS", "0"},
                                             {"TOLVANE_VERBOSITY_CONSTRAINTS", "elsewhere"}}),
            "1\n");
  const std::string caught = outputOf("catcher -- message 9 text '' b", enabled);
  EXPECT_EQ(countOf(caught, R"(\]\[text\]\[\]\n)" + stopped("text")), 1) << caught;
}

#ifdef __linux__
TEST(Breakpoint, TrapsIntoATracer) {
  for (const auto& [tracer, count] :
       {std::pair("hand-on", 1), std::pair("keep", 1), std::pair("hand-on 8 20", 161)}) {
    const std::string text = outputOf(std::string("break_traced ") + tracer, enabled);
    EXPECT_EQ(countOf(text, straight), count) << text;
    EXPECT_EQ(countOf(text, done), count) << text;
    EXPECT_EQ(countOf(text, "stopped by SIGTRAP\n"), count) << text;
    EXPECT_TRUE(text.ends_with("exit code 7\n")) << text;
  }
}
#endif

TEST(AssertionCallback, CapturesAndRendersTheStack) {
  StackFrames callStack = {{1}, {2}};
  ASSERT_TRUE(AssertionCallback::generate(callStack));
  const std::string text = AssertionCallback::to_string(callStack);
  EXPECT_TRUE(matches(text, frames)) << text;
  // The innermost frame is in this very program, not in the library.
  EXPECT_LT(text.find("tolvane-tests"), text.find('\n')) << text;
  EXPECT_GE(countOf(text, " in [^ ]"), 1) << "no symbol is named" << text;

  struct Deep {
    static std::size_t framesBelow(int depth) {
      if (depth > 0)
        return framesBelow(depth - 1) + static_cast<std::size_t>(depth == -1);
      StackFrames deepStack;
      AssertionCallback::generate(deepStack);
      return deepStack.size();
    }
  };
  EXPECT_LE(Deep::framesBelow(1000), 256U);
  EXPECT_EQ(AssertionCallback::to_string({}), "");
  // An address in no module is a line all the same.
  EXPECT_EQ(AssertionCallback::to_string({{1}}).substr(0, 23), "#0  0x0000000000000001\n");
}

TEST(AssertionCallback, RegistersOneAtATime) {
  struct Passing : AssertionCallback {
    bool assertion(const std::string&, const StackFrames&) override { return false; }
  };
  const auto first = std::make_shared<Passing>(), second = std::make_shared<Passing>();
  EXPECT_EQ(AssertionCallback::registerCallback(first), nullptr);
  EXPECT_EQ(AssertionCallback::registerCallback(second), first);
  EXPECT_EQ(AssertionCallback::registerCallback(nullptr), second);
  EXPECT_EQ(first.use_count() + second.use_count(), 2);
}

// The log that the probe leaves in a folder of its own; nothing when there is none.
class IrregularityLog : public testing::Test {
protected:
  IrregularityLog() { fs::create_directory(folder); }
  ~IrregularityLog() override { fs::remove_all(folder); }

  std::optional<std::string> logAfter(const std::string& command) const {
    const ProbeResult run = probe(command, {.directory = folder});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out + run.err, "");
    return fs::is_regular_file(log) ? std::optional(textOf(contentOf(log))) : std::nullopt;
  }
  static std::string now() {
    const std::time_t seconds = std::time(nullptr);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::localtime(&seconds));
    return text;
  }
  static std::string entry(const std::string& place, const std::string& reason) {
    return R"(\n\n\*\* IRREGULARITY at (.{19}) \*\*\nSource:)" + place + "because of " + reason +
           R"(\n --- Call Stack --- \n)" + frames;
  }

  const std::string folder = "reports", log = "reports/Irregularities.log";
};

TEST_F(IrregularityLog, HoldsTheReportsOfOneProcess) {
  EXPECT_EQ(logAfter("env_set X 1"), std::nullopt) << "no report, no file";
  std::ofstream(log) << "from an earlier run";
  const std::string before = now(), text = *logAfter("report -12 reason"), after = now();
  const std::string time =
      groupOf(text, entry(R"(dir/file.cpp:-12 within void f\(int\) )", "reason"));
  EXPECT_TRUE(before <= time && time <= after) << text;

  const std::string threads = *logAfter("report_from_threads 4 5");
  EXPECT_EQ(countOf(threads, R"( because of thread \d/\d end\n --- Call Stack --- \n#0 )"), 20)
      << "unmixed" << threads;
  const std::pair<const char*, std::string> cases[] = {
      {"report 1 first -- report 2 second ': x'",
       entry(R"(dir/file.cpp:1 within void f\(int\) )", "first") +
           entry(R"(dir/file.cpp:2 within void f\(int\) )", R"(second: x[^\n]*LateReport)")},
      {"late_report", entry(R"(late.cpp:1 within f\(\) )", "the end")},
      {"report_macros",
       entry(R"([^\n]*DiagnosticsCommands.cpp:1001 within [^\n]*probe_report_macros[^\n]* )",
             "evaluated == 0: 1") +
           entry(R"([^\n]*DiagnosticsCommands.cpp:1002 within [^\n]* )", "50.5i")}};
  for (const auto& [command, expected] : cases) {
    const std::string reports = *logAfter(command);
    EXPECT_TRUE(matches(reports, expected)) << reports;
  }
}

void scope(const char* name, int level, int line = 1) {
  const Profiler profiler("file.cpp", line, "void f()", name, level);
}

class ProfilerTest : public testing::Test {
protected:
  ProfilerTest() { Profiler::reset(); }
  ~ProfilerTest() override {
    Profiler::disable();
    Profiler::reset();
  }

  // The calls of each name, in order.
  static std::string calls() {
    std::string text;
    for (const Profiler::Statistic& one : Profiler::statistics())
      text += one.name + ":" + std::to_string(one.calls) + " ";
    return text;
  }
};

TEST_F(ProfilerTest, CountsWhatIsEnabled) {
  scope("off", 0);
  Profiler::enable(5);
  scope("b", 5);
  scope("a", std::numeric_limits<int>::min());
  scope("above", 6);
  scope("b", 4, 2);
  EXPECT_EQ(calls(), "a:1 b:2 ");
  Profiler::enable();
  scope("above", std::numeric_limits<int>::max());
  {
    const Profiler running("f.cpp", 1, "f()", "running", 1);
    Profiler::disable();
    EXPECT_EQ(calls(), "a:1 above:1 b:2 ") << "a scope counts when it ends";
    Profiler::reset();
  }
  EXPECT_EQ(calls(), "running:1 ");

  // The same address with another text, as after the unloading of a module.
  Profiler::reset();
  Profiler::enable();
  char name[] = "one";
  scope(name, 1);
  std::copy_n("two", 3, name);
  scope(name, 1);
  scope("two", 1);
  std::copy_n("xxx", 3, name);
  EXPECT_EQ(calls(), "one:1 two:2 ");
}

TEST_F(ProfilerTest, AddsUpTimesAndPrintsThem) {
  using namespace std::chrono_literals;
  Profiler::enable();
  {
    TOLVANE_PROFILE("outer", -3);
    const Profiler inner("inner.cpp", 12, "void g()", "inner", 8);
    std::this_thread::sleep_for(20ms);
  }
  scope("outer", 1);
  const auto all = Profiler::statistics();
  ASSERT_EQ(all.size(), 2U);
  const Profiler::Statistic &inner = all[0], &outer = all[1];
  EXPECT_EQ(inner.name + inner.file + inner.function, "innerinner.cppvoid g()");
  EXPECT_TRUE(inner.line == 12 && inner.level == 8);
  // Lower bounds only: the sleep may take longer, never shorter.
  EXPECT_TRUE(inner.totalNanoseconds >= 20'000'000 &&
              outer.longestNanoseconds >= inner.totalNanoseconds &&
              outer.longestNanoseconds <= outer.totalNanoseconds);
  EXPECT_TRUE(outer.calls == 2 && outer.level == -3) << "the first scope stands for the name";

  testing::internal::CaptureStdout();
  Profiler::print();
  const std::string table = textOf(testing::internal::GetCapturedStdout());
  EXPECT_EQ(table, Profiler::table());
  EXPECT_TRUE(table.starts_with(
      "     calls        total ms         mean ms      longest ms  level  name\n         1 "))
      << table;
  EXPECT_TRUE(table.ends_with("     -3  outer\n")) << table;
}

} // namespace
