#include <tolvane/StreamString.hpp>

#include <cstdint>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace Pelko {

const char StreamString::non_identifier_characters[14] = "=#<>@?, !\r\t\n\"";

namespace {

struct Substitution {
  std::string_view from;
  std::string_view to;
};

// In the order in which they are applied.
constexpr Substitution escapes[] = {{"=", "_"},        {">", "_"},       {"-", "\x10_"},
                                    {"(", "_"},        {")", "_"},       {" ", "\x10\x10"},
                                    {",", "\x10\x11"}, {".", "\x10\x12"}};
constexpr Substitution reverses[] = {
    {"\x10_", "-"}, {"\x10\x10", " "}, {"\x10\x11", ","}, {"\x10\x12", "."}};

std::string replaceAll(const std::string& s, const Substitution& substitution) {
  std::string result;
  std::size_t begin = 0;
  for (auto hit = s.find(substitution.from); hit != std::string::npos;
       hit = s.find(substitution.from, begin)) {
    result.append(s, begin, hit - begin).append(substitution.to);
    begin = hit + substitution.from.size();
  }
  return result.append(s, begin);
}

std::string readDelimited(input_string& in, char open, char close) {
  std::string token;
  std::uint64_t depth = 0;
  in.get();
  for (auto next = in.get(); next.first; next = in.get()) {
    const char c = next.second;
    if (depth == 0 && c == close)
      break;
    token += c;
    if (c == open)
      ++depth;
    else if (c == close)
      --depth;
  }
  return token;
}

// A byte counts only when another one follows it: the token that ends with the text is not found.
std::optional<std::string> readLength(input_string& in) {
  in.get();
  std::uint32_t length = 0;
  for (unsigned shift = 0; shift < 32; shift += 8) {
    const char c = in.get().second;
    if (in.atEnd())
      return std::nullopt;
    length |= static_cast<std::uint32_t>(static_cast<unsigned char>(c)) << shift;
  }
  std::string token;
  for (; length != 0; --length) {
    const char c = in.get().second;
    if (in.atEnd())
      return std::nullopt;
    token += c;
  }
  return token;
}

std::string readBare(input_string& in, const std::string& terminators) {
  std::string token;
  for (auto next = in.peek(); next.first; next = in.peek()) {
    const char c = next.second;
    if (c == '\0' || terminators.find(c) != std::string::npos) {
      if (token.empty())
        in.get();
      break;
    }
    token += c;
    in.get();
  }
  return token;
}

std::string readDetected(input_string& in, char first, const std::string& terminators) {
  switch (first) {
  case '[':
    return readDelimited(in, '[', ']');
  case '{':
    return readDelimited(in, '{', '}');
  case '(':
    return readDelimited(in, '(', ')');
  case StreamString::STX:
    return readDelimited(in, StreamString::STX, StreamString::ETX);
  case '"':
    return readDelimited(in, '"', '"');
  default:
    return readBare(in, terminators);
  }
}

} // namespace

std::string StreamString::encodeLength(const std::string& s) {
  if (s.size() > std::numeric_limits<std::uint32_t>::max())
    throw std::length_error("StreamString::encodeLength: size is " + std::to_string(s.size()) +
                            ", at most 4294967295 fits; split the string");
  std::string token;
  token.reserve(s.size() + 5);
  token += ENQ;
  for (unsigned shift = 0; shift < 32; shift += 8)
    token += static_cast<char>(static_cast<unsigned char>(s.size() >> shift));
  return token += s;
}

std::string StreamString::encodeCtrlChar(const std::string& s) {
  return STX + s + ETX;
}

std::string StreamString::encodeIdentifier(const std::string& s, const std::string& specials) {
  if (s.empty())
    return "\"\"";
  if (s.find_first_of(specials) == std::string::npos)
    return s;
  if (s.find_first_of("\t\n\r\"") != std::string::npos)
    return encodeCtrlChar(s);
  return '"' + s + '"';
}

std::string StreamString::encodeEscaped(const std::string& s) {
  std::string result = s;
  for (const Substitution& escape : escapes)
    result = replaceAll(result, escape);
  return result;
}

std::string StreamString::decodeEscaped(const std::string& s) {
  std::string result = s;
  for (const Substitution& reverse : reverses)
    result = replaceAll(result, reverse);
  return result;
}

std::pair<bool, std::string> StreamString::decodeIdentifier(input_string& in, char open, char close,
                                                            const std::string& terminators,
                                                            bool flag) {
  const auto [there, first] = in.peek();
  if (!there)
    return {false, {}};
  if (first == ENQ) {
    auto token = readLength(in);
    return {token.has_value(), token ? std::move(*token) : std::string()};
  }
  std::string token =
      open == ENQ ? readDetected(in, first, terminators) : readDelimited(in, open, close);
  return {true, flag ? decodeEscaped(token) : std::move(token)};
}

} // namespace Pelko
