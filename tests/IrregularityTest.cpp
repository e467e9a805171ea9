#include "Patterns.hpp"
#include "RunProbe.hpp"

#include <tolvane/Irregularity.hpp>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

namespace {

namespace fs = std::filesystem;
using Arguments = std::vector<std::string>;

std::string contentOf(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return textOf(text.str());
}

// The log that the probe leaves in a folder of its own; nothing when there is none.
class IrregularityLog : public testing::Test {
protected:
  IrregularityLog() { fs::create_directory(folder); }
  ~IrregularityLog() override { fs::remove_all(folder); }

  std::optional<std::string> logAfter(const Arguments& arguments) const {
    const ProbeResult run = runProbe(arguments, {.directory = folder});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out + run.err, "");
    if (!fs::is_regular_file(log))
      return std::nullopt;
    return contentOf(log);
  }

  const std::string folder = "reports", log = "reports/Irregularities.log";
};

std::string stamp(std::chrono::system_clock::time_point time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::localtime(&seconds));
  return text;
}

const std::string head = R"(\n\n\*\* IRREGULARITY at .{19} \*\*\nSource:)";
const std::string frames = R"(\n --- Call Stack --- \n(#\d+ +0x[0-9a-f]{16}[^\n]*\n)+)";

} // namespace

TEST_F(IrregularityLog, HoldsTheReportsOfOneProcess) {
  EXPECT_EQ(logAfter({"env_set", "X", "1"}), std::nullopt) << "no report, no file";

  std::ofstream(log) << "from an earlier run";
  const std::string before = stamp(std::chrono::system_clock::now());
  const std::string text = *logAfter({"report", "-12", "reason"});
  const std::string after = stamp(std::chrono::system_clock::now());
  const std::string time =
      groupOf(text, R"(\n\n\*\* IRREGULARITY at (.{19}) \*\*\nSource:dir/file.cpp:-12 within )"
                    R"(void f\(int\) because of reason)" +
                        frames);
  EXPECT_LE(before, time) << text;
  EXPECT_LE(time, after);
  // Functions of modules that export names are named, and every frame tells its module.
  EXPECT_NE(text.find("tolvane"), std::string::npos) << text;

  const std::string two = *logAfter({"report", "1", "first", "--", "report", "2", "second", ": x"});
  EXPECT_TRUE(matches(
      two, head + R"(dir/file.cpp:1 within void f\(int\) because of first)" + frames + head +
               R"(dir/file.cpp:2 within void f\(int\) because of second: x[^\n]*LateReport)" +
               frames))
      << two;
}

TEST_F(IrregularityLog, HoldsReportsOfStaticObjects) {
  const std::string late = *logAfter({"late_report"});
  EXPECT_NE(late.find("late.cpp:1 within f() because of the end"), std::string::npos) << late;
}

TEST_F(IrregularityLog, HoldsReportsThatComeAfterTheEndOfTheLibrary) {
  const std::string modules = TOLVANE_TEST_MODULE_DIR, suffix = TOLVANE_TEST_MODULE_SUFFIX;
  const ProbeResult run =
      runProbe({modules + "/Reports" + suffix},
               {.environment = {{"TOLVANE_VERBOSITY_FILE_WRITE", "used.txt"}},
                .directory = folder,
                .program = TOLVANE_TEST_HOST_DIR "/CallsLate" TOLVANE_TEST_PROGRAM_SUFFIX});
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(textOf(run.err), "\033[1m\033[31mearly\033[0m\n\033[1m\033[31mlate\033[0m\n");
  const std::string text = contentOf(log);
  EXPECT_TRUE(matches(text, head + "[^\n]* because of early" + frames + head +
                                "[^\n]* because of late" + frames))
      << text;
  EXPECT_TRUE(contentOf(folder + "/used.txt").ends_with("Reports.cpp\n"));
}

TEST_F(IrregularityLog, IsDoneWithoutWhenItCannotBeWritten) {
  fs::create_directory(log);
  EXPECT_EQ(logAfter({"report", "1", "reason", "--", "late_report"}), std::nullopt);
  fs::remove(log);
#ifndef _WIN32
  fs::create_symlink("/dev/full", log);
  EXPECT_EQ(logAfter({"report", "1", "reason", "--", "late_report"}), std::nullopt);
#endif
}

TEST_F(IrregularityLog, TellsWhereTheMacrosStand) {
  const std::string text = *logAfter({"report_macros"});
  EXPECT_TRUE(matches(
      text, head + R"([^\n]*DiagnosticsCommands.cpp:1001 within [^\n]*probe_report_macros[^\n]* )" +
                "because of evaluated == 0: 1" + frames + head +
                R"([^\n]*DiagnosticsCommands.cpp:1002 within [^\n]* because of 50.5i)" + frames))
      << text;
}

TEST_F(IrregularityLog, HoldsReportsOfThreadsUnmixed) {
  const std::string text = *logAfter({"report_from_threads", "4", "5"});
  EXPECT_EQ(
      countOf(text, head + R"([^\n]* because of thread \d/\d end\n --- Call Stack --- \n#0 )"), 20)
      << text;
}
