#include "Probe.hpp"

#include <cstdio>
#include <map>

using namespace probe;

static std::map<std::string, std::function<int(const Arguments&)>>& commands() {
  static auto& table = *new std::map<std::string, std::function<int(const Arguments&)>>;
  return table;
}

Command::Command(const char* name, int (*run)(const Arguments&)) {
  commands()[name] = run;
}

Commands::Commands(
    std::initializer_list<std::pair<const char*, std::function<void(const Arguments&)>>> list) {
  for (const auto& entry : list)
    commands()[entry.first] = [run = entry.second](const Arguments& arguments) {
      run(arguments);
      return 0;
    };
}

int main(int argc, char** argv) {
  constexpr int misused = 125;
  for (int next = 1; next < argc; ++next) {
    const std::string name = argv[next];
    Arguments arguments;
    while (++next < argc && argv[next] != std::string("--"))
      arguments.emplace_back(argv[next]);
    if (!commands().contains(name)) {
      std::fprintf(stderr, "tolvane-probe: no command \"%s\"\n", name.c_str());
      return misused;
    }
    if (const int code = commands()[name](arguments))
      return code;
  }
  return argc > 1 ? 0 : misused;
}
