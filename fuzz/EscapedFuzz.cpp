#include "Check.hpp"
#include "Rules.hpp"

#include <cstddef>
#include <cstdint>

// Escapes an arbitrary string, and takes it and what came of it for escaped ones.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using rules::StreamString;
  const std::string s(data, data + size), encoded = StreamString::encodeEscaped(s);
  CHECK(encoded == rules::escaped(s));
  CHECK(StreamString::decodeEscaped(s) == rules::unescaped(s));
  CHECK(StreamString::decodeEscaped(encoded) == rules::unescaped(encoded));
  return 0;
}
