#include <tolvane/Environment.hpp>
#include <tolvane/Exception.hpp>
#include <tolvane/Typename.hpp>

#include <iostream>
#include <string>

// Uses the installed library across its boundary: values, an exception of a type that lives in the
// library, and the name of a type that the library has never seen.

namespace Consumer {
struct Volume {};
} // namespace Consumer

namespace {

int failures = 0;

void check(bool holds, const char* what) {
  std::cout << (holds ? "ok      " : "FAILED  ") << what << '\n';
  if (!holds)
    ++failures;
}

bool exceptionKeepsItsType() {
  try {
    throw Tolvane::Exception("out of bricks", "main.cpp", 7);
  } catch (const std::exception& caught) {
    const auto* const exception = dynamic_cast<const Tolvane::Exception*>(&caught);
    return exception && exception->sourceLine() == 7;
  }
}

} // namespace

int main() {
  check(Tolvane::Typename(typeid(Consumer::Volume)).find("Volume") != std::string::npos,
        "a type of the host has a readable name");
  check(Tolvane::setEnv("TOLVANE_CONSUMER", "17", true), "a variable is set");
  check(Tolvane::getEnvInteger("TOLVANE_CONSUMER", "a variable of the host", 0) == 17,
        "and read back");
  check(exceptionKeepsItsType(), "an exception keeps its type");
  return failures == 0 ? 0 : 1;
}
