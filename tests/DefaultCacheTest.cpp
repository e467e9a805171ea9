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
  std::ifstream file("/proc/meminfo");
  std::string name;
  long kilobytes = 0;
  return file >> name >> kilobytes ? std::optional(kilobytes) : std::nullopt;
}

// A share of the available memory, which other programs change from moment to moment.
void expectAvailable(const DefaultCache& cache, unsigned percent) {
  const unsigned long long most = std::max(cache.before, cache.after),
                           least = std::min(cache.before, cache.after);
  EXPECT_LE(cache.limit, most / 100 * percent + (most >> 2));
  EXPECT_GE(cache.limit + (least >> 2), least / 100 * percent);
  EXPECT_EQ(cache.printed, "");
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

std::string adding(const std::string& have) {
  return message(0, "Info: Cache<probe>::insert(): Have " + have +
                        " unfreeable) of 2MiB allowed, adding 1MiB brick::Data ---> Creator Type "
                        "brick::Maker");
}

} // namespace

TEST(DefaultCache, SizeByTheVariable) {
  constexpr unsigned long long K = 1024, M = K * K, G = K * M, largest = ~0ull;
  const std::pair<const char*, unsigned long long> cases[] = {
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
      {"-99999999999", largest - 2147483647}};
  for (const auto& [value, limit] : cases) {
    const DefaultCache cache = defaultCache(value);
    EXPECT_EQ(cache.limit, limit) << '"' << value << '"';
    EXPECT_EQ(cache.printed, "");
  }
  const std::pair<const char*, unsigned> shares[] = {{"50%", 50}, {"25%B", 25}, {"100%", 100}};
  for (const auto& [value, percent] : shares)
    expectAvailable(defaultCache(value), percent);
}

TEST(DefaultCache, SizeByTheMachine) {
  for (const std::optional<std::string>& size : {std::optional<std::string>(), {""}}) {
    const DefaultCache cache = defaultCache(size);
    const std::optional<long> kilobytes = totalKilobytes();
    if (!kilobytes) {
      expectAvailable(cache, 100);
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
  for (const char* const line :
       {"TOLVANE_CACHESIZE: Default CacheSize used for storing objects\n",
        "MEMCACHE_VERBOSITY: Detailness of the Cacheing process of loading/unloading objects\n3 "
        "3\n",
        "TOLVANE_ENABLE_DEBUG_STOP: Terminate the application after that many number of object "
        "insertions - use for debug only.\n"})
    EXPECT_EQ(countOf(out, line), 1) << line;
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
  const auto insert = [](const Arguments& bricks, const char* verbosity) {
    Arguments arguments = {"insert_bricks", "2"};
    arguments.insert(arguments.end(), bricks.begin(), bricks.end());
    const ProbeResult result = run(arguments, {{"MEMCACHE_VERBOSITY", verbosity}});
    EXPECT_EQ(countOf(result.out, "inserted\n"), static_cast<int>(bricks.size()));
    EXPECT_EQ(result.out.size(), bricks.size() * 9);
    return result.err;
  };
  // The sums tell what can be freed from what cannot.
  const std::string traced =
      adding("0 entries using 0KiB (0KiB freeable, 0KiB") +
      adding("1 entries using 1MiB (1MiB freeable, 0KiB") +
      adding("2 entries using 2MiB (2MiB freeable, 0KiB") +
      message(0, "CacheQueue adjust: Total 2MiB (limit 2MiB, this releasable [a] uses 1MiB of 2MiB "
                 "in this domain), trying to release ") +
      message(0, "    CacheQueue release candidate brick::Data [a] is one of 2 elements using "
                 "2MiB");
  EXPECT_EQ(insert({"a1:2", "b1:2", "c1:2"}, "0"), "");
  EXPECT_EQ(insert({"a1:2", "b1:2", "c1:2"}, "1"), traced);
  EXPECT_EQ(insert({"a1:0", "b1:2", "c1:2", "d1:2"}, "1")
                .find(traced + adding("3 entries using 3MiB (2MiB freeable, 1MiB")),
            0u);
  const std::string memory = insert({"a1:2"}, "2");
  EXPECT_EQ(countOf(memory, R"( \[process uses \d+.iB, available \d+.iB of \d+.iB\])"), 1)
      << memory;
}

TEST(CacheTrace, LevelsOfTheLinesOnStandardOutput) {
  const auto insert = [](const char* level) { // the second is at the limit
    std::string out =
        run({"insert_bricks", "2", "a1:2", "b1:2"}, {{"MEMCACHE_VERBOSITY", level}}).out;
    const std::string name = "} brick::Data ";
    for (auto at = out.find(name); at != std::string::npos; at = out.find(name, at + 1))
      out.erase(at + name.size(), out.find(' ', at + name.size()) - at - name.size()); // address
    return out;
  };
  const std::string queue = "   CacheQueue::adjust(memsize_t newCost=1MB)\n",
                    others = "bool Cache::adjust(): Have 1048576 Allowed 2097152 new 1048576\n"
                             " CreatorCacheMap::adjust(brick::Maker, Cache, newCost=1MB) HAVE 1MB "
                             "of this domain\n"
                             "   CacheMap::adjust(brick::Data, Cache, newCost=1MB) HAVE 1MB of "
                             "this domain\n";
  EXPECT_EQ(insert("5"), "inserted\ninserted\n");
  EXPECT_EQ(insert("6"), "inserted\n" + queue + "inserted\n");
  EXPECT_EQ(insert("10"), insert("6"));
  const auto happened = [](const std::string& entries) {
    return entries + " inserted, 0 touched, 0 asked (0 released, 0 temporary, 0 kept, 0 unusual), "
                     "0 evicted with 0 bytes, 0 refused\n";
  };
  const auto listing = [&](const std::string& entries, const std::string& bytes) {
    const std::string figures = "]:   Have " + entries + " entries using " + bytes + " (" +
                                entries + "M, " + entries + "M freeable, 0M unfreeable) here. \n",
                      domain = " CreatorCacheMap for listed Domain [brick::";
    return "** Cache<probe> with " + entries + " entries using " + bytes + " bytes, " + bytes +
           " of them freeable (max allowed 2097152) **\n" + domain + "Maker" + figures + domain +
           "Data" + figures + "  CacheMap for [brick::Data]: " + entries + " entries using " +
           bytes + " bytes, 0 of them kept\n    " + happened(entries);
  };
  const auto line = [](const std::string& name) {
    return "    {" + name + "} brick::Data  1048576 bytes, creator brick::Maker, 1 strong\n";
  };
  const auto end = [&](const std::string& entries, const std::string& bytes) {
    return "   " + bytes + " bytes freeable at most; " + happened(entries) + "inserted\n";
  };
  EXPECT_EQ(insert("11"), listing("1", "1048576") + line("a") + end("1", "1048576") + others +
                              queue + listing("2", "2097152") + line("b") + line("a") +
                              end("2", "2097152"));
}

// The cost is printed in 32 bits, as it always was.
TEST(CacheTrace, CostsWrap) {
  const std::pair<const char*, const char*> costs[] = {
      {"0", "0"},          {"1023", "0"},          {"1024", "0.000976562"}, {"1536", "0.000976562"},
      {"1048576", "1"},    {"2147483647", "2048"}, {"2147483648", "-2048"}, {"3221225472", "-1024"},
      {"4294967295", "0"}, {"5368709120", "1024"}};
  Arguments arguments = {"queue_costs"};
  std::string expected;
  for (const auto& [cost, text] : costs) {
    arguments.push_back(cost);
    expected += std::string("   CacheQueue::adjust(memsize_t newCost=") + text + "MB)\n";
  }
  EXPECT_EQ(run(arguments, {{"MEMCACHE_VERBOSITY", "6"}}).out, expected);
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
