#include <tolvane/Environment.hpp>
#include <tolvane/Exception.hpp>
#include <tolvane/Typename.hpp>

#include <iostream>
#include <string>

// Uses the installed library across its boundary: values, an exception thrown inside and caught
// here, and the name of a type that the library has never seen.

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

bool throwsAcross() {
  try {
    throw Tolvane::Exception("out of bricks", "main.cpp", 7);
  } catch (const std::exception& caught) {
    return dynamic_cast<const Tolvane::Exception*>(&caught) != nullptr &&
           std::string(caught.what()).find("out of bricks") != std::string::npos;
  }
}

} // namespace

int main() {
  check(Tolvane::Typename(typeid(Consumer::Volume)).find("Volume") != std::string::npos,
        "a type of the host has a readable name");
  check(Tolvane::setEnv("TOLVANE_CONSUMER", "17", true), "a variable is set");
  check(Tolvane::getEnvInteger("TOLVANE_CONSUMER", "a variable of the host", 0) == 17,
        "and read back");
  check(throwsAcross(), "an exception keeps its type");
  return failures == 0 ? 0 : 1;
}
