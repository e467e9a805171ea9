#include "RunProbe.hpp"

#include <tolvane/Environment.hpp>

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>

namespace {

constexpr const char* variable = "ENVIRONMENT_TEST_VARIABLE";
constexpr int intMax = std::numeric_limits<int>::max(), intMin = std::numeric_limits<int>::min();
constexpr long longMax = std::numeric_limits<long>::max(),
               longMin = std::numeric_limits<long>::min();

void unset(const char* name) {
#ifdef _WIN32
  Tolvane::setEnv(name, "", true);
#else
  unsetenv(name);
#endif
}

} // namespace

TEST(Environment, ReadsNumbers) {
  // Values that 32 bits cannot hold read as the limit of `long` where it has 32 bits.
  const auto narrowed = [](double value) {
    if (sizeof(long) > sizeof(int) || (value > intMin && value < intMax))
      return static_cast<long>(value);
    return value < 0 ? longMin : longMax;
  };
  const struct {
    const char* text;
    int asInteger;
    long asLong;
    double asFloat;
  } cases[] = {
      {"12abc", 12, 12, 12},
      {"-3.7", -3, -3, -3.7},
      {"  0.9", 0, 0, 0.9},
      {"30GB", 30, 30, 30},
      {"1e3", 1000, 1000, 1000},
      {"+7", 7, 7, 7},
      {"abc", 0, 0, 0},
      {"--3", 0, 0, 0},
      {" ", 0, 0, 0},
      {"2147483647", intMax, 2147483647, 2147483647},
      {"2147483647.9", intMax, 2147483647, 2147483647.9},
      {"2147483648", intMax, narrowed(2147483648.0), 2147483648.0},
      {"-2147483648.9", intMin, intMin, -2147483648.9},
      {"-2147483649", intMin, narrowed(-2147483649.0), -2147483649.0},
      {"9223372036854775807", intMax, longMax, 9223372036854775807.0},
      {"1e99", intMax, longMax, 1e99},
      {"-1e99", intMin, longMin, -1e99},
      {"1e999", intMax, longMax, std::numeric_limits<double>::infinity()},
#ifndef _WIN32
      {"-inf", intMin, longMin, -std::numeric_limits<double>::infinity()},
      {"0x10", 16, 16, 16},
#endif
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    ASSERT_TRUE(Tolvane::setEnv(variable, c.text, true));
    EXPECT_EQ(Tolvane::getEnvInteger(variable, nullptr, 99), c.asInteger);
    EXPECT_EQ(Tolvane::getEnvLong(variable, nullptr), c.asLong);
    EXPECT_EQ(Tolvane::getEnvFloat(variable, nullptr, 99), c.asFloat);
    EXPECT_EQ(Tolvane::getEnvString(variable, nullptr), c.text);
  }
#ifndef _WIN32
  Tolvane::setEnv(variable, "nan", true);
  EXPECT_EQ(Tolvane::getEnvInteger(variable, nullptr, 99), 0);
  EXPECT_EQ(Tolvane::getEnvLong(variable, nullptr), 0);
#endif
  unset(variable);
  EXPECT_EQ(Tolvane::getEnvInteger(variable, nullptr, 7), 7);
  EXPECT_EQ(Tolvane::getEnvLong(variable, nullptr), 0);
  EXPECT_EQ(Tolvane::getEnvFloat(variable, nullptr, -0.5), -0.5);
  EXPECT_EQ(Tolvane::getEnvString(variable, nullptr), "");
}

TEST(Environment, SetsAndKeepsVariables) {
  unset(variable);
  std::string value = "first";
  EXPECT_TRUE(Tolvane::setEnv(variable, value, false));
  value = "changed afterwards"; // the environment holds a copy
  EXPECT_STREQ(std::getenv(variable), "first");
  EXPECT_FALSE(Tolvane::setEnv(variable, "second", false));
  EXPECT_STREQ(std::getenv(variable), "first");
  EXPECT_TRUE(Tolvane::setEnv(variable, "third=3", true));
  EXPECT_STREQ(std::getenv(variable), "third=3");

  EXPECT_TRUE(Tolvane::setEnv(variable, "", true));
#ifdef _WIN32
  EXPECT_EQ(std::getenv(variable), nullptr);
#else
  EXPECT_STREQ(std::getenv(variable), "");
  EXPECT_FALSE(Tolvane::setEnv(variable, "x", false));
  EXPECT_EQ(Tolvane::getEnvInteger(variable, nullptr, 7), 0);
#endif
  unset(variable);
}

TEST(Environment, ListsDescribedReads) {
  const std::string show = "SHOW_ENVIRONMENT_CONTROL_VARIABLES";
  using Arguments = std::vector<std::string>;
  const auto joined = [](Arguments a, const Arguments& b) {
    a.emplace_back("--");
    a.insert(a.end(), b.begin(), b.end());
    return a;
  };
  const Arguments read = {"env_string", "X", "what X is"};
  const Arguments silent = {"env_integer", "X", "-", "7"};
  const Arguments on = {"env_set", show, "1"}, off = {"env_set", show, "0"};
  const struct {
    const char* what;
    std::optional<std::string> show;
    Arguments arguments;
    const char* expected;
  } cases[] = {
      {"unset", std::nullopt, read, "5\n"},
      {"zero", "0", read, "5\n"},
      {"cut to zero", "0.9", read, "5\n"},
      {"no number", "yes", read, "5\n"},
      {"on", "1", read, "X: what X is\n5\n"},
      {"negative", "-1", read, "X: what X is\n5\n"},
      {"integer", "1", {"env_integer", "X", "n", "3"}, "X: n\n5\n"},
      {"long", "1", {"env_long", "X", "n"}, "X: n\n5\n"},
      {"float", "1", {"env_float", "X", "n", "0.5"}, "X: n\n5\n"},
      {"an unset variable", "1", {"env_float", "Y", "", "0.5"}, "Y: \n0.5\n"},
      {"every read", "1", joined(read, read), "X: what X is\n5\nX: what X is\n5\n"},
      {"no description", "1", joined(silent, read), "5\nX: what X is\n5\n"},
      {"the switch is read once", "1", joined(read, joined(off, read)),
       "X: what X is\n5\nX: what X is\n5\n"},
      {"also when off", std::nullopt, joined(read, joined(on, read)), "5\n5\n"},
  };
  for (const auto& c : cases) {
    const ProbeResult run = runProbe(c.arguments, {.environment = {{show, c.show}, {"X", "5"}}});
    EXPECT_EQ(run.exitCode, 0) << c.what << run.err;
    // What the library itself reads while it is loaded is listed before.
    const std::string text = textOf(run.out);
    const std::string expected = c.expected;
    EXPECT_TRUE(text.ends_with(expected)) << c.what << ": " << text;
    EXPECT_EQ(text.find("X: "), expected.find("X: ") == std::string::npos
                                    ? std::string::npos
                                    : text.size() - expected.size() + expected.find("X: "))
        << c.what << ": " << text;
  }
}

TEST(Environment, TellsTheDirectoryOfTheExecutable) {
  const ProbeResult run = runProbe({"executable_dir"});
  const std::string dir = textOf(run.out);
  ASSERT_GT(dir.size(), 1U);
  namespace fs = std::filesystem;
  EXPECT_TRUE(
      fs::equivalent(fs::path(dir.substr(0, dir.size() - 1)), fs::path(probePath()).parent_path()))
      << dir;
  EXPECT_EQ(dir.find_last_of("/\\") + 1 == dir.size() - 1, false) << dir;
  EXPECT_FALSE(Tolvane::getExecutableDir().empty());
}

TEST(Environment, HidesTheWorkingDirectory) {
  EXPECT_EQ(textOf(runProbe({"current_dir"}).out), "[]\n");
#ifndef _WIN32
  // Windows itself refuses a working directory that is so deep.
  const auto deep = std::filesystem::absolute(std::string(200, 'a') + '/' + std::string(200, 'b'));
  std::filesystem::create_directories(deep);
  EXPECT_EQ(textOf(runProbe({"current_dir"}, {.directory = deep.string()}).out),
            "length_error basic_string::_M_create\n");
#endif
}
