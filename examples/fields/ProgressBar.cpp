#include "ProgressBar.hpp"

#include "Refusal.hpp"

#include <tolvane/Typename.hpp>
#include <tolvane/Verbose.hpp>

#include <cstdio>

#if defined(_WIN32)
#include <io.h>
#else
#include <unistd.h>
#endif

namespace fields {
namespace {

bool isTerminal() {
#if defined(_WIN32)
  return _isatty(_fileno(stderr)) != 0;
#else
  return isatty(STDERR_FILENO) != 0;
#endif
}

} // namespace

ProgressBar::Style ProgressBar::styleOf(const std::string& word) {
  if (word == "bar" || (word == "auto" && isTerminal())) {
    return Style::Bar;
  }
  if (word == "lines" || word == "auto") {
    return Style::Lines;
  }
  if (word == "none") {
    return Style::None;
  }
  throw Refusal("progress is shown as auto, bar, lines or none, not \"" + word + "\"");
}

void ProgressBar::setWork(const std::string& work) {
  clear();
  work_ = work;
}

bool ProgressBar::tryLoader(const Tolvane::WeakPtr<Tolvane::LoaderBase>& loader,
                            const std::type_info&, int index, int count) {
  if (const auto asked = loader.lock()) {
    const Tolvane::LoaderBase& object = *asked;
    TOLVANE_VERBOSE_DOMAIN(3, "Fields") << "asking loader " << index + 1 << " of " << count << ", "
                                        << Tolvane::Typename(typeid(object));
  }
  return true;
}

bool ProgressBar::progress(const std::string& what, int done, int all) {
  constexpr int Least = 16; // fewer steps are no long work
  if (style_ == Style::None || all < Least || done < 0 || done > all) {
    return true;
  }
  const int percent = done * 100 / all;
  if (style_ == Style::Lines) {
    const std::string text = what + ": " + std::to_string(percent / 25 * 25) + " %";
    if (percent >= 25 && text != shown_ && (work_.empty() || work_ == what)) {
      shown_ = text;
      std::fprintf(stderr, "%s\n", text.c_str());
    }
    return true;
  }
  const std::string text = what + std::to_string(percent);
  if (text != shown_) {
    shown_ = text;
    constexpr int Length = 30;
    const auto full = static_cast<std::size_t>(percent * Length / 100);
    std::fprintf(stderr, "\r\033[K[%s%s] %3d %% %s", std::string(full, '#').c_str(),
                 std::string(Length - full, '.').c_str(), percent, what.c_str());
    if (done == all) {
      clear();
    }
    std::fflush(stderr);
  }
  return true;
}

void ProgressBar::clear() {
  if (style_ == Style::Bar && !shown_.empty()) {
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
  }
  shown_.clear();
}

} // namespace fields
