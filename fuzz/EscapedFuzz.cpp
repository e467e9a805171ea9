#include "Check.hpp"

#include <tolvane/StreamString.hpp>

#include <cstddef>
#include <cstdint>
#include <string>

// Escapes an arbitrary string and compares with a plain rendering of the rules, back and forth.

namespace {

using Pelko::StreamString;

std::string escaped(const std::string& s) {
  std::string result;
  for (const char c : s) {
    switch (c) {
    case '=':
    case '>':
    case '(':
    case ')':
      result += '_';
      break;
    case '-':
      result += "\x10_";
      break;
    case ' ':
      result += "\x10\x10";
      break;
    case ',':
      result += "\x10\x11";
      break;
    case '.':
      result += "\x10\x12";
      break;
    default:
      result += c;
    }
  }
  return result;
}

std::string unescaped(std::string s) {
  const char* const pairs[][2] = {
      {"\x10_", "-"}, {"\x10\x10", " "}, {"\x10\x11", ","}, {"\x10\x12", "."}};
  for (const auto& [from, to] : pairs)
    for (std::size_t hit = s.find(from); hit != std::string::npos; hit = s.find(from, hit + 1))
      s.replace(hit, 2, to);
  return s;
}

bool comesBack(const std::string& s) {
  return s.find_first_of("=>()\x10") == std::string::npos && s.find(" _") == std::string::npos;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string s(data, data + size);
  const std::string encoded = StreamString::encodeEscaped(s);
  CHECK(encoded == escaped(s));
  CHECK(encoded.find_first_of("=>-() ,.") == std::string::npos);
  CHECK(StreamString::encodeEscaped(encoded) == encoded);
  const std::string decoded = StreamString::decodeEscaped(s);
  CHECK(decoded == unescaped(s));
  const std::string back = StreamString::decodeEscaped(encoded);
  CHECK(back == unescaped(encoded));
  CHECK(back.size() <= s.size());
  CHECK(!comesBack(s) || back == s);
  return 0;
}
