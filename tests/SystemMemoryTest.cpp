#include "RunProbe.hpp"

#include <tolvane/SystemMemory.hpp>

#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

using namespace Tolvane;

TEST(SystemMemory, TellsPlausibleFigures) {
  EXPECT_GT(getMemorySize(), memsize_t{64} << 20);
  EXPECT_GT(getAvailableMemory(), 0U);
  EXPECT_LE(getAvailableMemory(), getMemorySize());
  EXPECT_GT(getMemUsage(), memsize_t{1} << 20);
  EXPECT_GT(getMemCommitCharge(), memsize_t{64} << 10);
  EXPECT_LE(getMemCommitCharge(), getMemUsage());
}

TEST(SystemMemory, FollowsAnAllocation) {
  constexpr memsize_t size = 64ULL << 20, much = size / 4 * 3;
  const memsize_t usage = setInitialMemUsage(), commit = getMemCommitCharge();
  const auto block = std::make_unique<char[]>(size); // written to, so that it counts everywhere
  // Wine asks its host for these figures only once a second.
  for (int i = 0; i < 50 && getMemUsage() < usage + much; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_EQ(block[size / 2], 0);
  EXPECT_GE(getMemUsage(), usage + much);
  EXPECT_GE(getMemCommitCharge(), commit + much);
  EXPECT_GE(getRelativeMemUsage(), static_cast<long long>(much));
}

TEST(SystemMemory, MeasuresFromTheBaseline) {
  EXPECT_EQ(textOf(runProbe({"relative_memory_before_baseline"}).out), "0 0\n");

  setInitialMemUsage(5);
  EXPECT_EQ(setInitialMemUsage(7), 5U);
  EXPECT_EQ(getInitialMemUsage(), 7U);
  const memsize_t now = setInitialMemUsage();
  EXPECT_EQ(getInitialMemUsage(), now);
  setInitialMemUsage(2 * getMemUsage());
  EXPECT_LT(getRelativeMemUsage(), 0);
  setInitialMemUsage(0);
  EXPECT_GT(getRelativeMemUsage(), 0);
}

TEST(SystemMemory, ImmediateExitRunsNothing) {
  for (const int code : {0, 7, 255}) {
    const ProbeResult run = runProbe({"immediate_exit", std::to_string(code), "unflushed"});
    EXPECT_EQ(run.exitCode, code);
    EXPECT_EQ(std::filesystem::file_size("unflushed"), 0U);
    EXPECT_EQ(run.err, "");
  }
}
