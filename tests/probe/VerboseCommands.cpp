#include "../support/Lingering.hpp"
#include "Probe.hpp"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

using namespace Tolvane;
using probe::Arguments;

namespace {

std::string at(const Arguments& arguments, std::size_t i, const char* otherwise = "") {
  return i < arguments.size() ? arguments[i] : otherwise;
}

void say(int level, const std::string& text, const char* file = "file.cpp") {
  VerboseStream(false, false, level, file, 1, "f()", text, "");
}

template <typename Action>
void tellWhatIsThrown(const Action& action) {
  try {
    action();
  } catch (const std::invalid_argument&) {
    std::puts("invalid_argument");
  } catch (const std::out_of_range&) {
    std::puts("out_of_range");
  } catch (const std::runtime_error& e) {
    std::puts(e.what());
  }
}

struct Late {
  explicit Late(std::string words) : text(std::move(words)) {}
  ~Late() { say(0, text, "late.cpp"); }
  std::string text;
};

class PrintingCatcher : public VerboseCatcher {
public:
  void catchMessage(int level, const std::string& location, const std::string& text,
                    const std::string& domain, int, char) override {
    std::printf("%d[%s][%s][%s]\n", level, location.c_str(), text.c_str(), domain.c_str());
  }
};

// LEVEL TEXT [DOMAIN [FLAGS [FILE [FUNCTION]]]]; the flags are "s" for suppressed, "b" for
// breakpoint. Tells by 1 or 0 whether the message would be shown, and what is thrown.
void message(const Arguments& a) {
  const std::string flags = at(a, 3), file = at(a, 4, "dir/file.cpp"),
                    function = at(a, 5, "void f(int)");
  tellWhatIsThrown([&] {
    VerboseStream stream(flags.find('s') != std::string::npos, flags.find('b') != std::string::npos,
                         std::stoi(a.at(0)), file.c_str(), 12, function.c_str(), at(a, 1),
                         at(a, 2));
    tellWhatIsThrown([&] { std::printf("%d\n", stream ? 1 : 0); });
  });
}

// Pairs of domain and level: tells for each by 1 or 0 whether it is shown.
void domains(const Arguments& a) {
  for (std::size_t i = 0; i < a.size(); i += 2) {
    VerboseStream stream(false, false, std::stoi(a.at(i + 1)), "file.cpp", 1, "f()", "", a[i]);
    std::fputs(stream ? "1" : "0", stdout);
  }
  std::puts("");
}

// Messages by the macros, of which only some may evaluate what they stream.
void macros(const Arguments&) {
  std::string evaluated;
  const auto stream = [&](const char* text) { return evaluated += text, text; };
  tellWhatIsThrown([&] {
    for (int i = 0; i < 2; ++i) {
      TOLVANE_VERBOSE(5) << stream("a");
      TOLVANE_VERBOSE(6) << stream("b");
      TOLVANE_VERBOSE_DOMAIN(5, "Mem") << stream("c");
      TOLVANE_VERBOSE_DOMAIN(5, "+net" + std::to_string(i)) << stream("d");
    }
    TOLVANE_VERBOSE_BREAK(6) << stream("e");
  });
  std::printf("%s\n", evaluated.c_str());
}

// A section around a message; with an argument, an exception passes through its end.
void section(const Arguments& a) {
  tellWhatIsThrown([&] {
    VerboseStream::Indentator section("file.cpp", 3, "void work()", 4, '-', 3, "Mem");
    say(0, "inside");
    if (!a.empty())
      throw std::runtime_error(a[0]);
  });
  tellWhatIsThrown([] { say(0, "after"); });
}

// A section in which the default cache receives an object of 3 MiB, and one in which it does not.
void sectionsWithCache(const Arguments&) {
  ItemMakerPtr maker;
  {
    const VerboseStream::Indentator section("file.cpp", 3, "f()", 0, '-', 1, "");
    maker = makeItem<3 << 20>(Cache::MemCache());
  }
  const VerboseStream::Indentator section("file.cpp", 4, "f()", 0, '-', 1, "");
  VerboseStream(false, false, 0, "file.cpp", 5, "f()", "", "")
      << Cache::MemCache() << '|' << *Cache::MemCache();
}

// Messages from destructors while an exception is passing.
void unwinding(const Arguments&) {
  tellWhatIsThrown([&] {
    struct Loud {
      ~Loud() {
        VerboseStream(false, false, 0, "file.cpp", 1, "~Loud()", "unwinding", "Mem") << 1;
        TOLVANE_VERBOSE(0) << "macro";
        const VerboseStream asked(false, false, 1, "file.cpp", 1, "~Loud()", "asked", "Mem");
        std::printf("%d\n", static_cast<bool>(asked));
      }
    } const loud;
    throw std::runtime_error("passing");
  });
}

void installCatcher(const Arguments&) {
  static StrongPtr<PrintingCatcher, VerboseCatcher> catcher = new PrintingCatcher;
  VerboseCatcher::theCatcher = catcher;
}

const probe::Commands commands = {
    {"message", message},
    {"domains", domains},
    {"macros", macros},
    {"section", section},
    {"sections_with_cache", sectionsWithCache},
    {"unwinding", unwinding},
    {"catcher", installCatcher},
    {"show",
     [](const Arguments& a) {
       for (const std::string& level : a)
         std::fputs(VerboseStream::show(std::stoi(level)) ? "1" : "0", stdout);
       std::puts("");
     }},
    {"console", [](const Arguments& a) { Console() << a.at(0) << 7; }},
    {"write_used_files", [](const Arguments&) { VerboseStream::writeUsedFiles(); }},
    {"late_message", [](const Arguments& a) { static const Late late(a.at(0)); }},
};

} // namespace
