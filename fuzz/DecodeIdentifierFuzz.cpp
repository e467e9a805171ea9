#include "Rules.hpp"

#include <cstdint>

// Reads tokens, lines and blanks from an arbitrary text until it ends.
//
// Input: the opening delimiter, the closing delimiter, a byte of choices, and the text.
//   choices & 3   terminators: the usual ones, none, a semicolon, a NUL with high bytes
//   choices & 4   decode escapes
//   choices & 8   skip white space between reads
//   choices & 16  every other read takes the rest of a line, and what ends it
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace rules;
  if (size < 3)
    return 0;
  const std::string terminatorSets[] = {StreamString::non_identifier_characters, "", ";",
                                        "\0\xff\x80"s};
  const unsigned choices = data[2];
  Cursor in(std::string(data + 3, data + size));
  const auto read = [&](Kind kind) {
    check(reads(in, kind, static_cast<char>(data[0]), static_cast<char>(data[1]),
                terminatorSets[choices & 3], (choices & 4) != 0));
  };
  for (bool line = false; !in.atEnd(); line = !line) {
    if (choices & 8)
      read(Kind::Blanks);
    if (line && (choices & 16)) {
      read(Kind::Line);
      read(Kind::Byte);
    } else
      read(Kind::Token);
  }
  return 0;
}
