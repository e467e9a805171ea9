#include "Patterns.hpp"

#include <iterator>
#include <regex>

bool matches(const std::string& text, const std::string& pattern) {
  return std::regex_match(text, std::regex(pattern));
}

int countOf(const std::string& text, const std::string& pattern) {
  const std::regex expression(pattern);
  return static_cast<int>(
      std::distance(std::sregex_iterator(text.begin(), text.end(), expression), {}));
}

std::string groupOf(const std::string& text, const std::string& pattern) {
  std::smatch parts;
  return std::regex_match(text, parts, std::regex(pattern)) ? parts[1].str() : std::string();
}
