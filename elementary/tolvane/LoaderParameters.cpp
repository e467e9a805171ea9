#include <tolvane/LoaderParameters.hpp>

namespace Tolvane {
namespace {

const char* inWords(LoaderParameters::Attempt::Outcome outcome) {
  using Outcome = LoaderParameters::Attempt::Outcome;
  switch (outcome) {
  case Outcome::Loaded:
    return "loaded";
  case Outcome::Refused:
    return "refused without a reason";
  case Outcome::Vetoed:
    return "not asked, because the progress interface left it out";
  case Outcome::Threw:
    return "ended with an exception";
  }
  return "";
}

} // namespace

LoaderParameters::LoaderParameters(const std::list<std::string>& files) : files_(files) {}

LoaderParameters::~LoaderParameters() = default;

void LoaderParameters::setStatusText(const std::string& text) {
  statusText_ = text;
  statusSet_ = true;
}

std::string LoaderParameters::describeAttempts() const {
  std::string text;
  for (const Attempt& attempt : attempts_) {
    text += attempt.loader + ": ";
    text += attempt.reason.empty() ? inWords(attempt.outcome) : attempt.reason;
    text += '\n';
  }
  return text;
}

} // namespace Tolvane
