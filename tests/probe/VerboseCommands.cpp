#include "Probe.hpp"

#include <tolvane/Verbose.hpp>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

using namespace Tolvane;

namespace {

std::string at(const probe::Arguments& arguments, std::size_t i, const char* otherwise = "") {
  return i < arguments.size() ? arguments[i] : otherwise;
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
  ~Late() { VerboseStream(false, false, 0, "late.cpp", 1, "f()", text, ""); }
  std::string text;
};

class PrintingCatcher : public VerboseCatcher {
public:
  void catchMessage(int level, const std::string& location, const std::string& text,
                    const std::string& domain, int, char) override {
    std::printf("%d[%s][%s][%s]\n", level, location.c_str(), text.c_str(), domain.c_str());
  }
};

} // namespace

// LEVEL TEXT [DOMAIN [FLAGS [FILE [FUNCTION]]]]; the flags are "s" for suppressed, "b" for
// breakpoint. Tells by 1 or 0 whether the message would be shown, and what is thrown.
PROBE_COMMAND(message) {
  const std::string flags = at(arguments, 3), file = at(arguments, 4, "dir/file.cpp"),
                    function = at(arguments, 5, "void f(int)");
  tellWhatIsThrown([&] {
    VerboseStream message(flags.find('s') != std::string::npos,
                          flags.find('b') != std::string::npos, std::stoi(arguments.at(0)),
                          file.c_str(), 12, function.c_str(), at(arguments, 1), at(arguments, 2));
    tellWhatIsThrown([&] { std::printf("%d\n", message ? 1 : 0); });
  });
  return 0;
}

// Pairs of domain and level: tells for each by 1 or 0 whether it is shown.
PROBE_COMMAND(domains) {
  for (std::size_t i = 0; i < arguments.size(); i += 2)
    tellWhatIsThrown([&] {
      VerboseStream message(false, false, std::stoi(arguments.at(i + 1)), "file.cpp", 1, "f()", "",
                            arguments.at(i));
      std::fputs(message ? "1" : "0", stdout);
    });
  std::puts("");
  return 0;
}

// Messages by the macros, of which only some may evaluate what they stream.
PROBE_COMMAND(macros) {
  std::string evaluated;
  const auto stream = [&](const char* text) {
    evaluated += text;
    return text;
  };
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
  return 0;
}

// A section around a message; with an argument, an exception passes through its end.
PROBE_COMMAND(section) {
  tellWhatIsThrown([&] {
    VerboseStream::Indentator section("file.cpp", 3, "void work()", 4, '-', 3, "Mem");
    VerboseStream(false, false, 0, "file.cpp", 4, "void work()", "inside", "");
    if (!arguments.empty())
      throw std::runtime_error(arguments[0]);
  });
  tellWhatIsThrown([] { VerboseStream(false, false, 0, "file.cpp", 5, "void f()", "after", ""); });
  return 0;
}

// Messages from destructors while an exception is passing.
PROBE_COMMAND(unwinding) {
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
  return 0;
}

PROBE_COMMAND(show) {
  for (const std::string& level : arguments)
    std::fputs(VerboseStream::show(std::stoi(level)) ? "1" : "0", stdout);
  std::puts("");
  return 0;
}

PROBE_COMMAND(console) {
  Console() << arguments.at(0) << 7;
  return 0;
}

PROBE_COMMAND(write_used_files) {
  VerboseStream::writeUsedFiles();
  return 0;
}

PROBE_COMMAND(catcher) {
  static StrongPtr<PrintingCatcher, VerboseCatcher> catcher = new PrintingCatcher;
  VerboseCatcher::theCatcher = catcher;
  return 0;
}

// A message from the destructor of a static object.
PROBE_COMMAND(late_message) {
  static const Late late(arguments.at(0));
  return 0;
}

PROBE_COMMAND(close_output_descriptors) {
#ifdef _WIN32
  _close(1);
  _close(2);
#else
  close(1);
  close(2);
#endif
  return 0;
}
