// Every variable that the library reads with every kind of value, and the public readers of them.

#include "Patterns.hpp"
#include "RunProbe.hpp"

#include <tolvane/Environment.hpp>

#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>

using namespace Tolvane;

namespace {

#ifdef _WIN32
constexpr bool windows = true;
constexpr std::size_t longText = 30'000;
#else
constexpr bool windows = false;
constexpr std::size_t longText = 100'000;
#endif

constexpr int intMax = std::numeric_limits<int>::max(), intMin = std::numeric_limits<int>::min();
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr unsigned long long K = 1024, M = K * K, G = K * M, largest = ~0ull;

// What fits is cut, what does not reads as the limit.
template <class Integer>
Integer cut(double number) {
  using Limits = std::numeric_limits<Integer>;
  if (std::isnan(number))
    return 0;
  const double beyond = std::ldexp(1, Limits::digits);
  return number >= beyond    ? Limits::max()
         : number <= -beyond ? Limits::min()
                             : static_cast<Integer>(number);
}

struct Value {
  std::string text;
  double number;
  /// The size of the default cache, or the share of the available memory in per cent.
  unsigned long long bytes;
  unsigned percent = 0;
};

std::vector<Value> values() {
  // The reader of the C runtime takes no other words and notations on Windows.
  const double inf = windows ? 0 : infinity, nan = windows ? 0 : std::nan("");
  const auto many = [](char c) { return std::string(longText, c); };
  constexpr unsigned long long max = intMax;
  const struct {
    double number;
    unsigned long long bytes;
    std::vector<std::string> texts; // that read alike
    unsigned percent = 0;
  } groups[] = {
      {0, 0, {""}, 100},
      {0, 0, {" ", "abc", "--3", "\xd9\xa1", "\xff\xfe", "\xc3\x28 \x80", "%s%n%1000d"}},
      {0, 0, {many('x'), many('\xff'), "0." + many('0') + '1', "B", "K", "M5", "0%"}},
      {7, 7, {"\t\n 7 ", "+7", "7\xff", "7BB"}},
      {3, 3, {"3abc", "3 4"}},
      {1, 1, {"1", "1,5"}},
      {8, 8, {many(' ') + '8', many('0') + '8'}},
      {8, 8 * G, {'8' + many('G')}},
      // Fractions, exponents, other notations.
      {0.9, 0, {"0.9"}},
      {-0.9, 0, {"-0.9"}},
      {-3.7, largest - 2, {"-3.7"}},
      {1000, 1, {"1e3"}},
      {0, 1, {"1e-400"}},
      {windows ? 0. : 16., 0, {"0x10"}},
      {inf, 0, {"inf"}},
      {-inf, 0, {"-Infinity"}},
      {nan, 0, {"nan"}},
      // The limits, and beyond.
      {-1, largest, {"-1"}},
      {2147483647.9, max, {"2147483647.9"}},
      {2147483648., max, {"2147483648"}},
      {-2147483648.9, largest - max, {"-2147483648.9"}},
      {-2147483649., largest - max, {"-2147483649"}},
      {0x1p63, max, {"9223372036854775807"}},
      {-0x1p63, largest - max, {"-9223372036854775809"}},
      {1e20, max, {"99999999999999999999"}},
      {1e99, 1, {"1e99"}},
      {infinity, 1, {"1e400"}},
      {-infinity, largest, {"-1e400"}},
      {infinity, max, {many('9')}},
      // Units.
      {100, 100, {"100"}},
      {2, 2 * K, {"2KB", "2kB", "2k"}},
      {2, 2, {"2Kb"}},
      {500, 500 * M, {"500M"}},
      {5, 5 * M, {"5mB"}},
      {30, 30 * G, {"30 GB"}},
      {9, 9 * G, {"9g"}},
      {5, 5 * K, {" 5K"}},
      {1.9, K, {"1.9K"}},
      {-1, largest - K + 1, {"-1K"}},
      {1e20, max * G, {"99999999999999999999G"}},
      {50, 0, {"50%"}, 50},
      {25, 0, {"25%B"}, 25},
      {100, 0, {"100%"}, 100},
  };
  std::vector<Value> all;
  for (const auto& group : groups)
    for (const std::string& text : group.texts)
      all.push_back({text, group.number, group.bytes, group.percent});
  return all;
}

// For messages of a test that fails.
std::string shortened(const std::string& text) {
  return text.substr(0, 40) + " of " + std::to_string(text.size()) + " bytes";
}

// The size that the machine gives, in signed 32 bits, so that it wraps from 2 GiB on; none where
// the system does not say how much memory there is.
std::optional<unsigned long long> thirdOfMemory() {
  std::string name;
  std::uint32_t kilobytes = 0;
  if (!(std::ifstream("/proc/meminfo") >> name >> kilobytes))
    return std::nullopt;
  return static_cast<unsigned long long>(static_cast<std::int32_t>(kilobytes * 1024u) / 3ll);
}

void checkCache(const Value& value, const std::string& out) {
  unsigned long long limit = 0, before = 0, after = 0;
  const std::size_t line = out.find("limit ");
  ASSERT_NE(line, out.npos);
  std::sscanf(out.c_str() + line, "limit %llu, available %llu to %llu\n", &limit, &before, &after);
  const std::optional<unsigned long long> third =
      value.text.empty() ? thirdOfMemory() : std::nullopt;
  char told[64];
  std::snprintf(told, sizeof told, "MemCache: Using %lfGB", static_cast<double>(limit) * 0x1p-30);
  EXPECT_EQ(out.find(told + std::string(" RAM per default, set the environment variable "
                                        "TOLVANE_CACHESIZE=30GB to use 30GB of memory instead (for "
                                        "instance, if you have that many).\nlimit")) != out.npos,
            third.has_value())
      << out;
  if (third || value.percent == 0) {
    EXPECT_EQ(limit, third.value_or(value.bytes));
    return;
  }
  // Other programs change the available memory from moment to moment.
  const auto [least, most] = std::minmax(before, after);
  EXPECT_LE(limit, most / 100 * value.percent + (most >> 2));
  EXPECT_GE(limit + (least >> 2), least / 100 * value.percent);
}

void checkUsedFiles(const std::string& name) {
  std::error_code error;
  if (std::filesystem::is_regular_file(name, error))
    EXPECT_NE(contentOf(name).find(name + "\n"), name.npos);
  else // such a name cannot be had
    EXPECT_TRUE(windows || name.empty() || name.size() > 255);
}

} // namespace

TEST(Environment, EveryVariableTakesEveryValue) {
  const std::vector<Value> all = values();
  for (const Value& value : all) {
    const std::string& text = value.text;
    SCOPED_TRACE(shortened(text));
    const int integer = cut<int>(value.number);
    Variables variables = {{"TOLVANE_VERBOSITY_FILE_READ", "./" + text}};
    for (const char* name :
         {"SHOW_ENVIRONMENT_CONTROL_VARIABLES", "TOLVANE_VERBOSITY", "TOLVANE_VERBOSITY_DOMAINS",
          "TOLVANE_ENABLE_VERBOSITY_SECTIONS", "EDITOR", "TOLVANE_VERBOSITY_FILE_WRITE",
          "TOLVANE_VERBOSITY_CONSTRAINTS", "TOLVANE_ENABLE_DEBUG_STOP",
          "TOLVANE_ENABLE_BREAKPOINTS", "TOLVANE_NO_ASSERT", "TOLVANE_CACHESIZE",
          "MEMCACHE_VERBOSITY"})
      variables[name] = text;
    // A call stack takes long, and a search for an editor: not for all of them. The emulated
    // command interpreter does not survive long lines.
    const bool edits =
        text.size() > 1000 ? !windows : !std::isprint(static_cast<unsigned char>(text[0]));
    const ProbeResult run =
        probe(std::string("settings") + (edits ? " edit" : "") +
                  " -- default_cache -- null_ptr_exception int int -- queue_adjustments 0 1",
              {.environment = variables});
    const auto out = [&](const std::string& part) { return run.out.find(part) != run.out.npos; };
    const auto err = [&](const std::string& part) { return run.err.find(part) != run.err.npos; };
    const int level = integer == intMin ? intMax : std::abs(integer);
    EXPECT_TRUE(out("shown " + std::to_string(level) + '\n')) << run.out.substr(0, 3000);
    EXPECT_TRUE(out("traced " + std::to_string(integer) + '\n'));
    EXPECT_EQ(out("TOLVANE_VERBOSITY: Verbosity level"), integer != 0);
    EXPECT_TRUE(out("\n *** NullPtrException::NullPtrException(type = int, "));
    EXPECT_TRUE(out("\nREAKPOINT>>> said\n") == edits || (windows && text.empty()));
    checkCache(value, run.out);
    // The list of domains is parted at commas, and so the whole of it is no domain then.
    const bool passes = text.find(',') == text.npos;
    const std::string domain = text.empty() ? "" : "\033[0m" + text + "<  0> ";
    EXPECT_EQ(err(domain + "\033[1m\033[31msaid\033[0m\n"), passes || edits) << run.err;
    EXPECT_EQ(err("SECTION lasted"), passes && integer != 0);
    EXPECT_EQ(err(" Section finished in f()\n"), integer < 0);
    EXPECT_EQ(err(text + ":1: In function f(): "), integer < 0);
    // The debug stop ends the process in an adjustment, and the list of files is not written.
    EXPECT_EQ(integer == 1 ? run.aborted() : run.exitCode == 0, true) << run.signal;
    EXPECT_EQ(out(" done\n"), integer != 1);
    if (integer != 1)
      checkUsedFiles(text);
  }
  checkCache(all[0], outputOf("default_cache", {{"TOLVANE_CACHESIZE", std::nullopt}}));
  std::printf("FIGURES Environment: 13 variables with %zu values each\n", all.size());
}

TEST(Environment, ReadersTakeEveryValue) {
  constexpr const char* variable = "ENVIRONMENT_TEST_VARIABLE";
  for (const Value& value : values()) {
    if (windows && value.text.empty())
      continue; // there is no such thing
    ASSERT_TRUE(setEnv(variable, value.text, true));
    SCOPED_TRACE(shortened(value.text));
    EXPECT_EQ(getEnvInteger(variable, nullptr, 99), cut<int>(value.number));
    EXPECT_EQ(getEnvLong(variable, nullptr), cut<long>(value.number));
    const double number = getEnvFloat(variable, nullptr, 99);
    EXPECT_TRUE(number == value.number || (std::isnan(number) && std::isnan(value.number)))
        << number;
    EXPECT_EQ(getEnvString(variable, nullptr), value.text);
  }
#ifdef _WIN32
  setEnv(variable, "", true);
#else
  unsetenv(variable);
#endif
  EXPECT_EQ(getEnvInteger(variable, nullptr, 7), 7);
  EXPECT_EQ(getEnvLong(variable, nullptr), 0);
  EXPECT_EQ(getEnvFloat(variable, nullptr, -0.5), -0.5);
  EXPECT_EQ(getEnvString(variable, nullptr), "");
}
