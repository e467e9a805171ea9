#include <tolvane/InputString.hpp>

#include <algorithm>
#include <cctype>
#include <string_view>

namespace Pelko {

input_string::input_string(std::string text) : text_(std::move(text)) {}

input_string::~input_string() = default;

void input_string::newline(unsigned long long) {}

std::string input_string::getline() {
  std::string line;
  for (auto next = peek(); next.first && next.second != '\n'; next = peek()) {
    if (advance() != '\r')
      line += next.second;
  }
  return line;
}

unsigned long long input_string::skipspace() {
  unsigned long long skipped = 0;
  // A locale decides what isspace says, but never that a carriage return is kept.
  for (auto next = peek();
       next.first && (next.second == '\r' || std::isspace(static_cast<unsigned char>(next.second)));
       next = peek()) {
    advance();
    ++skipped;
  }
  return skipped;
}

std::string input_string::peekline() const {
  const auto begin = static_cast<std::size_t>(position_);
  const auto end = text_.find_first_of(std::string_view("\n\0", 2), begin);
  return text_.substr(begin, end == std::string::npos ? end : end - begin);
}

std::string::size_type input_string::lineStart() const noexcept {
  if (position_ == 0)
    return 0;
  const auto lineFeed = text_.rfind('\n', static_cast<std::size_t>(position_) - 1);
  return lineFeed == std::string::npos ? 0 : lineFeed + 1;
}

std::string input_string::currentline() const {
  const auto begin = lineStart();
  const auto end = std::min(text_.find('\n', static_cast<std::size_t>(position_)), text_.size());
  return text_.substr(begin, end - begin);
}

std::string input_string::previousline() const {
  const auto begin = lineStart();
  if (begin == 0)
    return {};
  const auto end = begin - 1;
  const auto lineFeed = end == 0 ? std::string::npos : text_.rfind('\n', end - 1);
  const auto previous = lineFeed == std::string::npos ? 0 : lineFeed + 1;
  return text_.substr(previous, end - previous);
}

} // namespace Pelko
