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

struct Value {
  std::string text;
  double number;
  int integer;
  /// The size of the default cache, or the share of the available memory in per cent.
  unsigned long long bytes;
  unsigned percent = 0;
};

std::vector<Value> values() {
  // The reader of the C runtime takes no other words and notations on Windows.
  const double number = windows ? 0 : infinity, sixteen = windows ? 0 : 16;
  const int maximum = windows ? 0 : intMax, minimum = windows ? 0 : intMin;
  return {
      // Nothing, blanks, no number.
      {"", 0, 0, 0, 100},
      {" ", 0, 0, 0},
      {"abc", 0, 0, 0},
      {"--3", 0, 0, 0},
      {"\xd9\xa1", 0, 0, 0},
      {"\xff\xfe", 0, 0, 0},
      {"\xc3\x28 \x80", 0, 0, 0},
      {"%s%n%1000d", 0, 0, 0},
      {std::string(longText, 'x'), 0, 0, 0},
      {std::string(longText, '\xff'), 0, 0, 0},
      // Numbers with something before and after.
      {"\t\n 7 ", 7, 7, 7},
      {"+7", 7, 7, 7},
      {"7\xff", 7, 7, 7},
      {"3abc", 3, 3, 3},
      {"3 4", 3, 3, 3},
      {"1,5", 1, 1, 1},
      {std::string(longText, ' ') + '8', 8, 8, 8},
      {std::string(longText, '0') + '8', 8, 8, 8},
      {'8' + std::string(longText, 'G'), 8, 8, 8 * G},
      // Fractions, exponents, other notations.
      {"0.9", 0.9, 0, 0},
      {"-0.9", -0.9, 0, 0},
      {"-3.7", -3.7, -3, largest - 2},
      {"0." + std::string(longText, '0') + '1', 0, 0, 0},
      {"1e3", 1000, 1000, 1},
      {"1e-400", 0, 0, 1},
      {"0x10", sixteen, static_cast<int>(sixteen), 0},
      {"inf", number, maximum, 0},
      {"-Infinity", -number, minimum, 0},
      {"nan", windows ? 0 : std::nan(""), 0, 0},
      // The limits, and beyond.
      {"1", 1, 1, 1},
      {"-1", -1, -1, largest},
      {"2147483647.9", 2147483647.9, intMax, 2147483647},
      {"2147483648", 2147483648.0, intMax, 2147483647},
      {"-2147483648.9", -2147483648.9, intMin, largest - 2147483647},
      {"-2147483649", -2147483649.0, intMin, largest - 2147483647},
      {"9223372036854775807", 0x1p63, intMax, 2147483647},
      {"-9223372036854775809", -0x1p63, intMin, largest - 2147483647},
      {"99999999999999999999", 1e20, intMax, 2147483647},
      {"1e99", 1e99, intMax, 1},
      {"1e400", infinity, intMax, 1},
      {"-1e400", -infinity, intMin, largest},
      {std::string(longText, '9'), infinity, intMax, 2147483647},
      // Units.
      {"100", 100, 100, 100},
      {"2KB", 2, 2, 2 * K},
      {"2kB", 2, 2, 2 * K},
      {"2k", 2, 2, 2 * K},
      {"2Kb", 2, 2, 2},
      {"500M", 500, 500, 500 * M},
      {"5mB", 5, 5, 5 * M},
      {"30 GB", 30, 30, 30 * G},
      {"9g", 9, 9, 9 * G},
      {"7BB", 7, 7, 7},
      {"B", 0, 0, 0},
      {"K", 0, 0, 0},
      {"M5", 0, 0, 0},
      {" 5K", 5, 5, 5 * K},
      {"1.9K", 1.9, 1, K},
      {"-1K", -1, -1, largest - K + 1},
      {"99999999999999999999G", 1e20, intMax, 2147483647 * G},
      {"0%", 0, 0, 0},
      {"50%", 50, 50, 0, 50},
      {"25%B", 25, 25, 0, 25},
      {"100%", 100, 100, 0, 100},
  };
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
  ASSERT_NE(line, out.npos) << shortened(value.text);
  std::sscanf(out.c_str() + line, "limit %llu, available %llu to %llu\n", &limit, &before, &after);
  const std::optional<unsigned long long> third =
      value.text.empty() ? thirdOfMemory() : std::nullopt;
  char told[64];
  std::snprintf(told, sizeof told, "MemCache: Using %lfGB", static_cast<double>(limit) * 0x1p-30);
  EXPECT_EQ(out.find(told + std::string(" RAM per default, set the environment variable "
                                        "TOLVANE_CACHESIZE=30GB to use 30GB of memory instead (for "
                                        "instance, if you have that many).\nlimit")) != out.npos,
            third.has_value())
      << shortened(value.text) << out;
  if (third || value.percent == 0) {
    EXPECT_EQ(limit, third.value_or(value.bytes)) << shortened(value.text);
    return;
  }
  // Other programs change the available memory from moment to moment.
  const auto [least, most] = std::minmax(before, after);
  EXPECT_LE(limit, most / 100 * value.percent + (most >> 2)) << value.text;
  EXPECT_GE(limit + (least >> 2), least / 100 * value.percent) << value.text;
}

void checkUsedFiles(const std::string& name) {
  std::error_code error;
  if (std::filesystem::is_regular_file(name, error))
    EXPECT_NE(contentOf(name).find(name + "\n"), name.npos) << shortened(name);
  else // such a name cannot be had
    EXPECT_TRUE(windows || name.empty() || name.size() > 255) << shortened(name);
}

} // namespace

TEST(Environment, EveryVariableTakesEveryValue) {
  const std::vector<Value> all = values();
  for (const Value& value : all) {
    const std::string &text = value.text, what = shortened(text);
    const int integer = value.integer;
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
    EXPECT_TRUE(out("shown " + std::to_string(level) + '\n')) << what << run.out.substr(0, 3000);
    EXPECT_TRUE(out("traced " + std::to_string(integer) + '\n')) << what;
    EXPECT_EQ(out("TOLVANE_VERBOSITY: Verbosity level"), integer != 0) << what;
    EXPECT_TRUE(out("\n *** NullPtrException::NullPtrException(type = int, ")) << what;
    EXPECT_TRUE(out("\nREAKPOINT>>> said\n") == edits || (windows && text.empty())) << what;
    checkCache(value, run.out);
    // The list of domains is parted at commas, and so the whole of it is no domain then.
    const bool passes = text.find(',') == text.npos;
    const std::string domain = text.empty() ? "" : "\033[0m" + text + "<  0> ";
    EXPECT_EQ(err(domain + "\033[1m\033[31msaid\033[0m\n"), passes || edits) << what << run.err;
    EXPECT_EQ(err("SECTION lasted"), passes && integer != 0) << what;
    EXPECT_EQ(err(" Section finished in f()\n"), integer < 0) << what;
    EXPECT_EQ(err(text + ":1: In function f(): "), integer < 0) << what;
    // The debug stop ends the process in an adjustment, and the list of files is not written.
    EXPECT_EQ(integer == 1 ? run.aborted() : run.exitCode == 0, true) << what << run.signal;
    EXPECT_EQ(out(" done\n"), integer != 1) << what;
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
    const std::string what = shortened(value.text);
    EXPECT_EQ(getEnvInteger(variable, nullptr, 99), value.integer) << what;
    // What fits is cut; what does not reads as the limit, which 32 bits have in common with int.
    const bool fits = sizeof(long) > sizeof(int) && std::abs(value.number) < 0x1p63;
    const long limit = value.number < 0   ? std::numeric_limits<long>::min()
                       : value.number > 0 ? std::numeric_limits<long>::max()
                                          : 0;
    EXPECT_EQ(getEnvLong(variable, nullptr), fits ? static_cast<long>(value.number)
                                             : sizeof(long) > sizeof(int) ? limit
                                                                          : value.integer)
        << what;
    const double number = getEnvFloat(variable, nullptr, 99);
    EXPECT_TRUE(number == value.number || (std::isnan(number) && std::isnan(value.number)))
        << what << number;
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
