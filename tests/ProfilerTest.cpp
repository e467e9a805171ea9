#include <tolvane/Profiler.hpp>

#include <chrono>
#include <gtest/gtest.h>
#include <thread>

using Tolvane::Profiler;

namespace {

void scope(const char* name, int level, int line = 1) {
  const Profiler profiler("file.cpp", line, "void f()", name, level);
}

// The calls of each name, in order.
std::string calls() {
  std::string text;
  for (const Profiler::Statistic& one : Profiler::statistics())
    text += one.name + ":" + std::to_string(one.calls) + " ";
  return text;
}

class ProfilerTest : public testing::Test {
protected:
  ProfilerTest() { Profiler::reset(); }
  ~ProfilerTest() override {
    Profiler::disable();
    Profiler::reset();
  }
};

} // namespace

TEST_F(ProfilerTest, CountsWhatIsEnabled) {
  scope("off", 0);
  EXPECT_EQ(calls(), "");
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
    scope("a", 0);
    EXPECT_EQ(calls(), "a:1 above:1 b:2 ") << "a scope counts when it ends";
    Profiler::reset();
    EXPECT_EQ(calls(), "");
  }
  EXPECT_EQ(calls(), "running:1 ");
  scope("running", 0);
  EXPECT_EQ(calls(), "running:1 ");
}

TEST_F(ProfilerTest, AddsUpTimes) {
  using namespace std::chrono_literals;
  Profiler::enable();
  {
    TOLVANE_PROFILE("outer", 7);
    std::this_thread::sleep_for(20ms);
    const Profiler inner("inner.cpp", 12, "void g()", "inner", 8);
    std::this_thread::sleep_for(5ms);
  }
  scope("outer", 1);
  const auto all = Profiler::statistics();
  ASSERT_EQ(all.size(), 2U);
  const Profiler::Statistic &inner = all[0], &outer = all[1];
  EXPECT_EQ(inner.name + inner.file + inner.function, "innerinner.cppvoid g()");
  EXPECT_EQ(inner.line, 12);
  EXPECT_EQ(inner.level, 8);
  // Lower bounds only: the sleep may take longer, never shorter.
  EXPECT_GE(inner.totalNanoseconds, 5'000'000U);
  EXPECT_GE(outer.totalNanoseconds, 25'000'000U);
  EXPECT_GE(outer.totalNanoseconds, inner.totalNanoseconds);
  EXPECT_EQ(outer.calls, 2U);
  EXPECT_EQ(outer.level, 7) << "the first scope stands for the name";
  EXPECT_GE(outer.longestNanoseconds, 25'000'000U);
  EXPECT_LE(outer.longestNanoseconds, outer.totalNanoseconds);
}

TEST_F(ProfilerTest, KeepsNamesApartByTheirText) {
  Profiler::enable();
  // The same address with another text, as after the unloading of a module.
  char name[] = "one";
  scope(name, 1);
  std::copy_n("two", 3, name);
  scope(name, 1);
  scope("two", 1);
  std::copy_n("xxx", 3, name);
  EXPECT_EQ(calls(), "one:1 two:2 ");
}

TEST_F(ProfilerTest, PrintsATable) {
  const std::string titles =
      "     calls        total ms         mean ms      longest ms  level  name\n";
  EXPECT_EQ(Profiler::table(), titles);
  Profiler::enable();
  scope("some name", -3);
  const std::string table = Profiler::table();
  EXPECT_TRUE(table.starts_with(titles + "         1 ")) << table;
  EXPECT_TRUE(table.ends_with("     -3  some name\n")) << table;
  testing::internal::CaptureStdout();
  Profiler::print();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), table);
}
