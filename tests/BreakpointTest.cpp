#include "Patterns.hpp"
#include "RunProbe.hpp"

#include <tolvane/AssertionCallback.hpp>

#include <gtest/gtest.h>

namespace {

using Arguments = std::vector<std::string>;

const std::string enabling = "TOLVANE_ENABLE_BREAKPOINTS";
const std::string frames = R"((#\d+ +0x[0-9a-f]{16}[^\n]*\n)+)";
const std::string straight = "BREAKPOINT without assertion callback registered, going straight to "
                             "the breakpoint\\.\n";
const std::string done = "BREAKPOINT DONE>>>\n";

std::string outputOf(const Arguments& arguments,
                     std::map<std::string, std::optional<std::string>> environment = {
                         {enabling, "0"}}) {
  const ProbeResult run = runProbe(arguments, {.environment = std::move(environment)});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  return textOf(run.out);
}

std::string printed(const std::string& text) {
  return "\nREAKPOINT>>> " + text + "\n\n" + frames;
}

} // namespace

TEST(Breakpoint, DoesNothingUnlessTheVariableIsPresent) {
  EXPECT_EQ(outputOf({"break_at", "text"}, {}), "went on\n");
  EXPECT_EQ(outputOf({"answer_breakpoints", "stop", "--", "break_at", "text"}, {}), "went on\n");
  // Tested once in the process.
  EXPECT_EQ(outputOf({"break_at", "a", "--", "env_set", enabling, "1", "--", "break_at", "b"}, {}),
            "went on\nwent on\n");
  const std::string listed = outputOf(
      {"break_at", "text"}, {{enabling, "1"}, {"SHOW_ENVIRONMENT_CONTROL_VARIABLES", "1"}});
  EXPECT_EQ(listed.find(enabling), std::string::npos) << listed;
}

TEST(Breakpoint, GoesStraightOnWithoutCallbackAndDebugger) {
  const std::string text = outputOf({"break_at", "100%s"});
  EXPECT_TRUE(matches(text, printed("100%s") + straight + done + "went on\n")) << text;
}

TEST(Breakpoint, LetsTheCallbackDecide) {
  const std::string asked = "asked about text with 1\n";
  const struct {
    const char* answer;
    std::string expected;
  } cases[] = {
      {"stop", asked + done},
      {"go on", asked},
      {"nested", asked + printed("nested")},
      {"throw", asked + "by the callback\n"},
  };
  for (const auto& c : cases) {
    const std::string text = outputOf({"answer_breakpoints", c.answer, "--", "break_at", "text"});
    EXPECT_TRUE(matches(text, printed("text") + c.expected + "went on\n")) << c.answer << text;
  }
}

TEST(Breakpoint, EndsMessagesWithTheFlag) {
  // The editor is the command interpreter's own, so that its call can be watched.
  const ProbeResult run = runProbe({"message", "9", "text", "+x", "b"},
                                   {.environment = {{"EDITOR", "echo edit"}, {enabling, "1"}}});
  const std::string text = textOf(run.out);
  // The interpreter may write before this process flushes its own.
  EXPECT_TRUE(
      matches(text, "(1\n)?edit \\+12 dir/file.cpp\n(1\n)?" + printed("text") + straight + done))
      << text;
  EXPECT_EQ(textOf(run.err), "\033[0m+x<  9> \033[31mtext\033[0m\n");
  // A message that is suppressed, or that the constraints hold back, does not stop; a caught does.
  EXPECT_EQ(outputOf({"message", "9", "text", "", "sb"}), "0\n");
  EXPECT_EQ(outputOf({"message", "9", "text", "", "b"},
                     {{enabling, "1"}, {"TOLVANE_VERBOSITY_CONSTRAINTS", "elsewhere"}}),
            "1\n");
  const std::string caught = outputOf({"catcher", "--", "message", "9", "text", "", "b"});
  EXPECT_EQ(countOf(caught, R"(\]\[text\]\[\]\n)" + printed("text")), 1) << caught;
}

#ifdef __linux__
TEST(Breakpoint, TrapsIntoATracer) {
  for (const char* tracer : {"hand on", "keep"}) {
    const std::string text = outputOf({"break_traced", tracer});
    EXPECT_EQ(countOf(text, straight + "(.*\n)*" + done), 1) << text;
    EXPECT_EQ(countOf(text, "stopped by SIGTRAP\n(.*\n)*exit code 7\n"), 1) << text;
  }
}
#endif

TEST(AssertionCallback, CapturesAndRendersTheStack) {
  Tolvane::StackFrames callStack = {{1}, {2}};
  ASSERT_TRUE(Tolvane::AssertionCallback::generate(callStack));
  const std::string text = Tolvane::AssertionCallback::to_string(callStack);
  EXPECT_TRUE(matches(text, frames)) << text;
  EXPECT_GE(static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')), callStack.size());
  // The innermost frame is in this very program, not in the library.
  const std::string innermost = text.substr(0, text.find('\n'));
  EXPECT_NE(innermost.find("tolvane-tests"), std::string::npos) << text;
  EXPECT_GE(countOf(text, " in [^ ]"), 1) << "no symbol is named" << text;

  struct Deep {
    static std::size_t framesBelow(int depth) {
      if (depth > 0)
        return framesBelow(depth - 1) + static_cast<std::size_t>(depth == -1);
      Tolvane::StackFrames deepStack;
      Tolvane::AssertionCallback::generate(deepStack);
      return deepStack.size();
    }
  };
  EXPECT_LE(Deep::framesBelow(1000), 256U);
  EXPECT_EQ(Tolvane::AssertionCallback::to_string({}), "");
  // An address in no module is a line all the same.
  EXPECT_EQ(Tolvane::AssertionCallback::to_string({{1}}).substr(0, 23), "#0  0x0000000000000001\n");
}

TEST(AssertionCallback, RegistersOneAtATime) {
  struct Passing : Tolvane::AssertionCallback {
    bool assertion(const std::string&, const Tolvane::StackFrames&) override { return false; }
  };
  const auto first = std::make_shared<Passing>(), second = std::make_shared<Passing>();
  using Tolvane::AssertionCallback;
  EXPECT_EQ(AssertionCallback::registerCallback(first), nullptr);
  EXPECT_EQ(AssertionCallback::registeredCallback(), first);
  EXPECT_EQ(AssertionCallback::registerCallback(second), first);
  EXPECT_EQ(AssertionCallback::registerCallback(nullptr), second);
  EXPECT_EQ(AssertionCallback::registeredCallback(), nullptr);
  EXPECT_EQ(first.use_count() + second.use_count(), 2);
}
