// A host: it shows what scientific files hold, and plays more of it than fits its memory.
//
// What it can read and write comes with modules that it finds in a folder. See fields --help. Ends
// with 1 and one line on the standard error stream when something cannot be done.

#include "Commands.hpp"
#include "Refusal.hpp"

#include <tolvane/Environment.hpp>
#include <tolvane/Exception.hpp>

#include <algorithm>
#include <iostream>
#include <new>

using namespace fields;

namespace {

void run(const Options& options) {
  if (options.has("--help")) {
    std::cout << Options::help();
    return;
  }
  const ProgressBarPtr progress =
      new ProgressBar(ProgressBar::styleOf(options.text("--progress", "auto")));
  const ModuleFolder modules(
      options.text("--modules", Tolvane::getExecutableDir() + "/fields-modules"));
  for (const auto& [name, reason] : modules.leftOut()) {
    std::cerr << "fields: module " << name << " was left out: " << reason << "\n";
  }
  if (options.command() == "list") {
    listCommand(options, modules, progress);
  } else if (options.command() == "show") {
    showCommand(options, progress);
  } else if (options.command() == "play") {
    playCommand(options, progress);
  } else if (options.command() == "compare") {
    compareCommand(options, progress);
  } else {
    throw Refusal(options.command().empty()
                      ? "give a command; fields --help lists them"
                      : "there is no command " + options.command() + "; fields --help lists them");
  }
}

int fail(std::string reason) {
  std::replace(reason.begin(), reason.end(), '\n', ' ');
  std::cerr << "fields: " << reason << "\n";
  return 1;
}

} // namespace

int main(int count, char** arguments) {
  Tolvane::Exception::setTerminateHandler();
  try {
    run(Options(count, arguments));
    return 0;
  } catch (const std::bad_alloc&) {
    return fail("the system has not enough memory for this; give a smaller --size or file");
  } catch (const std::exception& error) {
    return fail(error.what());
  }
}
