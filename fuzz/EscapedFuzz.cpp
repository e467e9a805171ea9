#include "Check.hpp"

#include <tolvane/StreamString.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

// Escapes an arbitrary string and compares with a plain rendering of the rules, back and forth.

namespace {

using Pelko::StreamString;
using namespace std::string_literals;

const std::pair<std::string, std::string> pairs[] = {
    {"\x10_", "-"}, {"\x10\x10", " "}, {"\x10\x11", ","}, {"\x10\x12", "."}};

std::string escaped(const std::string& s) {
  std::string result;
  for (const char c : s) {
    std::string written(1, "=>()"s.find(c) == std::string::npos ? c : '_');
    for (const auto& [escape, plain] : pairs)
      if (plain[0] == c)
        written = escape;
    result += written;
  }
  return result;
}

std::string unescaped(std::string s) {
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
