// The text codec beside a chain of replacements and the fewest steps that such a codec can take.
#include "CodecBench.hpp"

#include <tolvane/StreamString.hpp>

#include <array>
#include <cstring>

namespace {

using Pelko::StreamString;
using Texts = std::vector<std::string>;

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
}

const std::pair<std::string, std::string> pairs[] = {
    {"-", "\x10_"}, {" ", "\x10\x10"}, {",", "\x10\x11"}, {".", "\x10\x12"}};

/// One look at each byte, which a table says whether to escape.
std::string onePass(const std::string& text) {
  static const auto table = [] {
    std::vector<char> to(256);
    for (const auto& [from, escaped] : pairs) {
      to[static_cast<unsigned char>(from[0])] = escaped[1];
    }
    return to;
  }();
  std::string out(text.size() * 2, '\0');
  char* end = out.data();
  for (const char c : text) {
    const char to = table[static_cast<unsigned char>(c)];
    if (to != 0) {
      *end++ = '\x10';
    }
    *end++ = to != 0 ? to : c;
  }
  out.resize(static_cast<std::size_t>(end - out.data()));
  return out;
}

std::string onePassBack(const std::string& text) {
  std::string out(text.size(), '\0');
  char* end = out.data();
  for (std::size_t at = 0; at < text.size(); ++at) {
    char c = text[at];
    if (c == '\x10') {
      const char next = text[++at];
      c = next == '_' ? '-' : next == '\x10' ? ' ' : next == '\x11' ? ',' : '.';
    }
    *end++ = c;
  }
  out.resize(static_cast<std::size_t>(end - out.data()));
  return out;
}

/// What a byte asks for: 1 for quotes around its text, 2 for control characters.
const auto& asksFor() {
  static const auto table = [] {
    std::array<char, 256> asks{};
    for (const char c : std::string(StreamString::non_identifier_characters)) {
      asks[static_cast<unsigned char>(c)] = std::strchr("\t\n\r\"", c) != nullptr ? 2 : 1;
    }
    return asks;
  }();
  return table;
}

/// Each text between quotes or control characters where it has to be, and a line end; with a look
/// at each byte.
std::string writeOnePass(const Texts& texts) {
  const auto& table = asksFor();
  const auto encode = [&table](const std::string& text) {
    int asks = 0;
    for (const char c : text) {
      asks |= table[static_cast<unsigned char>(c)];
    }
    if (asks == 0) {
      return text;
    }
    std::string token;
    token.reserve(text.size() + 2);
    token += asks > 1 ? '\x02' : '"';
    token += text;
    return token += asks > 1 ? '\x03' : '"';
  };
  std::string out;
  for (const std::string& text : texts) {
    out += encode(text);
    out += '\n';
  }
  return out;
}

Texts readOnePass(const std::string& text) {
  const auto& table = asksFor();
  Texts out;
  for (const char* at = text.data(); *at != '\0';) {
    const char close = *at == '"' ? '"' : *at == '\x02' ? '\x03' : '\0';
    const char* begin = close == '\0' ? at : at + 1;
    const char* end = begin;
    while (close == '\0' ? table[static_cast<unsigned char>(*end)] == 0 : *end != close) {
      ++end;
    }
    out.emplace_back(begin, end);
    at = end + (close == '\0' ? 1 : 2);
  }
  return out;
}

[[maybe_unused]] const bool added = [] {
  bench::addEscapes("tolvane", &StreamString::encodeEscaped, &StreamString::decodeEscaped);
  bench::addEscapes(
      "chain of replacements",
      [](std::string text) {
        for (const auto& [from, to] : pairs) {
          replaceAll(text, from, to);
        }
        return text;
      },
      [](std::string text) {
        for (const auto& [from, to] : pairs) {
          replaceAll(text, to, from);
        }
        return text;
      });
  bench::addEscapes("floor, one pass", &onePass, &onePassBack);
  const auto copy = [](const std::string& text) { return text; };
  bench::addEscapes("floor, memcpy", copy, copy);
  bench::addTokens(
      "tolvane",
      [](const Texts& texts) {
        const std::string specials = StreamString::non_identifier_characters;
        std::string out;
        for (const std::string& text : texts) {
          out += StreamString::encodeIdentifier(text, specials);
          out += '\n';
        }
        return out;
      },
      [](const std::string& text) {
        const std::string specials = StreamString::non_identifier_characters;
        Pelko::input_string in(text);
        Texts out;
        for (;;) {
          auto token = StreamString::decodeIdentifier(in, StreamString::ENQ, 0, specials, false);
          if (!token.first) {
            return out;
          }
          out.push_back(std::move(token.second));
          in.get();
        }
      });
  bench::addTokens("floor, one pass", &writeOnePass, &readOnePass);
  return true;
}();

} // namespace
