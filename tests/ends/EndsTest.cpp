// How processes and modules end, and what of the library goes on until then.

#include "Patterns.hpp"
#include "RunProbe.hpp"

#include <filesystem>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

const std::string modulePath = TOLVANE_TEST_MODULE_DIR "/Lingers" TOLVANE_TEST_MODULE_SUFFIX,
                  logName = "Irregularities.log", frames = R"((#\d+ +0x[0-9a-f]{16}[^\n]*\n)+)";
#ifdef _WIN32
constexpr bool windows = true;
#else
constexpr bool windows = false;
#endif

std::string entry(const std::string& reason) {
  return R"(\n\n\*\* IRREGULARITY at .{19} \*\*\nSource:[^\n]* because of )" + reason +
         R"(\n --- Call Stack --- \n)" + frames;
}

// How often something was said in a message, on standard output and in the log.
std::string timesSaid(const std::string& when, const ProbeResult& run, const std::string& log) {
  const auto count = [](const std::string& text, const std::string& pattern) {
    return std::to_string(countOf(text, pattern));
  };
  return count(run.err, when + "<  0> [^\n]*31m   " + when + "\x1b") +
         count(run.out, "\n" + when + ": Tolvane::Cacheable -111 7\n") +
         count(log, "because of " + when);
}

} // namespace

// Objects, creators and caches are in static and thread-local variables of the program and of a
// module; their destructors use the whole library, the first time while other threads do as well.
TEST(Ends, OfAProcess) {
  const std::string all = "in function, of the program, of the thread, last",
                    // Windows tells modules and threads of every end but the hardest.
      notified = windows ? "of the thread, last" : "";
  const struct {
    const char* way;
    bool aborts, announced;
    std::string said;
  } ends[] = {{"return", false, false, all},
              {"end exit", false, false, all},
              {"end exit-on-thread", false, false, "in function, of the program, last"},
              {"end exit-in-release", false, false, all},
              {"end exit-in-catcher", false, false, all},
#ifndef _WIN32
              {"end quick-exit", false, false, ""},
#endif
              {"end _Exit", false, false, notified},
              {"end immediate", false, false, ""},
              {"end immediate-on-thread", false, false, ""},
              {"end abort", true, false, notified},
              {"end throw", true, true, notified},
              {"end throw-on-thread", true, true, windows ? "last" : ""},
              {"end throw-noexcept", true, true, notified}};
  for (const auto& end : ends)
    for (const std::string work : {"work -- ", ""}) {
      // Windows stops threads before it ends modules. One of them may own what belongs to the
      // system, its heap above all, and with that the emulated system hangs.
      const bool onlyProgram = windows && !work.empty();
      const std::string others =
          onlyProgram ? ""
                      : "load_module '" + modulePath + "' -- module_lingers -- thread_lingers -- ";
      ProbeResult run;
      // The emulated system may stop a thread within a spin lock of its own. The next memory that
      // the end of a module gives back then waits for it for ever, in some runs of a thousand.
      for (int attempt = 0; attempt < (onlyProgram ? 3 : 1); ++attempt) {
        fs::remove(logName);
        run = probe("install_terminate_handler -- report 1 before -- linger -- " + others + work +
                    end.way);
        if (!run.hung())
          break;
      }
      EXPECT_TRUE(end.aborts ? run.aborted() : run.exitCode == 5)
          << end.way << run.exitCode << ' ' << run.signal << run.err.substr(0, 5000);
      EXPECT_EQ(
          countOf(run.out, "Tolvane:: C\\+\\+ terminate handler called - uncaught exception!"),
          end.announced)
          << end.way;
      const std::string log = textOf(contentOf(logName));
      EXPECT_EQ(countOf(log, "because of before\n"), 1) << end.way;
      for (const std::string name : {"in function", "of the program", "of the thread", "last"}) {
        const bool lingers = !onlyProgram || name == "in function" || name == "of the program";
        EXPECT_EQ(timesSaid(name, run, log),
                  lingers && end.said.find(name) != end.said.npos ? "111" : "000")
            << end.way << ": " << name;
      }
    }
  const ProbeResult silent = probe("end throw");
  EXPECT_TRUE(silent.aborted());
  EXPECT_EQ(silent.out, "");
}

TEST(Ends, AtOnceRunNothing) {
  for (const int code : {0, 7, 255}) {
    const ProbeResult run = probe("immediate_exit " + std::to_string(code) + " unflushed");
    EXPECT_EQ(run.exitCode, code);
    EXPECT_EQ(contentOf("unflushed") + run.err, "");
  }
}

// A host that does not link the library, with an exit handler that runs after the library's end.
TEST(Ends, OfTheLibraryBeforeTheProgram) {
  const auto line = [](const std::string& text) {
    return "\033[0m" + text + "<  0> \033[1m\033[31m   " + text + "\033[0m\n";
  };
  std::string last = entry("last");
  if (windows) // threads are gone that may hold up the stack
    last.erase(last.find(R"(\n ---)"));
  // Exit handlers come first on Windows. The second filter is malformed, with no caller to tell.
  const std::string reports =
      entry("early") + (windows ? entry("late") + last : last + entry("late"));
  for (const std::string filter : {"", "early,last,Mem,late:"}) {
    if (windows && !filter.empty())
      break;
    fs::remove(logName);
    const ProbeResult run =
        probe("'" + modulePath + "'",
              {.environment = {{"TOLVANE_VERBOSITY_FILE_WRITE", "used.txt"},
                               {"TOLVANE_VERBOSITY_DOMAINS", filter}},
               .program = TOLVANE_TEST_HOST_DIR "/CallsLate" TOLVANE_TEST_PROGRAM_SUFFIX});
    EXPECT_EQ(run.exitCode, 0) << filter;
    EXPECT_EQ(run.err, line("early") + (windows          ? line("late") + line("last")
                                        : filter.empty() ? line("last") + line("late")
                                                         : line("last")))
        << filter;
    const std::string text = textOf(contentOf(logName));
    EXPECT_TRUE(matches(text, reports)) << text;
    EXPECT_TRUE(contentOf("used.txt").ends_with("Lingering.hpp\n"));
  }
}

// The host loads and unloads the library, twice in one process.
TEST(Ends, OfTheLibraryInAProcess) {
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {"unload", {"0", "1"}},
      {"unload_before_thread", {"0", "1"}}, // which used the library
      {"stay", {""}}};                      // the end of the process does the same
  for (const auto& [how, prefixes] : cases) {
    fs::create_directory(how);
    const ProbeResult run =
        probe("'" TOLVANE_TEST_LIBRARY "' '" + modulePath + "' " + how,
              // The tables of the library stay allocated until the process ends; a leak detector
              // cannot reach them once the library itself is unmapped.
              {.environment = {{"TOLVANE_VERBOSITY_FILE_WRITE", "used.txt"},
                               {"ASAN_OPTIONS", "detect_leaks=0"}},
               .directory = how,
               .program = TOLVANE_TEST_HOST_DIR "/LoadsLibrary" TOLVANE_TEST_PROGRAM_SUFFIX});
    EXPECT_EQ(run.exitCode, 0) << how << run.signal << run.out;
    const int times = static_cast<int>(prefixes.size());
    EXPECT_EQ(countOf(run.out, "mapped: 0 0\nopen: 0\n"), how == "stay" ? 0 : times) << run.out;
    EXPECT_EQ(countOf(run.out, "\\(none\\)\n"), times);
    EXPECT_EQ(countOf(run.err, "\n"), 2 * times) << run.err;
    for (const std::string& prefix : prefixes) {
      EXPECT_TRUE(contentOf(how + '/' + prefix + "used.txt").ends_with("Lingering.hpp\n"));
      const std::string log = textOf(contentOf(how + '/' + prefix + logName));
      EXPECT_EQ(countOf(log, "IRREGULARITY"), 2) << log;
      for (const char* reason : {"used late", "last"})
        EXPECT_EQ(countOf(log, std::string("because of ") + reason), 1) << how << log;
    }
  }
}
