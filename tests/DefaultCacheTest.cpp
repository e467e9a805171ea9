// What the environment makes of all caches: their traces and the debug stop.

#include "Patterns.hpp"
#include "RunProbe.hpp"

#include <gtest/gtest.h>

namespace {

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

TEST(DefaultCache, ReadsItsVariablesOnce) {
  const std::string out = outputOf("default_cache -- default_cache -- cache_verbosity",
                                   {{"SHOW_ENVIRONMENT_CONTROL_VARIABLES", "1"},
                                    {"TOLVANE_CACHESIZE", "1M"},
                                    {"MEMCACHE_VERBOSITY", "3"}});
  for (const char* const line :
       {"TOLVANE_CACHESIZE: Default CacheSize used for storing objects\n",
        "MEMCACHE_VERBOSITY: Detailness of the Cacheing process of loading/unloading objects\n3 "
        "3\n"})
    EXPECT_EQ(countOf(out, line), 1) << line;
  EXPECT_EQ(outputOf("cache_verbosity -- env_set MEMCACHE_VERBOSITY 5 -- cache_verbosity",
                     {{"MEMCACHE_VERBOSITY", "-2"}}),
            "-2 -2\n-2 -2\n");
}

TEST(CacheTrace, InsertionsAndReleases) {
  const auto insert = [](const std::string& bricks, const char* verbosity) {
    const ProbeResult run =
        probe("insert_bricks 2 " + bricks, {.environment = {{"MEMCACHE_VERBOSITY", verbosity}}});
    EXPECT_TRUE(matches(run.out, "(inserted\n)+")) << run.out;
    return run.err;
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
  EXPECT_EQ(insert("a1:2 b1:2 c1:2", "0"), "");
  EXPECT_EQ(insert("a1:2 b1:2 c1:2", "1"), traced);
  EXPECT_EQ(insert("a1:0 b1:2 c1:2 d1:2", "1")
                .find(traced + adding("3 entries using 3MiB (2MiB freeable, 1MiB")),
            0u);
  const std::string memory = insert("a1:2", "2");
  EXPECT_EQ(countOf(memory, R"( \[process uses \d+.iB, available \d+.iB of \d+.iB\])"), 1)
      << memory;
}

TEST(CacheTrace, LevelsOfTheLinesOnStandardOutput) {
  const auto insert = [](const char* level) { // the second is at the limit
    std::string out = outputOf("insert_bricks 2 a1:2 b1:2", {{"MEMCACHE_VERBOSITY", level}});
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
  const auto listing = [&](const std::string& entries, const std::string& bytes,
                           const std::string& lines) {
    const std::string happened = entries +
                                 " inserted, 0 touched, 0 asked (0 released, 0 temporary, 0 "
                                 "kept, 0 unusual), 0 evicted with 0 bytes, 0 refused\n",
                      figures = "]:   Have " + entries + " entries using " + bytes + " (" +
                                entries + "M, " + entries + "M freeable, 0M unfreeable) here. \n",
                      domain = " CreatorCacheMap for listed Domain [brick::";
    return "** Cache<probe> with " + entries + " entries using " + bytes + " bytes, " + bytes +
           " of them freeable (max allowed 2097152) **\n" + domain + "Maker" + figures + domain +
           "Data" + figures + "  CacheMap for [brick::Data]: " + entries + " entries using " +
           bytes + " bytes, 0 of them kept\n    " + happened + lines + "   " + bytes +
           " bytes freeable at most; " + happened + "inserted\n";
  };
  const std::string line = "} brick::Data  1048576 bytes, creator brick::Maker, 1 strong\n";
  EXPECT_EQ(insert("11"), listing("1", "1048576", "    {a" + line) + others + queue +
                              listing("2", "2097152", "    {b" + line + "    {a" + line));
}

// The cost is printed in 32 bits, as it always was.
TEST(CacheTrace, CostsWrap) {
  std::string command = "queue_costs", expected;
  for (const auto& [cost, text] :
       {std::pair("0", "0"), std::pair("1023", "0"), std::pair("1536", "0.000976562"),
        std::pair("1048576", "1"), std::pair("2147483647", "2048"),
        std::pair("2147483648", "-2048"), std::pair("3221225472", "-1024"),
        std::pair("4294967295", "0"), std::pair("5368709120", "1024")}) {
    command += std::string(" ") + cost;
    expected += std::string("   CacheQueue::adjust(memsize_t newCost=") + text + "MB)\n";
  }
  EXPECT_EQ(outputOf(command, {{"MEMCACHE_VERBOSITY", "6"}}), expected);
}

TEST(CacheTrace, WhatIsReportedAtTheVerbosityOfMessages) {
  const ProbeOptions shown = {.environment = {{"TOLVANE_VERBOSITY", "10"}}};
  // A release that takes another object along, with the listing of the queue.
  const ProbeResult two = probe("release_two", shown), keep = probe("keep_two", shown);
  EXPECT_EQ(two.err, message(1, " CACHE successful release of 10MiB, had 3 entries, now 1"));
  EXPECT_TRUE(matches(two.out, R"(    \{c\} brick::Data \S+ 10485760 bytes\n)")) << two.out;
  EXPECT_EQ(outputOf("release_two"), "");

  // Objects that stay.
  const std::string first = groupOf(keep.out, R"((\S+) \S+\n)"),
                    second = groupOf(keep.out, R"(\S+ (\S+)\n)"),
                    domains = " kept objects (domain brick::Data, creator domain brick::Maker)";
  EXPECT_EQ(keep.err,
            message(10, "possible internal Creator issue while the reference count is correct. "
                        "Data object in charge [" +
                            first +
                            "] These data CANNOT be reproduced and thus must be kept in memory. 1 "
                            "releasable and 1" +
                            domains) +
                message(10, "2 additional reference counters were found that keep this data "
                            "object alive. Data object in charge [" +
                                second +
                                "] These data could be reproduced by the mason 0 releasable and 2" +
                                domains));

  // A temporary that comes back, and a refusal.
  const std::string refused = probe("insert_bricks 2 a1:1 b2:2", shown).err;
  for (const std::string& line :
       {message(5, "  MOVING Temporary Item [a] to Release Candidates."),
        std::string("Cache<probe>::insert(): no room for 2MiB of brick::Data")})
    EXPECT_NE(refused.find(line), std::string::npos) << refused;
}

TEST(CacheDebugStop, EndsAtTheChosenAdjustment) {
  for (const auto& [limit, expected] :
       {std::pair("0", "1234 done\n"), std::pair("-3", "1234 done\n"),
        std::pair("5", "1234 done\n"), std::pair("3", "123")}) { // the empty queue does not count
    const ProbeResult run =
        probe("queue_adjustments 5 4", {.environment = {{"TOLVANE_ENABLE_DEBUG_STOP", limit}}});
    EXPECT_EQ(run.out, expected) << limit;
    EXPECT_EQ(run.aborted(), limit[0] == '3');
  }
}
