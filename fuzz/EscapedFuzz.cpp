#include "Rules.hpp"

#include <cstdint>

// Escapes an arbitrary string, and takes it and what came of it for escaped ones.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace rules;
  const std::string s(data, data + size), encoded = StreamString::encodeEscaped(s);
  check(encoded == escaped(s));
  check(StreamString::decodeEscaped(s) == unescaped(s));
  check(StreamString::decodeEscaped(encoded) == unescaped(encoded));
  return 0;
}
