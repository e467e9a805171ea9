#include "Probe.hpp"

#include <cstdio>
#include <map>

namespace {

std::map<std::string, int (*)(const probe::Arguments&)>& commands() {
  static auto& table = *new std::map<std::string, int (*)(const probe::Arguments&)>;
  return table;
}

} // namespace

probe::Command::Command(const char* name, int (*run)(const Arguments&)) {
  commands()[name] = run;
}

int main(int argc, char** argv) {
  constexpr int misused = 125;
  for (int next = 1; next < argc; ++next) {
    const std::string name = argv[next];
    probe::Arguments arguments;
    while (++next < argc && argv[next] != std::string("--"))
      arguments.emplace_back(argv[next]);
    const auto command = commands().find(name);
    if (command == commands().end()) {
      std::fprintf(stderr, "tolvane-probe: no command \"%s\", there are:", name.c_str());
      for (const auto& [known, run] : commands())
        std::fprintf(stderr, " %s", known.c_str());
      std::fputc('\n', stderr);
      return misused;
    }
    if (const int code = command->second(arguments))
      return code;
  }
  return argc > 1 ? 0 : misused;
}
