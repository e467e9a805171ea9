#include "Patterns.hpp"
#include "RunProbe.hpp"

#include <tolvane/Typename.hpp>
#include <tolvane/Verbose.hpp>

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

using namespace Tolvane;

namespace {

const std::string verbosity = "TOLVANE_VERBOSITY", domainList = "TOLVANE_VERBOSITY_DOMAINS",
                  constraint = "TOLVANE_VERBOSITY_CONSTRAINTS",
                  sections = "TOLVANE_ENABLE_VERBOSITY_SECTIONS",
                  readFile = "TOLVANE_VERBOSITY_FILE_READ",
                  writtenFile = "TOLVANE_VERBOSITY_FILE_WRITE";

void writeFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

// A line in bold red as a message of level 0 without a domain gives it.
std::string red(const std::string& text) {
  return "\033[1m\033[31m" + text + "\033[0m\n";
}

struct RecordingCatcher : VerboseCatcher {
  void catchMessage(int level, const std::string& location, const std::string& text,
                    const std::string& domain, int depth, char indent) override {
    events.push_back(std::to_string(level) + '|' + location + '|' + text + '|' + domain + '|' +
                     std::to_string(depth) + '|' + indent);
    texts.push_back(text);
    if (onMessage)
      onMessage();
  }
  void enterSection(const VerboseStream::Indentator* section, int level, const char* file, int line,
                    const char* function) override {
    open = section;
    events.push_back("enter " + std::to_string(level) + file + std::to_string(line) + function);
    if (onSection)
      onSection();
  }
  void leaveSection(const VerboseStream::Indentator* section, int level,
                    const char* file) override {
    EXPECT_EQ(section, open);
    events.push_back("leave " + std::to_string(level) + file);
  }

  std::vector<std::string> events, texts;
  std::function<void()> onMessage, onSection;
  const VerboseStream::Indentator* open = nullptr;
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
  const long long mib = 1 << 20, gib = 1 << 30;
  using Limits = std::numeric_limits<long long>;
  const std::pair<long long, const char*> cases[] = {{1023, "0KiB"},
                                                     {1024, "1KiB"},
                                                     {mib - 1, "1023KiB"},
                                                     {mib, "1MiB"},
                                                     {gib - 1, "1023MiB"},
                                                     {gib, "1GiB"},
                                                     {Limits::max(), "8589934592GiB"},
                                                     {-3 * mib, "-3072KiB"},
                                                     {Limits::min(), "-9007199254740992KiB"}};
  for (const auto& [bytes, text] : cases)
    EXPECT_EQ(VerboseStream::MemString(bytes), text) << bytes;
}

TEST(Verbose, WritesColouredLines) {
  const std::string place = "\033[0mdir/file.cpp:12: In function void f(int): ",
                    purple = "\033[35mt\033[0m\n", blue = "\033[1m\033[34mt\033[0m\n";
  const struct {
    const char* verbosity;
    const char* command;
    std::string expected;
  } cases[] = {
      {"0", "message -2147483648 t -- message 0 t -- message 1 t", red("t") + red("t")},
      {"1e99", "message 1 t -- message 9 t", "\033[31mt\033[0m\n\033[31mt\033[0m\n"},
      {"1e99", "message 10 t -- message 29 t", "\033[1m" + purple + "\033[1m" + purple},
      {"1e99", "message 30 t -- message 49 t", purple + purple},
      {"1e99", "message 50 t -- message 99 t", blue + blue},
      {"1e99", "message 100 t -- message 2147483647 t", "\033[1mt\033[0m\n\033[1mt\033[0m\n"},
      // The place goes with a negative verbosity.
      {"3", "message 3 t", "\033[31mt\033[0m\n"},
      {"-3", "message 3 t -- message 4 t", place + "\033[31mt\033[0m\n"},
      {"3", "message 3 '' Mem", "\033[0mMem<  3> \033[31m\033[0m\n"},
      {"-3", "message 3 t Mem", place + "\033[0mMem<  3> \033[31mt\033[0m\n"},
      {"1e9", "message 1234 t %s", "\033[0m%s<1234> \033[1mt\033[0m\n"},
      {"0", "message -1 t Mem", "\033[0mMem<4294967295> \033[1m\033[31mt\033[0m\n"},
      // Suppressed and breakpoint messages.
      {"9", "message 1 t '' s -- message 1 t '' sb", ""},
      {"0", "message 9 t +x b", "\033[0m+x<  9> \033[31mt\033[0m\n"},
      {"0", "console 50%", "50%7\n"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(errorsOf(c.command, {{verbosity, c.verbosity}}), c.expected) << c.command;
}

TEST(Verbose, FiltersByDomain) {
  // For each list of domains, whether messages of these domains and levels are shown.
  const char* const messages = "domains '' 5 cache 20 cache 21 net 5 +net 5 +net 500 -net 5 cach 5";
  const std::pair<const char*, const char*> cases[] = {
      {"", "11110011"},           {",", "00000000"},         {"net", "00011100"},
      {"+net", "00011100"},       {"+net:1", "00000000"},    {"net:1", "00000000"},
      {"-net", "11100011"},       {"cache:20", "01000000"},  {"cache:20,cache", "01100000"},
      {"cache:x:20", "01000000"}, {"cache:-1", "00000000"},  {"cache:20abc", "01000000"},
      {"cache,net", "01111100"},  {"-net,net", "11101111"},  {"net,-net", "11111111"},
      {"-net:4", "00000000"},     {"-cache:20", "10010011"}, {"-x,cache:20", "11110011"},
      {"-", "01110011"},          {"+", "10000000"},         {"--net", "11110001"},
      {":500", "00000000"},       {" cache", "00000000"},
  };
  for (const auto& [list, expected] : cases)
    for (const std::string level : {"1000", "0"}) {
      const ProbeResult run =
          probe(messages, {.environment = {{verbosity, level}, {domainList, list}}});
      const std::string shown = level == "0" ? "00000000" : expected;
      EXPECT_EQ(run.out, shown + "\n") << list;
      // What the test says is what is written.
      EXPECT_EQ(countOf(run.err, "\n"), countOf(shown, "1")) << list << run.err;
    }
}

TEST(Verbose, FiltersByConstraints) {
  const std::pair<const char*, std::string> cases[] = {{"", red("a") + red("b")},
                                                       {"one", red("a")},
                                                       {"play;", red("b")},
                                                       {"three", ""},
                                                       {"One", ""},
                                                       {"two;work", red("a") + red("b")},
                                                       {";", red("a") + red("b")},
                                                       {"cpp:12: In", red("a") + red("b")}};
  for (const auto& [list, expected] : cases) {
    const ProbeResult run = probe(
        "message 0 a '' '' src/one.cpp 'int work()' -- message 0 b '' b src/two.cpp 'int play()'",
        {.environment = {{constraint, list}}});
    EXPECT_EQ(run.err, expected) << list;
    EXPECT_EQ(run.out, "1\n1\n") << "the test does not look at constraints";
  }
}

TEST(Verbose, MalformedDomainLevelSurfaces) {
  const std::string bad = "invalid_argument\n", range = "out_of_range\n";
  for (const auto& [list, what] :
       {std::pair("Mem:", bad), std::pair("x:y", bad), std::pair("Mem:10,:", bad),
        std::pair("Mem:9999999999", range)}) {
    // An earlier entry decides before the malformed one is looked at, and so does "+".
    const std::string decided = list == std::string("Mem:10,:") ? "0\n" : what + what;
    const std::pair<const char*, std::string> cases[] = {
        // From the test, the end of the message, the macros, the end of a section.
        {"message 0 t other", what + what},
        {"macros", what + "\n"},
        {"section", what + what},
        {"message 9 t Mem", decided},
        {"message 0 t +Mem", "0\n"},
        {"message 0 t other b", what + what},
        // While another exception is passing the message is dropped, and no process ends by it.
        {"unwinding", "0\npassing\n"}};
    for (const auto& [command, expected] : cases)
      EXPECT_EQ(outputOf(command, {{domainList, list}, {sections, "1"}}), expected) << command;
  }
  EXPECT_EQ(errorsOf("show 0", {{domainList, "x:"}, {readFile, "same"}, {writtenFile, "same"}}), "")
      << "at unload";
  EXPECT_EQ(errorsOf("unwinding"),
            "\033[0mMem<  0> \033[1m\033[31munwinding1\033[0m\n" + red("macro"));
}

TEST(Verbose, MacrosEvaluateOnlyWhatIsShown) {
  const std::pair<Variables, std::string> cases[] = {
      {{{verbosity, "4"}}, "e"},
      {{{verbosity, "5"}}, "acace"},
      {{{verbosity, "-6"}}, "abcabce"},
      {{{verbosity, "5"}, {domainList, "Mem,net1"}}, "ccde"},
      {{{verbosity, "5"}, {domainList, "Mem:4"}}, "e"},
      {{{verbosity, "5"}, {constraint, "macros("}}, "acace"},
      {{{verbosity, "5"}, {constraint, "elsewhere"}}, ""},
  };
  for (const auto& [environment, evaluated] : cases) {
    const ProbeResult run = probe("macros", {.environment = environment});
    EXPECT_EQ(run.out, evaluated + "\n");
    EXPECT_EQ(static_cast<std::size_t>(countOf(run.err, "\n")), evaluated.size()) << run.err;
  }
  // An installed catcher gets every level, whatever the constraints, but not every domain.
  const std::string caught = outputOf("catcher -- macros", {{constraint, "elsewhere"}});
  EXPECT_TRUE(caught.ends_with("\nabcabce\n")) << caught;
}

TEST(Verbose, ListsTheSourceFilesItMet) {
  const std::pair<const char*, const char*> cases[] = {
      // Ordered by bytes, once each, also of messages that were not shown, with plain line feeds.
      {"message 0 1 '' '' b.cpp -- message 99 2 '' '' a.cpp -- message 0 3 '' s C.cpp -- "
       "message 0 4 '' '' b.cpp",
       "C.cpp\na.cpp\nb.cpp\n"},
      // Written once: what comes after an early writing is not listed.
      {"message 0 1 '' '' b.cpp -- write_used_files -- message 0 1 '' '' c.cpp -- write_used_files",
       "b.cpp\n"},
      // What messages at the very end issue is listed as well.
      {"late_message x", "late.cpp\n"}};
  for (const auto& [command, list] : cases) {
    errorsOf(command, {{writtenFile, "used.txt"}});
    EXPECT_EQ(contentOf("used.txt"), list) << command;
  }
  // A macro notes its file when it is reached. What is listed can be switched off, also when a
  // catcher is installed.
  errorsOf("macros", {{writtenFile, "used.txt"}});
  const std::string listed = contentOf("used.txt");
  EXPECT_TRUE(listed.ends_with("VerboseCommands.cpp\n")) << listed;
  writeFile("off.txt", "#" + listed);
  for (const char* command : {"macros", "catcher -- macros"})
    EXPECT_EQ(outputOf(command, {{readFile, "off.txt"}, {verbosity, "9"}}), "\n") << command;
}

TEST(Verbose, SwitchesOffSourceFiles) {
  const std::string name(2047, 'n');
  const struct {
    const char* what;
    std::string list, file;
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
  };
  for (const auto& c : cases) {
    writeFile("off.txt", c.list);
    const ProbeResult run =
        probe("message 0 t '' b " + c.file, {.environment = {{readFile, "off.txt"}}});
    EXPECT_EQ(run.err, c.off ? "" : red("t")) << c.what;
    EXPECT_EQ(run.out, c.off ? "0\n" : "1\n") << c.what;
  }
}

TEST(Verbose, KeepsTheListThatItReads) {
  const std::string warning =
      red("WARNING: TOLVANE_VERBOSITY_FILE_WRITE is identical to TOLVANE_VERBOSITY_FILE_READ  The "
          "verbosity file has NOT been updated! ");
  writeFile("both.txt", "#x\n");
  EXPECT_EQ(errorsOf("write_used_files", {{writtenFile, "both.txt"}, {readFile, "both.txt"}}),
            warning + warning);
  EXPECT_EQ(contentOf("both.txt"), "#x\n");
}

TEST(Verbose, ReportsSections) {
  const std::string inside = R"(\x1b\[1m\x1b\[31m--- inside\x1b\[0m\n)",
                    after = R"(\x1b\[1m\x1b\[31mafter\x1b\[0m\n)",
                    finished = R"( Section finished in void work\(\)\n)";
  const std::string timed =
      R"(\x1b\[0mMem<  4> \x1b\[31m \*\*\* TIMED SECTION lasted -?[0-9.]+(e-?[0-9]+)?)"
      R"(s and used -?[0-9]+ Bytes \(-?[0-9]+KiB\) \[Total RAM: [0-9]+[GM]iB, total Cache: 0KiB )"
      R"(freeable 0KiB\] - NO CACHE!\x1b\[0m\n)";
  const struct {
    const char* enabled;
    const char* level;
    std::string expected;
  } cases[] = {
      {"0", "9", inside + after},
      {"1", "3", inside + after},
      {"1", "4", inside + timed + after},
      {"-1", "4", inside + finished + timed + after},
      {"-1", "0", inside + finished + after},
  };
  for (const auto& c : cases)
    // The section ends in the same way when an exception passes through it.
    for (const char* command : {"section", "section thrown"}) {
      const std::string text = errorsOf(command, {{sections, c.enabled}, {verbosity, c.level}});
      EXPECT_TRUE(matches(text, c.expected)) << command << text;
    }
}

TEST(Verbose, SectionsTellTheChangeOfTheCache) {
  const std::string text = errorsOf("sections_with_cache", {{sections, "1"}});
  const std::string start = R"(\x1b\[1m\x1b\[31m)", reset = R"(\x1b\[0m\n)", number = "[-0-9.e]+",
                    lasted = " SECTION lasted " + number + "s ",
                    used = "and used " + number + R"( Bytes \([-0-9]+[KM]iB\))",
                    total = R"( \[Total RAM: [0-9]+[GM]iB, total Cache: 3MiB )";
  EXPECT_TRUE(matches(text, start + R"( \*\*\* MEMORY INCREASING)" + lasted + " " + used +
                                " - Cache Increment 3MiB, freeable 3MiB" + total +
                                R"(with 3MiBfreeable\]\.)" + reset + start +
                                R"(- total 3MiB, freeable 3MiB\|total 3MiB, freeable 3MiB)" +
                                reset + start + R"( \*\*\* TIMED)" + lasted + used + total +
                                R"(freeable 3MiB\]\.)" + reset))
      << text;
}

TEST(Verbose, ListsItsVariablesInOrder) {
  // Read while the library is loaded, and not again.
  EXPECT_EQ(
      outputOf("show 0 -- message 0 t", {{"SHOW_ENVIRONMENT_CONTROL_VARIABLES", "1"}}),
      "TOLVANE_VERBOSITY: Verbosity level of the Tolvane-controlled output routines\n"
      "TOLVANE_VERBOSITY_DOMAINS: Verbosity domains to be displayed.\n"
      "TOLVANE_ENABLE_VERBOSITY_SECTIONS: Enable use of verbosity sections(discouraged!)\n"
      "EDITOR: The Editor used for Debugging\n"
      "TOLVANE_VERBOSITY_FILE_WRITE: The File for logging source code file names.\n"
      "TOLVANE_VERBOSITY_FILE_READ: The File for checking source code file names.\n"
      "TOLVANE_VERBOSITY_CONSTRAINTS: Filenames or function names that are used for output only.\n"
      "TOLVANE_ENABLE_DEBUG_STOP: Terminate the application after that many number of object "
      "insertions - use for debug only.\n1\n1\n");
}

TEST_F(VerboseCatching, EveryKindOfValueIsAppended) {
  char characters[] = "mutable";
  const char* null = nullptr;
  char* nullCharacters = nullptr;
  const void* const address = characters;
  using Double = std::numeric_limits<double>;
  const std::string a0b("a\0b", 3);
  using Append = std::function<void(VerboseStream&)>;
  const std::pair<std::string, Append> cases[] = {
      {a0b + "view", [&](auto& s) { s << a0b << std::string() << std::string_view("view!", 4); }},
      {"mutable", [&](auto& s) { s << characters << null << nullCharacters; }},
      {"-2147483648,1", [](auto& s) { s << std::numeric_limits<int>::min() << ',' << true; }},
      {"4294967295 18446744073709551615", [](auto& s) { s << ~0U << ' ' << ~0ULL; }},
      {"-9223372036854775808", [](auto& s) { s << std::numeric_limits<long long>::min(); }},
      {"-7 7", [](auto& s) { s << -7L << ' ' << 7UL; }},
      {"0.1 -0 1e+100 3", [](auto& s) { s << 0.1 << ' ' << -0.0 << ' ' << 1e100 << ' ' << 3.0; }},
      {"2.2250738585072014e-308", [](auto& s) { s << Double::min(); }},
      {"inf -inf", [](auto& s) { s << Double::infinity() << ' ' << -Double::infinity(); }},
      {Typename(typeid(VerboseStream)), [](auto& s) { s << typeid(VerboseStream); }},
      {" - NO CACHE!", [](auto& s) { s << WeakPtr<Cache, CacheBase>(); }},
      {to_address_string(address), [&](auto& s) { s << address; }},
      {to_address_string(address), [&](auto& s) { s << static_cast<void*>(characters); }},
  };
  for (const auto& c : cases) {
    {
      VerboseStream stream = message(3);
      c.second(stream);
    }
    EXPECT_EQ(catcher->texts.back(), c.first);
  }
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
      const VerboseRecursion recursion('*'), deeper('#');
      message(1) << "c";
    }
    message(1) << "d";
    std::thread([] { message(1) << "e"; }).join();
  }
  int line = 0;
  for (const bool first : {true, false}) // each macro is a single statement
    if (first)
      TOLVANE_VERBOSE((line = __LINE__, 1)) << "first";
    else
      TOLVANE_VERBOSE_DOMAIN(3, std::string("domain ") + "text") << "second";
  TOLVANE_SECTION(6);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  const std::string place = "|f.cpp:7: In function f(): |";
  const std::vector<std::string> told(catcher->events.begin(), catcher->events.begin() + 8);
  EXPECT_EQ(told, (std::vector<std::string>{
                      "500" + place + "a|Mem|0| ", "500|:-3: In function : ||+Mem|0| ",
                      "enter 5g.cpp8g()", "1" + place + "b||2|-", "1" + place + "c||4|#",
                      "1" + place + "d||2|-", "1" + place + "e||0| ", "leave 5g.cpp"}));
  const std::string rest = testing::PrintToString(
      std::vector<std::string>(catcher->events.begin() + 8, catcher->events.end()));
  EXPECT_TRUE(matches(rest, R"re(\{ "1\|.*VerboseTest.cpp:)re" + std::to_string(line) +
                                R"re(: .*InsteadOfTheErrorStream.*\|first\|\|0\| ", )re"
                                R"re("3.*\|second\|domain text\|0\| ", "enter 6.*Test.cpp.* \})re"))
      << rest;
}

TEST_F(VerboseCatching, CatcherMayDieAndBeReplaced) {
  const auto errorsAt = [](int level) {
    testing::internal::CaptureStderr();
    message(level) << "m";
    return textOf(testing::internal::GetCapturedStderr());
  };
  const StrongPtr<VerboseCatcher> strong = VerboseCatcher::theCatcher;
  const WeakPtr<VerboseCatcher> weak = VerboseCatcher::theCatcher;
  EXPECT_TRUE(VerboseCatcher::theCatcher && strong.get() == catcher.get() && weak == strong);

  StrongPtr<RecordingCatcher, VerboseCatcher> dying = new RecordingCatcher;
  // The call holds its catcher, also when the last other pointer goes meanwhile.
  const WeakPtr<RecordingCatcher, VerboseCatcher> watched = dying;
  bool caught = false;
  dying->onMessage = [&] {
    dying = nullptr;
    caught = static_cast<bool>(watched);
  };
  VerboseCatcher::theCatcher = dying;
  EXPECT_EQ(errorsAt(0), "");
  EXPECT_TRUE(caught && !watched && !VerboseCatcher::theCatcher);
  EXPECT_EQ(VerboseCatcher::theCatcher.lock(), nullptr);
  EXPECT_EQ(errorsAt(0) + errorsAt(1), red("m"));
  {
    RecordingCatcher onTheStack;
    VerboseCatcher::theCatcher = &onTheStack;
    EXPECT_EQ(errorsAt(7), "");
    EXPECT_EQ(onTheStack.texts.size(), 1U);
  }
  EXPECT_EQ(errorsAt(0), red("m"));
}

TEST_F(VerboseCatching, CatcherMayIssueMessagesAndThrow) {
  testing::internal::CaptureStderr();
  catcher->onMessage = catcher->onSection = [] {
    message(0) << "from inside";
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
  catcher->onMessage = nullptr;
  message(9) << "m"; // neither the mark of a running call nor the indentation was left behind
  EXPECT_TRUE(catcher->events.back().ends_with("|m||0| ")) << catcher->events.back();
}
