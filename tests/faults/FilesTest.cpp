// Files that the library cannot write or read, and standard streams that are closed or full.

#include "Patterns.hpp"
#include "RunProbe.hpp"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

#ifdef _WIN32
#include <direct.h>
#else
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

namespace fs = std::filesystem;

const std::string readVariable = "TOLVANE_VERBOSITY_FILE_READ",
                  writeVariable = "TOLVANE_VERBOSITY_FILE_WRITE", logName = "Irregularities.log",
                  shown = "\033[1m\033[31mt\033[0m\n";
#ifdef _WIN32
const std::string root = "Z:"; // of the machine, below the emulator
#else
const std::string root;
#endif

// Where nothing can be written, or read that would count.
std::vector<std::string> hopelessPlaces() {
  fs::create_directory("folder");
  std::ofstream("file") << "a file";
  std::vector<std::string> places = {"folder",
                                     "file/below",
                                     "missing/file",
                                     "a:b/c",
                                     std::string(300, 'x'),
                                     std::string(5000, 'y'),
                                     "folder/" + std::string(100, '.') + "/../x\n?*",
                                     root + "/dev/full",
                                     root + "/proc/version",
                                     root + "/proc/missing"};
#ifndef _WIN32
  fs::create_symlink("loop", "loop");
  places.push_back("loop/file");
  if (geteuid() != 0) { // whom no rights hold back
    fs::create_directory("closed");
    fs::permissions("closed", fs::perms::owner_read | fs::perms::owner_exec);
    places.push_back("closed/file");
  }
#endif
  return places;
}

} // namespace

TEST(Files, ListsOfSourceFilesAreGivenUp) {
  for (const std::string& place : hopelessPlaces())
    for (const auto& variable : {writeVariable, readVariable}) {
      const ProbeResult run =
          probe("message 0 t -- write_used_files", {.environment = {{variable, place}}});
      EXPECT_EQ(run.exitCode, 0) << variable << place;
      EXPECT_EQ(run.err, shown) << variable << place;
    }
}

TEST(Files, ListsMayHaveAnyName) {
  for (const std::string name : {"\xc3\x9c \xe2\x82\xac", "a b", "#", "100%s"}) {
    fs::remove(name);
    const Variables writes = {{writeVariable, name}}, reads = {{readVariable, name}};
    EXPECT_EQ(probe("message 0 t '' '' b.cpp", {.environment = writes}).err, shown);
    EXPECT_EQ(contentOf(name), "b.cpp\n");
    std::ofstream(name) << "#b.cpp";
    EXPECT_EQ(probe("message 0 t '' '' b.cpp", {.environment = reads}).err, "");
  }
}

// The folder is where the log of irregularities would be.
TEST(Files, ReportsGoWithoutALog) {
  fs::create_directories("taken/" + logName);
  std::vector<std::string> folders = {"taken"};
#ifndef _WIN32
  folders.push_back("/proc"); // closed to everybody
  for (const char* target : {"/dev/full", "missing/file", "Irregularities.log", "/proc/version"}) {
    folders.push_back("linked" + std::to_string(folders.size()));
    fs::create_directory(folders.back());
    fs::create_symlink(target, folders.back() + '/' + logName);
  }
#endif
  for (const std::string& folder : folders) {
    const ProbeResult run =
        probe("report 1 reason -- report_from_threads 2 5 -- late_report -- message 0 t",
              {.environment = {{writeVariable, "list"}}, .directory = folder});
    EXPECT_EQ(run.exitCode, 0) << folder;
    EXPECT_EQ(run.err, shown) << folder << run.err;
  }
  const std::string named = "\xc3\x9c b";
#ifdef _WIN32
  _mkdir(named.c_str()); // a path of the standard library would be of another encoding
#else
  mkdir(named.c_str(), 0777);
#endif
  EXPECT_EQ(probe("report 1 reason", {.directory = named}).exitCode, 0);
  EXPECT_EQ(countOf(contentOf(named + '/' + logName), "because of reason"), 1);
}

// What is printed goes nowhere, above all not into a file that is opened in the stream's place.
TEST(Files, StandardStreamsMayBeClosedOrFull) {
  const Variables variables = {{writeVariable, "list"},
                               {"MEMCACHE_VERBOSITY", "20"},
                               {"TOLVANE_ENABLE_VERBOSITY_SECTIONS", "-1"},
                               {"TOLVANE_ENABLE_BREAKPOINTS", "1"},
                               {"SHOW_ENVIRONMENT_CONTROL_VARIABLES", "1"}};
  const std::string usual = "message 0 t '' '' b.cpp -- console t -- report 1 first -- section -- "
                            "insert_bricks 2 a1:2 b1:2 c1:2 -- point access -- break_at t -- "
                            "report 2 second -- late_message t -- ";
  const std::string full = root + "/dev/full";
  const std::map<int, std::string> cases[] = {{{1, ""}},
                                              {{2, ""}},
                                              {{0, ""}, {1, ""}},
                                              {{1, ""}, {2, ""}},
                                              {{0, ""}, {1, ""}, {2, ""}},
                                              {{1, full}},
                                              {{2, full}},
                                              {{1, full}, {2, full}},
                                              {{1, ""}, {2, full}}};
  for (const auto& streams : cases) {
    std::string what;
    for (const auto& [number, path] : streams)
      what += std::to_string(number) + path + ' ';
    fs::remove(logName);
    fs::remove("list");
    const ProbeOptions options = {.environment = variables, .streams = streams};
    EXPECT_EQ(probe(usual + "return", options).exitCode, 5) << what;
    EXPECT_TRUE(matches(textOf(contentOf(logName)),
                        R"((\n\n\*\* IRREGULARITY at .{19} \*\*\nSource:[^\n]*\n)"
                        R"( --- Call Stack --- \n(#\d+ [^\n]*\n)+){2})"))
        << what << contentOf(logName);
    EXPECT_TRUE(matches(contentOf("list"), "([^ ]+\\.[ch]pp\n|elementary/tolvane/CacheQueue\n)+"))
        << what << contentOf("list");
    EXPECT_TRUE(probe("install_terminate_handler -- end throw", options).aborted()) << what;
  }
}
