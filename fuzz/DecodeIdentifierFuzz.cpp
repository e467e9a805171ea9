#include "Check.hpp"

#include <tolvane/StreamString.hpp>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// Reads tokens, lines and blanks from an arbitrary text until it ends.
//
// Input: the opening delimiter, the closing delimiter, a byte of choices, and the text.
//   choices & 3   terminators: the usual ones, none, a semicolon, a NUL with high bytes
//   choices & 4   decode escapes
//   choices & 8   skip white space between reads
//   choices & 16  every other read takes the rest of a line

namespace {

using Pelko::input_string;
using Pelko::StreamString;
using namespace std::string_literals;

class Counting : public input_string {
public:
  using input_string::input_string;

  void checkBooks() const {
    CHECK(position() <= text().size());
    const std::string_view read = std::string_view(text()).substr(0, position());
    CHECK(line() == static_cast<std::uint32_t>(std::count(read.begin(), read.end(), '\n')));
    CHECK(line() == lineFeeds_);
    CHECK(column() == read.size() - (read.rfind('\n') + 1));
  }

  void checkViews() const {
    const auto before = position();
    const std::string_view rest = std::string_view(text()).substr(before);
    const std::string peeked = peekline(), current = currentline(), previous = previousline();
    CHECK(position() == before);
    CHECK(rest.starts_with(peeked) && peeked.find_first_of("\n\0"s) == std::string::npos);
    CHECK(peeked.size() == rest.size() || "\n\0"s.find(rest[peeked.size()]) != std::string::npos);
    CHECK(current.find('\n') == std::string::npos && current.substr(column()).starts_with(peeked));
    CHECK(previous.find('\n') == std::string::npos);
    CHECK(line() > 0 || previous.empty());
    const std::string both = line() > 0 ? previous + '\n' + current : current;
    CHECK(std::string_view(text()).substr(before - column()).starts_with(current));
    CHECK(text().find(both) != std::string::npos);
  }

private:
  void newline(unsigned long long position) override {
    CHECK(position == this->position() && text()[position - 1] == '\n');
    ++lineFeeds_;
  }

  std::uint32_t lineFeeds_ = 0;
};

void readToken(Counting& in, char open, char close, const std::string& terminators, bool flag) {
  const auto before = in.position();
  const bool ended = in.atEnd();
  const char first = in.peek().second;
  const auto [found, token] = StreamString::decodeIdentifier(in, open, close, terminators, flag);
  const auto consumed = in.position() - before;
  CHECK(ended == (consumed == 0));
  CHECK(found || (token.empty() && in.atEnd()));
  CHECK(found || ended || first == StreamString::ENQ);
  CHECK(token.size() <= consumed);
  if (!found || flag)
    return;
  // What is returned stands in the text: at once, after a delimiter or after a length.
  const std::string_view text = std::string_view(in.text()).substr(before, consumed);
  if (first == StreamString::ENQ) {
    CHECK(!in.atEnd() && text.substr(5) == token);
  } else if (open != StreamString::ENQ || "[{(\2\""s.find(first) != std::string::npos) {
    CHECK(text.substr(1).starts_with(token) && text.size() - token.size() <= 2);
  } else {
    CHECK(text.starts_with(token) && text.size() == std::max<std::size_t>(token.size(), 1));
    CHECK(token.find_first_of(terminators + '\0') == std::string::npos);
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 3)
    return 0;
  const std::string terminatorSets[] = {StreamString::non_identifier_characters, "", ";",
                                        "\0\xff\x80"s};
  const unsigned choices = data[2];
  const std::string& terminators = terminatorSets[choices & 3];
  Counting in(std::string(data + 3, data + size));
  for (bool line = false; !in.atEnd(); line = !line) {
    const auto before = in.position();
    if (choices & 8) {
      CHECK(in.skipspace() == in.position() - before);
      CHECK(in.atEnd() || !std::isspace(static_cast<unsigned char>(in.peek().second)));
    }
    if (line && (choices & 16)) {
      const std::string read = in.getline();
      CHECK(read.find_first_of("\r\n") == std::string::npos);
      CHECK(read.size() <= in.position() - before);
      CHECK(in.atEnd() || in.peek().second == '\n');
      in.get();
    } else
      readToken(in, static_cast<char>(data[0]), static_cast<char>(data[1]), terminators,
                (choices & 4) != 0);
    in.checkBooks();
    in.checkViews();
  }
  CHECK(!StreamString::decodeIdentifier(in, StreamString::ENQ, 0, terminators, false).first);
  return 0;
}
