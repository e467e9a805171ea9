#pragma once

/// @file
/// The codec of tokens as its rules say, without a thought for speed: what the fuzz targets and the
/// tests compare the library with.

#include <tolvane/StreamString.hpp>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace rules {

using Pelko::StreamString;
using namespace std::string_literals;
using Substitutions = std::vector<std::pair<std::string, std::string>>;

/// Ends the run of a fuzz target, which tells the input and the line.
inline void check(bool right) {
  if (!right)
    std::abort();
}

/// One substitution after the other, each over all that the one before it left.
inline std::string substituted(std::string s, const Substitutions& substitutions) {
  for (const auto& [from, to] : substitutions)
    for (auto hit = s.find(from); hit != s.npos; hit = s.find(from, hit + to.size()))
      s.replace(hit, from.size(), to);
  return s;
}

inline std::string escaped(const std::string& s) {
  return substituted(s, {{"=", "_"},
                         {">", "_"},
                         {"-", "\x10_"},
                         {"(", "_"},
                         {")", "_"},
                         {" ", "\x10\x10"},
                         {",", "\x10\x11"},
                         {".", "\x10\x12"}});
}

inline std::string unescaped(const std::string& s) {
  return substituted(s, {{"\x10_", "-"}, {"\x10\x10", " "}, {"\x10\x11", ","}, {"\x10\x12", "."}});
}

inline std::string identifier(const std::string& s, const std::string& specials) {
  if (s.empty())
    return "\"\"";
  if (s.find_first_of(specials) == s.npos)
    return s;
  return s.find_first_of("\t\n\r\"") == s.npos ? '"' + s + '"' : '\2' + s + '\3';
}

/// What a read of a token finds, and how many bytes it takes.
struct Token {
  bool operator==(const Token&) const = default;
  bool found;
  std::string text;
  std::size_t size;
};

/// The token at the beginning of @p rest.
inline Token token(const std::string& rest, char open, char close, const std::string& terminators,
                   bool flag) {
  if (rest.empty())
    return {false, "", 0};
  if (rest[0] == StreamString::ENQ) {
    std::size_t length = 0;
    for (std::size_t i = 4; i > 0; --i)
      length = length << 8 | (i < rest.size() ? static_cast<unsigned char>(rest[i]) : 0U);
    if (rest.size() - 1 < 5 + length) // something has to follow
      return {false, "", rest.size()};
    return {true, rest.substr(5, length), 5 + length};
  }
  const auto result = [&](const std::string& text, std::size_t size) {
    return Token{true, flag ? unescaped(text) : text, size};
  };
  if (open == StreamString::ENQ) {
    const auto kind = "[{(\2\""s.find(rest[0]);
    if (kind == std::string::npos) {
      const std::string text = rest.substr(0, rest.find_first_of(terminators + '\0'));
      return result(text, std::max<std::size_t>(text.size(), 1));
    }
    open = rest[0];
    close = "]})\3\""[kind];
  }
  int depth = 0;
  std::size_t end = 1; // the first byte goes, whatever it is
  for (; end < rest.size() && (depth > 0 || rest[end] != close); ++end)
    depth += rest[end] == open ? 1 : rest[end] == close ? -1 : 0;
  return result(rest.substr(1, end - 1), std::min(end + 1, rest.size()));
}

/// A cursor that remembers its line feeds.
struct Cursor : Pelko::input_string {
  using input_string::input_string;
  void newline(unsigned long long position) override { lineFeeds.push_back(position); }

  /// Whether all that it tells of its place agrees with its text.
  bool isRight() const {
    std::vector<std::string> lines(1);
    std::vector<unsigned long long> passed;
    for (std::size_t i = 0; i < text().size(); ++i)
      if (text()[i] != '\n') {
        lines.back() += text()[i];
      } else {
        lines.emplace_back();
        if (i < position())
          passed.push_back(i + 1);
      }
    const auto begin = passed.empty() ? 0 : passed.back();
    const std::string& current = lines[passed.size()];
    const std::string rest = current.substr(position() - begin);
    return lineFeeds == passed && line() == passed.size() && column() == position() - begin &&
           atEnd() == (position() == text().size()) && currentline() == current &&
           previousline() == (passed.empty() ? "" : lines[passed.size() - 1]) &&
           peekline() == rest.substr(0, rest.find('\0'));
  }

  std::vector<unsigned long long> lineFeeds;
};

enum class Kind { Byte, Line, Blanks, Token };

/// Reads, and tells whether that gave what the rules say and left the cursor where they say.
inline bool reads(Cursor& in, Kind kind, char open, char close, const std::string& terminators,
                  bool flag) {
  const auto before = in.position();
  const std::string rest = in.text().substr(before);
  std::size_t size = 0;
  bool right = false;
  if (kind == Kind::Byte) {
    size = rest.empty() ? 0 : 1;
    const std::pair<bool, char> expected(size > 0, rest[0]);
    right = in.peek() == expected && in.get() == expected;
  } else if (kind == Kind::Line) {
    size = std::min(rest.find('\n'), rest.size());
    right = in.getline() == substituted(rest.substr(0, size), {{"\r", ""}});
  } else if (kind == Kind::Blanks) {
    size = std::min(rest.find_first_not_of(" \t\v\f\r\n"), rest.size());
    right = in.skipspace() == size;
  } else {
    const Token expected = token(rest, open, close, terminators, flag);
    const auto [found, text] = StreamString::decodeIdentifier(in, open, close, terminators, flag);
    size = expected.size;
    right = expected == Token{found, text, in.position() - before};
  }
  return right && in.position() - before == size && in.isRight();
}

} // namespace rules
