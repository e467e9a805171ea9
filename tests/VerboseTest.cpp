#include "Patterns.hpp"
#include "RunProbe.hpp"

#include <tolvane/Verbose.hpp>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

using namespace Tolvane;

namespace {

using Arguments = std::vector<std::string>;
using Variables = std::map<std::string, std::optional<std::string>>;

Arguments operator+(Arguments a, const Arguments& b) {
  a.emplace_back("--");
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

std::string errorTextOf(const Arguments& arguments, const Variables& environment) {
  const ProbeResult run = runProbe(arguments, {.environment = environment});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  return textOf(run.err);
}

std::string outputOf(const Arguments& arguments, const Variables& environment) {
  const ProbeResult run = runProbe(arguments, {.environment = environment});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  return textOf(run.out);
}

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void writeFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

// A line in bold red as a message of level 0 without a domain gives it.
std::string red(const std::string& text) {
  return "\033[1m\033[31m" + text + "\033[0m\n";
}

struct RecordingCatcher : VerboseCatcher {
  void catchMessage(int level, const std::string& location, const std::string& text,
                    const std::string& domain, int indentDepth, char indentChar) override {
    std::ostringstream line;
    line << level << '|' << location << '|' << text << '|' << domain << '|' << indentDepth << '|'
         << indentChar;
    events.push_back(line.str());
    texts.push_back(text);
    if (onMessage)
      onMessage();
  }
  void enterSection(const VerboseStream::Indentator* section, int level, const char* file, int line,
                    const char* function) override {
    sections.push_back(section);
    events.push_back("enter " + std::to_string(level) + file + std::to_string(line) + function);
    if (onSection)
      onSection();
  }
  void leaveSection(const VerboseStream::Indentator* section, int level,
                    const char* file) override {
    EXPECT_EQ(section, sections.back());
    sections.pop_back();
    events.push_back("leave " + std::to_string(level) + file);
  }

  std::vector<std::string> events, texts;
  std::function<void()> onMessage, onSection;
  std::vector<const VerboseStream::Indentator*> sections;
};

// Installs a catcher for one test.
class VerboseCatching : public testing::Test {
protected:
  VerboseCatching() { VerboseCatcher::theCatcher = catcher; }
  ~VerboseCatching() override { VerboseCatcher::theCatcher = nullptr; }

  StrongPtr<RecordingCatcher, VerboseCatcher> catcher = new RecordingCatcher;
};

VerboseStream message(int level, const std::string& domain = "") {
  return {false, false, level, "f.cpp", 7, "f()", "", domain};
}

} // namespace

TEST(Verbose, CountsBytesInBinaryUnits) {
  const long long kib = 1 << 10, mib = 1 << 20, gib = 1 << 30;
  const struct {
    long long bytes;
    const char* text;
  } cases[] = {
      {0, "0KiB"},
      {500, "0KiB"},
      {kib - 1, "0KiB"},
      {kib, "1KiB"},
      {mib - 1, "1023KiB"},
      {mib, "1MiB"},
      {gib - 1, "1023MiB"},
      {gib, "1GiB"},
      {3 * gib, "3GiB"},
      {4 * gib - 1, "3GiB"},
      {1024 * gib, "1024GiB"},
      {std::numeric_limits<long long>::max(), "8589934592GiB"},
      {-500, "0KiB"},
      {-kib, "-1KiB"},
      {-3 * mib, "-3072KiB"},
      {-3 * gib, "-3145728KiB"},
      {std::numeric_limits<long long>::min(), "-9007199254740992KiB"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(VerboseStream::MemString(c.bytes), c.text) << c.bytes;
}

TEST(Verbose, WritesColouredLines) {
  const struct {
    const char* level;
    const char* colour;
  } bands[] = {
      {"-2147483648", "\033[1m\033[31m"},
      {"0", "\033[1m\033[31m"},
      {"1", "\033[31m"},
      {"9", "\033[31m"},
      {"10", "\033[1m\033[35m"},
      {"29", "\033[1m\033[35m"},
      {"30", "\033[35m"},
      {"49", "\033[35m"},
      {"50", "\033[1m\033[34m"},
      {"99", "\033[1m\033[34m"},
      {"100", "\033[1m"},
      {"2147483647", "\033[1m"},
  };
  Arguments all;
  std::string expected;
  for (const auto& [level, colour] : bands) {
    all =
        all.empty() ? Arguments{"message", level, "x y"} : all + Arguments{"message", level, "x y"};
    expected += std::string(colour) + "x y\033[0m\n";
  }
  EXPECT_EQ(errorTextOf(all, {{"TOLVANE_VERBOSITY", "1e99"}}), expected);

  const std::string location = "\033[0mdir/file.cpp:12: In function void f(int): ";
  const struct {
    const char* verbosity;
    Arguments arguments;
    std::string expected;
  } cases[] = {
      {"3", {"message", "3", "t"}, "\033[31mt\033[0m\n"},
      {"-3", {"message", "3", "t"}, location + "\033[31mt\033[0m\n"},
      {"-3", {"message", "4", "t"}, ""},
      {"3", {"message", "3", "", "Mem"}, "\033[0mMem<  3> \033[31m\033[0m\n"},
      {"-3", {"message", "3", "t", "Mem"}, location + "\033[0mMem<  3> \033[31mt\033[0m\n"},
      {"1e9", {"message", "1234", "t", "%s"}, "\033[0m%s<1234> \033[1mt\033[0m\n"},
      {"0", {"message", "-1", "t", "Mem"}, "\033[0mMem<4294967295> \033[1m\033[31mt\033[0m\n"},
      {"0", {"message", "1", "t"}, ""},
      // Suppressed and breakpoint messages.
      {"9", {"message", "1", "t", "", "s"}, ""},
      {"9", {"message", "1", "t", "", "sb"}, ""},
      {"0", {"message", "9", "t", "+x", "b"}, "\033[0m+x<  9> \033[31mt\033[0m\n"},
      {"0", {"console", "50%"}, "50%7\n"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(errorTextOf(c.arguments, {{"TOLVANE_VERBOSITY", c.verbosity}}), c.expected)
        << c.verbosity << ' ' << testing::PrintToString(c.arguments);
}

TEST(Verbose, ShowsLevelsUpToTheVerbosity) {
  const Arguments levels = {"show", "-2147483648", "0", "1", "3", "4", "2147483647"};
  const struct {
    std::optional<std::string> verbosity;
    const char* shown;
  } cases[] = {
      {std::nullopt, "110000\n"}, {"abc", "110000\n"},         {"", "110000\n"},
      {"3", "111100\n"},          {"-3", "111100\n"},          {"3.9", "111100\n"},
      {"1e99", "111111\n"},       {"-2147483648", "111111\n"}, {"-1e99", "111111\n"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(outputOf(levels, {{"TOLVANE_VERBOSITY", c.verbosity}}), c.shown)
        << c.verbosity.value_or("unset");
}

TEST(Verbose, FiltersByDomain) {
  // For each list of domains, whether messages of these domains and levels are shown.
  const Arguments messages = {"domains", "",  "5",    "cache", "20",   "cache", "21",   "net", "5",
                              "+net",    "5", "+net", "500",   "-net", "5",     "cach", "5"};
  const struct {
    const char* list;
    const char* shown;
  } cases[] = {
      {"", "11110011"},           {",", "00000000"},         {"net", "00011100"},
      {"+net", "00011100"},       {"+net:1", "00000000"},    {"net:1", "00000000"},
      {"-net", "11100011"},       {"cache:20", "01000000"},  {"cache:20,cache", "01100000"},
      {"cache:x:20", "01000000"}, {"cache:-1", "00000000"},  {"cache:20abc", "01000000"},
      {"cache,net", "01111100"},  {"-net,net", "11101111"},  {"net,-net", "11111111"},
      {"-net:4", "00000000"},     {"-cache:20", "10010011"}, {"-x,cache:20", "11110011"},
      {"-", "01110011"},          {"+", "10000000"},         {"--net", "11110001"},
      {":500", "00000000"},       {" cache", "00000000"},
  };
  for (const auto& c : cases)
    for (const char* verbosity : {"1000", "0"}) {
      const ProbeResult run =
          runProbe(messages, {.environment = {{"TOLVANE_VERBOSITY", verbosity},
                                              {"TOLVANE_VERBOSITY_DOMAINS", c.list}}});
      const std::string shown = verbosity == std::string("0") ? "00000000" : c.shown;
      EXPECT_EQ(textOf(run.out), shown + "\n") << c.list;
      // What the test says is what is written.
      EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'),
                std::count(shown.begin(), shown.end(), '1'))
          << c.list << run.err;
    }
}

TEST(Verbose, FiltersByConstraints) {
  const Arguments messages = Arguments{"message", "0", "a", "", "", "src/one.cpp", "int work()"} +
                             Arguments{"message", "0", "b", "", "b", "src/two.cpp", "int play()"};
  const struct {
    const char* constraints;
    std::string expected;
  } cases[] = {
      {"", red("a") + red("b")},
      {"one", red("a")},
      {"play;", red("b")},
      {"two;work", red("a") + red("b")},
      {"three", ""},
      {"x;;y", red("a") + red("b")},
      {";", red("a") + red("b")},
      {"one.cpp:12: In", red("a")},
      {"One", ""},
  };
  for (const auto& c : cases) {
    const ProbeResult run =
        runProbe(messages, {.environment = {{"TOLVANE_VERBOSITY_CONSTRAINTS", c.constraints}}});
    EXPECT_EQ(textOf(run.err), c.expected) << c.constraints;
    EXPECT_EQ(textOf(run.out), "1\n1\n") << "the test does not look at constraints";
  }
}

TEST(Verbose, MalformedDomainLevelSurfaces) {
  const struct {
    const char* list;
    const char* what;
  } cases[] = {
      {"Mem:", "invalid_argument"},
      {"x:y", "invalid_argument"},
      {"Mem:10,:", "invalid_argument"},
      {"Mem:9999999999", "out_of_range"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.list);
    const std::string what = c.what + std::string("\n");
    const auto output = [&](const Arguments& arguments) {
      return outputOf(arguments, {{"TOLVANE_VERBOSITY_DOMAINS", c.list},
                                  {"TOLVANE_ENABLE_VERBOSITY_SECTIONS", "1"}});
    };
    // From the test, the end of the message, the macros, the end of a section.
    EXPECT_EQ(output({"message", "0", "t", "other"}), what + what);
    EXPECT_EQ(output({"macros"}), what + "\n");
    EXPECT_EQ(output({"section"}), what + what);
    // An earlier entry decides before the malformed one is looked at; so does the "+".
    EXPECT_EQ(output({"message", "9", "t", "Mem"}), c.list == cases[2].list ? "0\n" : what + what);
    EXPECT_EQ(output({"message", "0", "t", "+Mem"}), "0\n");
    // The breakpoint flag overrides the domain, so it is not looked at.
    EXPECT_EQ(output({"message", "0", "t", "other", "b"}), "1\n");
    // While another exception is passing the message is dropped, and no process ends by it.
    EXPECT_EQ(output({"unwinding"}), "0\npassing\n");
  }
  const ProbeResult unload =
      runProbe({"show", "0"}, {.environment = {{"TOLVANE_VERBOSITY_DOMAINS", "x:"},
                                               {"TOLVANE_VERBOSITY_FILE_READ", "same.txt"},
                                               {"TOLVANE_VERBOSITY_FILE_WRITE", "same.txt"}}});
  EXPECT_EQ(unload.exitCode, 0);
  EXPECT_EQ(unload.err, "");
}

TEST(Verbose, MessagesPassWhileAnExceptionDoes) {
  EXPECT_EQ(outputOf({"unwinding"}, {}), "0\npassing\n");
  EXPECT_EQ(errorTextOf({"unwinding"}, {}),
            "\033[0mMem<  0> \033[1m\033[31munwinding1\033[0m\n" + red("macro"));
}

TEST(Verbose, MacrosEvaluateOnlyWhatIsShown) {
  const struct {
    Variables environment;
    std::string evaluated;
  } cases[] = {
      {{{"TOLVANE_VERBOSITY", "4"}}, "e"},
      {{{"TOLVANE_VERBOSITY", "5"}}, "acace"},
      {{{"TOLVANE_VERBOSITY", "-6"}}, "abcabce"},
      {{{"TOLVANE_VERBOSITY", "5"}, {"TOLVANE_VERBOSITY_DOMAINS", "Mem,net1"}}, "ccde"},
      {{{"TOLVANE_VERBOSITY", "5"}, {"TOLVANE_VERBOSITY_DOMAINS", "Mem:4"}}, "e"},
      {{{"TOLVANE_VERBOSITY", "5"}, {"TOLVANE_VERBOSITY_CONSTRAINTS", "probe_macros"}}, "acace"},
      {{{"TOLVANE_VERBOSITY", "5"}, {"TOLVANE_VERBOSITY_CONSTRAINTS", "elsewhere"}}, ""},
  };
  for (const auto& c : cases) {
    const ProbeResult run = runProbe({"macros"}, {.environment = c.environment});
    EXPECT_EQ(textOf(run.out), c.evaluated + "\n");
    EXPECT_EQ(static_cast<std::size_t>(std::count(run.err.begin(), run.err.end(), '\n')),
              c.evaluated.size())
        << run.err;
  }
  // An installed catcher gets every level, whatever the constraints, but not every domain.
  const std::string caught = outputOf(Arguments{"catcher"} + Arguments{"macros"},
                                      {{"TOLVANE_VERBOSITY_CONSTRAINTS", "elsewhere"}});
  EXPECT_TRUE(caught.ends_with("\nabcabce\n")) << caught;
}

TEST(Verbose, ListsAndSwitchesOffSourceFiles) {
  const std::string listPath = "used.txt";
  const Arguments messages = Arguments{"message", "0", "1", "", "", "b.cpp"} +
                             Arguments{"message", "99", "2", "", "", "a.cpp"} +
                             Arguments{"message", "0", "3", "", "s", "C.cpp"} +
                             Arguments{"message", "0", "4", "", "", "b.cpp"};
  const Variables toList = {{"TOLVANE_VERBOSITY_FILE_WRITE", listPath}};
  // Ordered by bytes, once each, also of messages that were not shown, with plain line feeds.
  EXPECT_EQ(errorTextOf(messages, toList), red("1") + red("4"));
  EXPECT_EQ(contentOf(listPath), "C.cpp\na.cpp\nb.cpp\n");
  // Written once: what comes after an early writing is not listed.
  errorTextOf(Arguments{"message", "0", "1", "", "", "b.cpp"} + Arguments{"write_used_files"} +
                  Arguments{"message", "0", "1", "", "", "c.cpp"} + Arguments{"write_used_files"},
              toList);
  EXPECT_EQ(contentOf(listPath), "b.cpp\n");
  // A macro notes its file when it is reached, also when its message is not shown.
  errorTextOf({"macros"}, toList);
  EXPECT_TRUE(contentOf(listPath).ends_with("VerboseCommands.cpp\n")) << contentOf(listPath);
  // What messages at the very end issue is listed as well.
  errorTextOf({"late_message", "x"}, toList);
  EXPECT_EQ(contentOf(listPath), "late.cpp\n");

  const std::string name(2047, 'n');
  const struct {
    const char* what;
    std::string list;
    std::string file;
    bool off;
  } cases[] = {
      {"without #", "b.cpp\n", "b.cpp", false},
      {"with #", "x\n#b.cpp\n", "b.cpp", true},
      {"CR LF", "#b.cpp\r\n", "b.cpp", true},
      {"cut at the tab", "#b.cpp\tcomment", "b.cpp", true},
      {"blank kept", "#b.cpp ", "b.cpp", false},
      {"blank before #", " #b.cpp\n", "b.cpp", false},
      {"second #", "##b.cpp\n", "#b.cpp", true},
      {"longest line", "#" + name + "\n", name, true},
      {"longer line is cut", "#" + name + "x\n", name, true},
      {"and its rest is a line", std::string(2048, 'x') + "#b.cpp\n", "b.cpp", true},
      {"empty list", "", "b.cpp", false},
  };
  for (const auto& c : cases) {
    writeFile("off.txt", c.list);
    const ProbeResult run = runProbe({"message", "0", "t", "", "b", c.file},
                                     {.environment = {{"TOLVANE_VERBOSITY_FILE_READ", "off.txt"}}});
    EXPECT_EQ(textOf(run.err), c.off ? "" : red("t")) << c.what;
    EXPECT_EQ(textOf(run.out), c.off ? "0\n" : "1\n") << c.what;
  }
  // Switched off for the macros as well, also when a catcher is installed.
  errorTextOf({"macros"}, toList);
  writeFile("off.txt", "#" + contentOf(listPath));
  const Variables off = {{"TOLVANE_VERBOSITY_FILE_READ", "off.txt"}, {"TOLVANE_VERBOSITY", "9"}};
  EXPECT_EQ(outputOf({"macros"}, off), "\n");
  EXPECT_EQ(outputOf(Arguments{"catcher"} + Arguments{"macros"}, off), "\n");
}

TEST(Verbose, RefusesToOverwriteTheSwitchedOffList) {
  const std::string warning =
      red("WARNING: TOLVANE_VERBOSITY_FILE_WRITE is identical to TOLVANE_VERBOSITY_FILE_READ  The "
          "verbosity file has NOT been updated! ");
  writeFile("both.txt", "#x\n");
  const Variables same = {{"TOLVANE_VERBOSITY_FILE_WRITE", "both.txt"},
                          {"TOLVANE_VERBOSITY_FILE_READ", "both.txt"}};
  EXPECT_EQ(errorTextOf({"show", "0"}, same), warning);
  EXPECT_EQ(errorTextOf({"write_used_files"}, same), warning + warning);
  EXPECT_EQ(contentOf("both.txt"), "#x\n");
}

TEST(Verbose, GivesUpFilesThatCannotBeUsed) {
  std::filesystem::create_directory("folder");
  for (const char* path : {"folder", "missing/file.txt",
#ifndef _WIN32
                           "/dev/full"
#else
                           "a:b:c"
#endif
       }) {
    EXPECT_EQ(errorTextOf({"message", "0", "t"}, {{"TOLVANE_VERBOSITY_FILE_WRITE", path}}),
              red("t"))
        << path;
    if (path != std::string("/dev/full")) { // which reads as an endless row of NUL
      EXPECT_EQ(errorTextOf({"message", "0", "t"}, {{"TOLVANE_VERBOSITY_FILE_READ", path}}),
                red("t"))
          << path;
    }
  }
}

TEST(Verbose, ReportsSections) {
  const std::string inside = red("--- inside"), after = red("after");
  const std::string number = R"(-?[0-9.]+(e-?[0-9]+)?)";
  const std::string timed =
      R"(\x1b\[0mMem<  4> \x1b\[31m \*\*\* TIMED SECTION lasted )" + number +
      R"(s and used -?[0-9]+ Bytes \(-?[0-9]+KiB\) \[Total RAM: [0-9]+[GM]iB, total Cache: 0KiB )"
      R"(freeable 0KiB\] - NO CACHE!\x1b\[0m\n)";
  const auto escaped = [](std::string text) {
    for (std::size_t i = 0; (i = text.find('[', i)) != std::string::npos; i += 2)
      text.insert(i, 1, '\\');
    return text;
  };
  const struct {
    const char* enabled;
    const char* verbosity;
    std::string expected;
  } cases[] = {
      {"0", "9", escaped(inside + after)},
      {"1", "3", escaped(inside + after)},
      {"1", "4", escaped(inside) + timed + escaped(after)},
      {"-1", "4",
       escaped(inside) + R"( Section finished in void work\(\)\n)" + timed + escaped(after)},
      {"-1", "0", escaped(inside) + R"( Section finished in void work\(\)\n)" + escaped(after)},
  };
  for (const auto& c : cases) {
    const Variables environment = {{"TOLVANE_ENABLE_VERBOSITY_SECTIONS", c.enabled},
                                   {"TOLVANE_VERBOSITY", c.verbosity}};
    const std::string text = errorTextOf({"section"}, environment);
    EXPECT_TRUE(matches(text, c.expected)) << text;
    // The section ends in the same way when an exception passes through it.
    const std::string thrown = errorTextOf({"section", "thrown"}, environment);
    EXPECT_TRUE(matches(thrown, c.expected)) << thrown;
  }
}

TEST(Verbose, WritesWithoutStandardOutputAndError) {
  EXPECT_EQ(errorTextOf(Arguments{"close_output_descriptors"} + Arguments{"message", "0", "t"} +
                            Arguments{"console", "t"} + Arguments{"section"},
                        {{"TOLVANE_ENABLE_VERBOSITY_SECTIONS", "-1"}, {"TOLVANE_VERBOSITY", "9"}}),
            "");
}

TEST(Verbose, ListsItsVariablesInOrder) {
  const std::string listed =
      "TOLVANE_VERBOSITY: Verbosity level of the Tolvane-controlled output routines\n"
      "TOLVANE_VERBOSITY_DOMAINS: Verbosity domains to be displayed.\n"
      "TOLVANE_ENABLE_VERBOSITY_SECTIONS: Enable use of verbosity sections(discouraged!)\n"
      "EDITOR: The Editor used for Debugging\n"
      "TOLVANE_VERBOSITY_FILE_WRITE: The File for logging source code file names.\n"
      "TOLVANE_VERBOSITY_FILE_READ: The File for checking source code file names.\n"
      "TOLVANE_VERBOSITY_CONSTRAINTS: Filenames or function names that are used for output only.\n"
      "TOLVANE_ENABLE_DEBUG_STOP: Terminate the application after that many number of object "
      "insertions - use for debug only.\n";
  // Read while the library is loaded, and not again.
  EXPECT_EQ(outputOf(Arguments{"show", "0"} + Arguments{"message", "0", "t"},
                     {{"SHOW_ENVIRONMENT_CONTROL_VARIABLES", "1"}}),
            listed + "1\n1\n");
}

TEST_F(VerboseCatching, EveryKindOfValueIsAppended) {
  char characters[] = "mutable";
  const char* null = nullptr;
  char* nullCharacters = nullptr;
  const struct {
    std::string expected;
    std::function<void(VerboseStream&)> append;
  } cases[] = {
      {"text", [](auto& s) { s << "text" << std::string(); }},
      {std::string("a\0b", 3), [](auto& s) { s << std::string("a\0b", 3); }},
      {"view", [](auto& s) { s << std::string_view("view!", 4); }},
      {"mutable", [&](auto& s) { s << characters; }},
      {"", [&](auto& s) { s << null << nullCharacters; }},
      {"-2147483648,0", [](auto& s) { s << std::numeric_limits<int>::min() << ',' << 0; }},
      {"1", [](auto& s) { s << true; }},
      {"4294967295 18446744073709551615", [](auto& s) { s << ~0U << ' ' << ~0ULL; }},
      {"-9223372036854775808", [](auto& s) { s << std::numeric_limits<long long>::min(); }},
      {"-7 7", [](auto& s) { s << -7L << ' ' << 7UL; }},
      {"0.1 -0 1e+100 3", [](auto& s) { s << 0.1 << ' ' << -0.0 << ' ' << 1e100 << ' ' << 3.0; }},
      {"2.2250738585072014e-308", [](auto& s) { s << std::numeric_limits<double>::min(); }},
      {"inf -inf",
       [](auto& s) {
         s << std::numeric_limits<double>::infinity() << ' '
           << -std::numeric_limits<double>::infinity();
       }},
      {"VerboseStream", [](auto& s) { s << typeid(VerboseStream); }},
      {" - NO CACHE!", [](auto& s) { s << WeakPtr<Cache, CacheBase>(); }},
  };
  for (const auto& c : cases) {
    {
      VerboseStream stream = message(3);
      c.append(stream);
    }
    const std::string text = catcher->texts.back();
    EXPECT_EQ(c.expected == "VerboseStream" ? text.substr(text.rfind(':') + 1) : text, c.expected);
  }
  const void* address = &characters;
  char printed[64];
  std::snprintf(printed, sizeof printed, "%p", address);
  message(3) << address << static_cast<void*>(characters);
  EXPECT_EQ(catcher->texts.back(), std::string(printed) + printed);
}

TEST_F(VerboseCatching, CatcherGetsMessagesAndSectionsInsteadOfTheErrorStream) {
  testing::internal::CaptureStderr();
  message(500, "Mem") << "a";
  message(500, "+Mem") << "filtered";
  VerboseStream(true, false, 0, "f.cpp", 7, "f()", "suppressed", "");
  VerboseStream(false, true, 500, nullptr, -3, nullptr, nullptr, "+Mem");
  {
    const VerboseStream::Indentator section("g.cpp", 8, "g()", 5, '-', 2, "");
    message(1) << "b";
    {
      const VerboseRecursion recursion('*');
      const VerboseRecursion deeper('#');
      message(1) << "c";
    }
    TOLVANE_SECTION(6);
    message(1) << "d";
    std::thread([] { message(1) << "e"; }).join();
  }
  message(1) << "f";
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  ASSERT_EQ(catcher->events.size(), 11U);
  EXPECT_TRUE(catcher->events[5].starts_with("enter 6")) << catcher->events[5];
  EXPECT_NE(catcher->events[5].find("VerboseTest.cpp"), std::string::npos);
  EXPECT_TRUE(catcher->events[8].starts_with("leave 6")) << catcher->events[8];
  catcher->events.erase(catcher->events.begin() + 8);
  catcher->events.erase(catcher->events.begin() + 5);
  const std::string location = "|f.cpp:7: In function f(): |";
  EXPECT_EQ(catcher->events, (std::vector<std::string>{
                                 "500" + location + "a|Mem|0| ",
                                 "500|:-3: In function : ||+Mem|0| ",
                                 "enter 5g.cpp8g()",
                                 "1" + location + "b||2|-",
                                 "1" + location + "c||4|#",
                                 "1" + location + "d||4| ",
                                 "1" + location + "e||0| ",
                                 "leave 5g.cpp",
                                 "1" + location + "f||0| ",
                             }));
}

TEST_F(VerboseCatching, CatcherMayDieAndBeReplaced) {
  const auto caughtOf = [](int level) {
    testing::internal::CaptureStderr();
    message(level) << "m";
    return testing::internal::GetCapturedStderr();
  };
  EXPECT_EQ(caughtOf(0), "");
  EXPECT_TRUE(VerboseCatcher::theCatcher);
  const StrongPtr<VerboseCatcher> strong = VerboseCatcher::theCatcher;
  const WeakPtr<VerboseCatcher> weak = VerboseCatcher::theCatcher;
  EXPECT_EQ(strong.get(), catcher.get());
  EXPECT_EQ(weak, strong);

  StrongPtr<RecordingCatcher, VerboseCatcher> dying = new RecordingCatcher;
  // The call holds its catcher, also when the last other pointer goes meanwhile.
  WeakPtr<RecordingCatcher, VerboseCatcher> watched = dying;
  std::size_t caught = 0;
  dying->onMessage = [&] {
    dying = nullptr;
    caught += static_cast<bool>(watched);
  };
  VerboseCatcher::theCatcher = dying;
  EXPECT_EQ(caughtOf(0), "");
  EXPECT_EQ(caught, 1U);
  EXPECT_FALSE(watched);
  EXPECT_FALSE(VerboseCatcher::theCatcher);
  EXPECT_EQ(VerboseCatcher::theCatcher.lock(), nullptr);
  EXPECT_EQ(textOf(caughtOf(0)), red("m"));
  EXPECT_EQ(caughtOf(1), "");

  {
    RecordingCatcher onTheStack;
    VerboseCatcher::theCatcher = &onTheStack;
    EXPECT_EQ(caughtOf(7), "");
    EXPECT_EQ(onTheStack.texts.size(), 1U);
  }
  EXPECT_EQ(textOf(caughtOf(0)), red("m"));
  VerboseCatcher::theCatcher = WeakPtr<VerboseCatcher>();
  EXPECT_EQ(textOf(caughtOf(0)), red("m"));
  EXPECT_EQ(catcher->texts.size(), 1U);
}

TEST_F(VerboseCatching, CatcherMayIssueMessagesAndThrow) {
  testing::internal::CaptureStderr();
  catcher->onMessage = catcher->onSection = [] {
    message(0) << "from inside";
    message(1) << "not shown";
    TOLVANE_VERBOSE(1) << "not shown";
    TOLVANE_SECTION(1);
  };
  {
    TOLVANE_SECTION(1);
    message(9);
  }
  EXPECT_EQ(textOf(testing::internal::GetCapturedStderr()),
            red("   from inside") + red("   from inside"));
  EXPECT_EQ(catcher->events.size(), 3U);

  catcher->onMessage = catcher->onSection = [] { throw std::runtime_error("from the catcher"); };
  EXPECT_THROW(message(9) << "m", std::runtime_error);
  EXPECT_THROW(TOLVANE_SECTION(1), std::runtime_error);
  try {
    struct Loud {
      ~Loud() { message(9) << "while unwinding"; }
    } const loud;
    throw 1;
  } catch (int) {
  }
  EXPECT_EQ(catcher->texts.back(), "while unwinding");
  catcher->onMessage = nullptr;
  message(9) << "m"; // neither the mark of a running call nor the indentation was left behind
  EXPECT_TRUE(catcher->events.back().ends_with("|m||0| ")) << catcher->events.back();
}

TEST_F(VerboseCatching, MacrosAreSingleStatements) {
  int evaluated = 0;
  const auto count = [&] { return ++evaluated; };
  const int line = __LINE__ + 3;
  for (const bool first : {true, false})
    if (first)
      TOLVANE_VERBOSE(count()) << "first";
    else
      TOLVANE_VERBOSE_DOMAIN(3, std::string("domain ") + "text") << "second";
  EXPECT_EQ(evaluated, 1);
  EXPECT_EQ(catcher->texts, (std::vector<std::string>{"first", "second"}));
  EXPECT_TRUE(catcher->events[1].ends_with("|second|domain text|0| ")) << catcher->events[1];
  EXPECT_NE(catcher->events[0].find("VerboseTest.cpp:" + std::to_string(line)), std::string::npos)
      << catcher->events[0];
  EXPECT_NE(catcher->events[0].find("MacrosAreSingleStatements"), std::string::npos);

  VerboseCatcher::theCatcher = nullptr;
  TOLVANE_VERBOSE(1) << count();
  EXPECT_EQ(evaluated, 1);
}
