// The default cache and what the environment makes of all caches; each case in a fresh process.

#include "Patterns.hpp"
#include "RunProbe.hpp"

#include <tolvane/Cache.hpp>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>

using namespace Tolvane;

namespace {

using Arguments = std::vector<std::string>;
using Variables = std::map<std::string, std::optional<std::string>>;

ProbeResult run(const Arguments& arguments, const Variables& environment) {
  ProbeResult result = runProbe(arguments, {.environment = environment});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  result.out = textOf(result.out);
  result.err = textOf(result.err);
  return result;
}

struct DefaultCache {
  unsigned long long limit = 0, before = 0, after = 0;
  std::string printed;
};

DefaultCache defaultCache(const std::optional<std::string>& size) {
  const std::string out = run({"default_cache"}, {{"TOLVANE_CACHESIZE", size}}).out;
  DefaultCache result;
  const std::size_t line = out.rfind("limit ");
  EXPECT_EQ(std::sscanf(out.substr(std::min(line, out.size())).c_str(),
                        "limit %llu, available %llu to %llu\n", &result.limit, &result.before,
                        &result.after),
            3)
      << out;
  result.printed = out.substr(0, line);
  return result;
}

// The kilobytes that the system says it has, where it says so.
std::optional<long> totalKilobytes() {
  std::FILE* file = std::fopen("/proc/meminfo", "r");
  long kilobytes = 0;
  const bool read = file && std::fscanf(file, "MemTotal:\t %ld kB", &kilobytes) == 1;
  if (file)
    std::fclose(file);
  return read ? std::optional(kilobytes) : std::nullopt;
}

// A share of the available memory, which other programs change from moment to moment.
void expectAvailable(const DefaultCache& cache, unsigned percent) {
  const unsigned long long most = std::max(cache.before, cache.after),
                           least = std::min(cache.before, cache.after);
  EXPECT_LE(cache.limit, most / 100 * percent + (most >> 2));
  EXPECT_GE(cache.limit + (least >> 2), least / 100 * percent);
}

// A message of the domain Mem as the error stream shows it.
std::string message(int level, const std::string& text) {
  const std::string number = std::to_string(level);
  return "\033[0mMem<" + std::string(3 - number.size(), ' ') + number + "> " +
         (level < 1    ? "\033[1m\033[31m"
          : level < 10 ? "\033[31m"
                       : "\033[1m\033[35m") +
         text + "\033[0m\n";
}

std::string adding(const std::string& have, const std::string& more = {}) {
  return message(0, "Info: Cache<probe>::insert(): Have " + have +
                        " unfreeable) of 2MiB allowed, adding 1MiB brick::Data ---> Creator Type "
                        "brick::Maker" +
                        more);
}

} // namespace

TEST(DefaultCache, SizeByTheVariable) {
  constexpr unsigned long long K = 1024, M = K * K, G = K * M, largest = ~0ull;
  const struct {
    const char* value;
    unsigned long long limit;
  } cases[] = {
      {"100", 100},
      {"2KB", 2 * K},
      {"2K", 2 * K},
      {"2kB", 2 * K},
      {"2k", 2 * K},
      {"2Kb", 2},
      {"500M", 500 * M},
      {"500m", 500 * M},
      {"5mB", 5 * M},
      {"30G", 30 * G},
      {"30GB", 30 * G},
      {"30 GB", 30 * G},
      {"1g", G},
      {"7B", 7},
      {"7BB", 7},
      {"B", 0},
      {"K", 0},
      {"text", 0},
      {"M5", 0},
      {" 5K", 5 * K},
      {"+5K", 5 * K},
      {"1.9K", K},
      {"0%", 0},
      {"-1", largest},
      {"-1K", largest - K + 1},
      {"2147483647", 2147483647},
      {"4294967296", 2147483647},
      {"99999999999999999999G", 2147483647 * G},
      {"-99999999999", largest - 2147483647},
  };
  for (const auto& test : cases) {
    const DefaultCache cache = defaultCache(test.value);
    EXPECT_EQ(cache.limit, test.limit) << '"' << test.value << '"';
    EXPECT_EQ(cache.printed, "");
  }
}

TEST(DefaultCache, SizeByAPercentage) {
  const std::pair<const char*, unsigned> cases[] = {{"50%", 50}, {"25%B", 25}, {"100%", 100}};
  for (const auto& [value, percent] : cases) {
    SCOPED_TRACE(value);
    const DefaultCache cache = defaultCache(value);
    expectAvailable(cache, percent);
    EXPECT_EQ(cache.printed, "");
  }
}

TEST(DefaultCache, SizeByTheMachine) {
  for (const std::optional<std::string>& size : {std::optional<std::string>(), {""}}) {
    const DefaultCache cache = defaultCache(size);
    const std::optional<long> kilobytes = totalKilobytes();
    if (!kilobytes) {
      expectAvailable(cache, 100);
      EXPECT_EQ(cache.printed, "");
      continue;
    }
    // In signed 32 bits, so that it wraps from 2 GiB on.
    const long long wrapped =
        static_cast<std::int32_t>(static_cast<std::uint32_t>(*kilobytes) * 1024u);
    const auto limit = static_cast<unsigned long long>(wrapped / 3);
    EXPECT_EQ(cache.limit, limit);
    char text[64];
    std::snprintf(text, sizeof text, "MemCache: Using %lfGB", static_cast<double>(limit) * 0x1p-30);
    EXPECT_EQ(cache.printed,
              text + std::string(" RAM per default, set the environment variable "
                                 "TOLVANE_CACHESIZE=30GB to use 30GB of memory instead (for "
                                 "instance, if you have that many).\n"));
  }
}

TEST(DefaultCache, ReadsItsVariablesOnce) {
  const Variables show = {{"SHOW_ENVIRONMENT_CONTROL_VARIABLES", "1"},
                          {"TOLVANE_CACHESIZE", "1M"},
                          {"MEMCACHE_VERBOSITY", "3"}};
  const std::string out =
      run({"default_cache", "--", "default_cache", "--", "cache_verbosity"}, show).out;
  EXPECT_EQ(countOf(out, "TOLVANE_CACHESIZE: Default CacheSize used for storing objects\n"), 1);
  EXPECT_EQ(countOf(out, "MEMCACHE_VERBOSITY: Detailness of the Cacheing process of "
                         "loading/unloading objects\n3 3\n"),
            1);
  EXPECT_EQ(countOf(out, "TOLVANE_ENABLE_DEBUG_STOP: Terminate the application after that many "
                         "number of object insertions - use for debug only.\n"),
            1);
  EXPECT_EQ(run({"cache_verbosity"}, {}).out, "0 0\n");
  EXPECT_EQ(
      run({"cache_verbosity", "--", "env_set", "MEMCACHE_VERBOSITY", "5", "--", "cache_verbosity"},
          {{"MEMCACHE_VERBOSITY", "-2"}})
          .out,
      "-2 -2\n-2 -2\n");
}

TEST(DefaultCache, OutlivesWhatDiesWithTheProcess) {
  const std::string out = run({"static_bricks"}, {}).out;
  EXPECT_EQ(countOf(out, "4 entries\n"), 1) << out;
  for (const char* const name : {"l1", "l2", "f1", "f2"})
    EXPECT_EQ(countOf(out, std::string(name) + " dies, [1-9] in a ring\n"), 1) << out;
}

TEST(CacheTrace, InsertionsAndReleases) {
  const Arguments bricks = {"insert_bricks", "2", "a1:2", "b1:2", "c1:2"};
  const ProbeResult silent = run(bricks, {});
  EXPECT_EQ(silent.out, "inserted\ninserted\ninserted\n");
  EXPECT_EQ(silent.err, "");

  const std::string evicting =
      message(0, "CacheQueue adjust: Total 2MiB (limit 2MiB, this releasable [a] uses 1MiB of 2MiB "
                 "in this domain), trying to release ") +
      message(0, "    CacheQueue release candidate brick::Data [a] is one of 2 elements using "
                 "2MiB");
  const ProbeResult traced = run(bricks, {{"MEMCACHE_VERBOSITY", "1"}});
  EXPECT_EQ(traced.out, silent.out);
  EXPECT_EQ(traced.err, adding("0 entries using 0KiB (0KiB freeable, 0KiB") +
                            adding("1 entries using 1MiB (1MiB freeable, 0KiB") +
                            adding("2 entries using 2MiB (2MiB freeable, 0KiB") + evicting);

  const ProbeResult memory = run({"insert_bricks", "2", "a1:2"}, {{"MEMCACHE_VERBOSITY", "2"}});
  EXPECT_EQ(countOf(memory.err, R"( \[process uses \d+.iB, available \d+.iB of \d+.iB\])"), 1)
      << memory.err;
  EXPECT_EQ(memory.out, "inserted\n");

  // The sums tell what can be freed from what cannot.
  const std::string kept =
      run({"insert_bricks", "2", "a1:0", "b1:2", "c1:2"}, {{"MEMCACHE_VERBOSITY", "1"}}).err;
  EXPECT_EQ(kept, adding("0 entries using 0KiB (0KiB freeable, 0KiB") +
                      adding("1 entries using 1MiB (1MiB freeable, 0KiB") +
                      adding("2 entries using 2MiB (2MiB freeable, 0KiB") + evicting);
  EXPECT_NE(
      run({"insert_bricks", "2", "a1:0", "b1:2", "c1:2", "d1:2"}, {{"MEMCACHE_VERBOSITY", "1"}})
          .err.find("Have 3 entries using 3MiB (2MiB freeable, 1MiB unfreeable) of 2MiB "),
      std::string::npos);
}

TEST(CacheTrace, LevelsOfTheLinesOnStandardOutput) {
  const Arguments bricks = {"insert_bricks", "2", "a1:2", "b1:2"}; // the second is at the limit
  const std::string queue = "   CacheQueue::adjust(memsize_t newCost=1MB)\n",
                    cache = "bool Cache::adjust(): Have 1048576 Allowed 2097152 new 1048576\n",
                    creators = " CreatorCacheMap::adjust(brick::Maker, Cache, newCost=1MB) HAVE "
                               "1MB of this domain\n",
                    map = "   CacheMap::adjust(brick::Data, Cache, newCost=1MB) HAVE 1MB of this "
                          "domain\n";
  for (const char* const level : {"5", "6", "10"})
    EXPECT_EQ(run(bricks, {{"MEMCACHE_VERBOSITY", level}}).out,
              "inserted\n" + (level == std::string("5") ? "" : queue) + "inserted\n")
        << level;
  const std::string all = run(bricks, {{"MEMCACHE_VERBOSITY", "11"}}).out;
  const auto listing = [](const std::string& entries, const std::string& mebibytes,
                          const std::string& bytes) {
    const auto domain = [&](const std::string& name) {
      return R"( CreatorCacheMap for listed Domain \[brick::)" + name + R"(\]:   Have )" + entries +
             " entries using " + bytes + R"( \()" + mebibytes + "M, " + mebibytes +
             R"(M freeable, 0M unfreeable\) here. \n)";
    };
    return R"(\*\* Cache<probe> with )" + entries + " entries using " + bytes + " bytes, " + bytes +
           R"( of them freeable \(max allowed 2097152\) \*\*\n)" + domain("Maker") +
           domain("Data") + R"(  CacheMap for \[brick::Data[^\n]*\n    )" + entries +
           " inserted, 0 touched, 0 asked[^\n]* 0 refused\n";
  };
  const auto plain = [](const std::string& text) {
    std::string pattern;
    for (const char c : text)
      pattern +=
          (std::string("()[]*.").find(c) != std::string::npos ? "\\" : "") + std::string(1, c);
    return pattern;
  };
  const std::string line = R"(    \{[ab]\} brick::Data [^\n]*\n)",
                    sum = R"(   \d+ bytes freeable at most; [^\n]*\n)";
  EXPECT_TRUE(matches(all, listing("1", "1", "1048576") + line + sum + "inserted\n" +
                               plain(cache + creators + map + queue) +
                               listing("2", "2", "2097152") + line + line + sum + "inserted\n"))
      << all;
}

// The cost is printed in 32 bits, as it always was.
TEST(CacheTrace, CostsWrap) {
  EXPECT_EQ(run({"queue_costs", "0", "1023", "1024", "1536", "1048576", "2147483647", "2147483648",
                 "3221225472", "4294967295", "5368709120"},
                {{"MEMCACHE_VERBOSITY", "6"}})
                .out,
            "   CacheQueue::adjust(memsize_t newCost=0MB)\n"
            "   CacheQueue::adjust(memsize_t newCost=0MB)\n"
            "   CacheQueue::adjust(memsize_t newCost=0.000976562MB)\n"
            "   CacheQueue::adjust(memsize_t newCost=0.000976562MB)\n"
            "   CacheQueue::adjust(memsize_t newCost=1MB)\n"
            "   CacheQueue::adjust(memsize_t newCost=2048MB)\n"
            "   CacheQueue::adjust(memsize_t newCost=-2048MB)\n"
            "   CacheQueue::adjust(memsize_t newCost=-1024MB)\n"
            "   CacheQueue::adjust(memsize_t newCost=0MB)\n"
            "   CacheQueue::adjust(memsize_t newCost=1024MB)\n");
}

TEST(CacheTrace, WhatIsReportedAtTheVerbosityOfMessages) {
  const Variables shown = {{"TOLVANE_VERBOSITY", "10"}};
  // A release that takes another object along, with the listing of the queue.
  const ProbeResult two = run({"release_two"}, shown);
  EXPECT_EQ(two.err, message(1, " CACHE successful release of 10MiB, had 3 entries, now 1"));
  EXPECT_TRUE(matches(two.out, R"(    \{c\} brick::Data \S+ 10485760 bytes\n)")) << two.out;
  EXPECT_EQ(run({"release_two"}, {}).out, "");

  // Objects that stay.
  const ProbeResult keep = run({"keep_two"}, shown);
  const std::string first = groupOf(keep.out, R"((\S+) \S+\n)"),
                    second = groupOf(keep.out, R"(\S+ (\S+)\n)");
  EXPECT_EQ(
      keep.err,
      message(10, "possible internal Creator issue while the reference count is correct. Data "
                  "object in charge [" +
                      first +
                      "] These data CANNOT be reproduced and thus must be kept in memory. 1 "
                      "releasable and 1 kept objects (domain brick::Data, creator domain "
                      "brick::Maker)") +
          message(10, "2 additional reference counters were found that keep this data object "
                      "alive. Data object in charge [" +
                          second +
                          "] These data could be reproduced by the mason 0 releasable and 2 kept "
                          "objects (domain brick::Data, creator domain brick::Maker)"));

  // A temporary that comes back, and a refusal.
  const std::string refused = run({"insert_bricks", "2", "a1:1", "b2:2"}, shown).err;
  EXPECT_NE(refused.find(message(5, "  MOVING Temporary Item [a] to Release Candidates.")),
            std::string::npos)
      << refused;
  EXPECT_NE(refused.find(message(1, "Cache<probe>::insert(): no room for 2MiB of brick::Data")),
            std::string::npos)
      << refused;
}

TEST(CacheDebugStop, EndsAtTheChosenAdjustment) {
  const auto adjust = [](const std::optional<std::string>& limit, const Arguments& before = {}) {
    Arguments arguments = before;
    arguments.insert(arguments.end(), {"queue_adjustments", "5", "4"});
    return runProbe(arguments, {.environment = {{"TOLVANE_ENABLE_DEBUG_STOP", limit}}});
  };
  for (const std::optional<std::string>& off :
       {std::optional<std::string>(), {"0"}, {"-3"}, {"5"}, {"0.9"}}) {
    const ProbeResult all = adjust(off);
    EXPECT_EQ(all.exitCode, 0) << off.value_or("unset");
    EXPECT_EQ(textOf(all.out), "1234 done\n");
  }
  const ProbeResult third = adjust("3");
  EXPECT_TRUE(third.aborted());
  EXPECT_EQ(third.out, "123") << "those of the empty queue do not count";
  const ProbeResult handled = adjust("1", {"install_terminate_handler", "--"});
  EXPECT_TRUE(handled.aborted());
  EXPECT_EQ(textOf(handled.out), "1Tolvane:: C++ terminate handler called - uncaught exception!\n");
}

// The first push into any queue asks for type names, and so makes the plain types readable.
TEST(CacheTrace, TheFirstPushNamesThePlainTypes) {
  EXPECT_EQ(run({"type_names", "int"}, {}).out, "int\n");
  EXPECT_EQ(run({"push_brick", "--", "type_names", "int"}, {}).out, "int32_t\n");
}
