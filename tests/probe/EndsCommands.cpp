// The ways in which a process ends, with whatever is there at that time.

#include "../support/Lingering.hpp"
#include "../support/LoadedModule.hpp"
#include "Probe.hpp"

#include <tolvane/Exception.hpp>
#include <tolvane/SystemMemory.hpp>

#include <cstdlib>
#include <map>
#include <stdexcept>
#include <thread>

#ifndef _WIN32
#include <unistd.h>
#endif

using probe::Arguments;

namespace {

constexpr int endCode = 5;

Lingering ofTheProgram;
thread_local Lingering ofTheThread;

// Stays loaded until it is unloaded by command, also while the process ends.
LoadedModule* module;

struct EndingCatcher : VerboseCatcher {
  void catchMessage(int, const std::string&, const std::string& text, const std::string&, int,
                    char) override {
    if (text != "caught")
      return;
    theCatcher = nullptr;
    std::exit(endCode);
  }
};

[[noreturn]] void exitWith() {
  std::exit(endCode);
}

[[noreturn]] void throwUp() {
  throw std::runtime_error("nobody catches this");
}

[[noreturn]] void stopHere() {
  ImmediateExitus(endCode);
}

// Goes on until the process ends, wherever it is then.
void workForEver(const Arguments&) {
  for (int i = 0; i < 4; ++i)
    std::thread([i] {
      const StrongPtr<Cacheable> shared = makeItem<0>(Cache::MemCache())->data;
      for (int round = 0;; ++round) {
        const auto maker = (i % 2 ? makeItem<0> : makeItem<2>)(Cache::MemCache());
        const StrongPtr<Cacheable> copy = WeakPtr<Cacheable>(shared).lock();
        DefineTypenameBase::setTypename(typeid(Lingering), std::string(1000, 'a'));
        TOLVANE_VERBOSE_DOMAIN(round % 100 == 0 ? 0 : 1, "work") << "at work";
        if (round % 1000 == 0)
          TOLVANE_IRREGULARITY("at work");
      }
    }).detach();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

const std::map<std::string, void (*)()> ends = {
    {"exit", exitWith},
    {"exit-on-thread", [] { std::thread(exitWith).join(); }},
    {"exit-in-release",
     [] {
       const ItemMakerPtr maker = makeItem<3>(Cache::MemCache());
       maker->onRelease = exitWith;
       Cache::MemCache()->adjust(typeid(ItemMaker), typeid(Item<3>), ~memsize_t{0});
     }},
    {"exit-in-catcher",
     [] {
       static const StrongPtr<EndingCatcher, VerboseCatcher> catcher = new EndingCatcher;
       VerboseCatcher::theCatcher = catcher;
       TOLVANE_VERBOSE(0) << "caught";
     }},
#ifndef _WIN32
    {"quick-exit", [] { std::quick_exit(endCode); }},
#endif
    {"_Exit", [] { std::_Exit(endCode); }},
    {"immediate", stopHere},
    {"immediate-on-thread", [] { std::thread(stopHere).join(); }},
    {"abort", std::abort},
    {"throw", throwUp},
    {"throw-on-thread", [] { std::thread(throwUp).join(); }},
    {"throw-noexcept", []() noexcept { throwUp(); }},
};

const probe::Commands commands = {
    {"linger",
     [](const Arguments&) {
       static Lingering inFunction;
       inFunction.begin("in function");
       ofTheProgram.begin("of the program");
     }},
    {"thread_lingers", [](const Arguments&) { ofTheThread.begin("of the thread"); }},
    {"work", workForEver},
    {"end", [](const Arguments& a) { ends.at(a.at(0))(); }},
    {"load_module", [](const Arguments& a) { module = new LoadedModule(a.at(0)); }},
    {"module_lingers", [](const Arguments&) { module->function<void()>("linger")(); }},
};

} // namespace

PROBE_COMMAND(return ) {
  return endCode;
}

PROBE_COMMAND(unload_module) {
  module->unload();
  return module->isMapped() ? 1 : 0;
}

PROBE_COMMAND(install_terminate_handler) {
  return Exception::setTerminateHandler() != Exception::terminateHandler &&
                 Exception::setTerminateHandler() == Exception::terminateHandler
             ? 0
             : 1;
}

// CODE FILE: the file is one of its own, because the thread sanitizer flushes the standard streams
// at every kind of exit.
PROBE_COMMAND(immediate_exit) {
  std::atexit([] { std::fprintf(stderr, "a handler ran\n"); });
  static std::FILE* const file = std::fopen(arguments.at(1).c_str(), "w");
  std::fputs("not flushed", file);
  ImmediateExitus(std::stoi(arguments.at(0)));
}
