#include <tolvane/StreamString.hpp>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <tuple>
#include <utility>

namespace Pelko {

const char StreamString::non_identifier_characters[14] = "=#<>@?, !\r\t\n\"";

namespace {

// Eight bytes at once; the first of them in memory is the lowest of the word.
static_assert(std::endian::native == std::endian::little);
constexpr std::uint64_t onesInBytes = 0x0101010101010101;
constexpr std::uint64_t topBits = onesInBytes * 0x80;

std::uint64_t eightBytes(const char* at) {
  std::uint64_t bytes = 0;
  std::memcpy(&bytes, at, sizeof bytes);
  return bytes;
}

/// How many of eight bytes come before the first with its top bit set.
std::ptrdiff_t bytesBefore(std::uint64_t marks) {
  return std::countr_zero(marks & topBits) / 8;
}

/// How many of eight bytes come before the first that is not above `limit`, which is below 128.
std::ptrdiff_t bytesAbove(unsigned char limit, std::uint64_t bytes) {
  const std::uint64_t above = (bytes & ~topBits) + (127U - limit) * onesInBytes; // without carry
  return bytesBefore(~(above | bytes));
}

/// A set of bytes that is asked about many times. It also knows what a reader cannot just run over,
/// and what a writer cannot put between quotes.
class ByteSet {
public:
  explicit constexpr ByteSet(std::string_view bytes) {
    for (const char c : bytes) {
      of(c) |= In | Stops;
      highestStop_ = std::max(highestStop_, static_cast<unsigned char>(c));
    }
    for (const char c : {'\0', '\n'})
      of(c) |= Stops;
    for (const char c : {'\t', '\n', '\r', '"'})
      of(c) |= NotQuoted;
  }
  constexpr bool has(char c) const { return (of(c) & In) != 0; }
  /// The first byte of a text that is in the set, a line feed or a NUL; the NUL behind the text, if
  /// there is no other.
  const char* firstStop(const char* at, const char* end) const {
    while (highestStop_ < 128 && end - at >= 8) {
      const std::ptrdiff_t above = bytesAbove(highestStop_, eightBytes(at));
      at += above;
      if (above != 8) {
        if ((of(*at) & Stops) != 0)
          return at;
        ++at;
      }
    }
    while ((of(*at) & Stops) == 0)
      ++at;
    return at;
  }

  /// What the bytes of a text are.
  class Sum {
  public:
    Sum(const ByteSet& set, const std::string& text) {
      for (const char c : text) // without a branch
        flags_ |= set.of(c);
    }
    bool anyIn() const { return (flags_ & In) != 0; }
    bool anyNotQuoted() const { return (flags_ & NotQuoted) != 0; }

  private:
    unsigned flags_ = 0;
  };

private:
  static constexpr unsigned char In = 1, Stops = 2, NotQuoted = 4;

  constexpr unsigned char& of(char c) { return flags_[static_cast<unsigned char>(c)]; }
  constexpr unsigned char of(char c) const { return flags_[static_cast<unsigned char>(c)]; }

  std::array<unsigned char, 256> flags_{};
  unsigned char highestStop_ = '\n';
};

constexpr std::string_view usualBytes = "=#<>@?, !\r\t\n\"";
constexpr ByteSet usualSet(usualBytes);

/// The set of a caller's bytes, which is there already for the usual ones.
class GivenSet {
public:
  explicit GivenSet(const std::string& bytes)
      : set_(bytes == usualBytes ? usualSet : own_.emplace(bytes)) {}
  const ByteSet& operator*() const { return set_; }

private:
  std::optional<ByteSet> own_;
  const ByteSet& set_;
};

/// What encodeEscaped() writes for a byte, after a DLE or by itself.
struct Escape {
  bool withDle = false;
  char byte = '\0';
};

// The substitutions can be made in one pass, because none of them finds what another one wrote.
constexpr auto escapes = [] {
  std::array<Escape, 256> table;
  for (std::size_t byte = 0; byte < table.size(); ++byte)
    table[byte].byte = static_cast<char>(byte);
  for (const char lost : {'=', '>', '(', ')'})
    table[static_cast<unsigned char>(lost)].byte = '_';
  table['-'] = {true, '_'};
  table[' '] = {true, StreamString::DLE};
  table[','] = {true, '\x11'};
  table['.'] = {true, '\x12'};
  return table;
}();

const Escape& escapeOf(char c) {
  return escapes[static_cast<unsigned char>(c)];
}

/// What a byte after a DLE means; NUL for those that mean nothing there.
constexpr auto meantAfterDle = [] {
  std::array<char, 256> table{};
  for (std::size_t byte = 0; byte < table.size(); ++byte)
    if (escapes[byte].withDle)
      table[static_cast<unsigned char>(escapes[byte].byte)] = static_cast<char>(byte);
  return table;
}();

/// How many of eight bytes come before the first DLE.
std::ptrdiff_t bytesBeforeDle(std::uint64_t bytes) {
  const std::uint64_t differs = bytes ^ onesInBytes * static_cast<unsigned char>(StreamString::DLE);
  // The first mark is right, whatever those behind it borrow.
  return bytesBefore((differs - onesInBytes) & ~differs);
}

} // namespace

namespace detail {

/// Reads a token in runs: what does not end it and is no line feed, whose hook may do anything to
/// the text's cursor, is taken over in one step.
class TokenReader {
public:
  /// Runs end at each byte of the set `stops`.
  TokenReader(input_string& in, const ByteSet& stops) : in_(in), stops_(stops) {}

  /// Reads up to the delimiter `close` that is not in pairs of delimiters.
  std::pair<bool, std::string> delimited(char open, char close) {
    in_.advance();
    auto answer = firstRun();
    if (next() == close && !in_.atEnd()) [[likely]]
      in_.advance();
    else
      readNested(answer.second, open, close);
    return answer;
  }

  /// Reads up to a byte of the set, which is taken only where there is nothing before it.
  std::pair<bool, std::string> bare() {
    auto answer = firstRun();
    if (!stops_.has(next()) || answer.second.empty()) [[unlikely]]
      readLines(answer.second);
    return answer;
  }

private:
  /// The rest of a delimited token.
  [[gnu::noinline]] void readNested(std::string& token, char open, char close) {
    for (std::uint64_t depth = 0; !in_.atEnd(); token.append(takeRun())) {
      const char c = in_.advance();
      if (depth == 0 && c == close)
        break;
      token += c;
      if (c == open)
        ++depth;
      else if (c == close)
        --depth;
    }
  }

  /// The rest of a bare token; line feeds may belong to it.
  [[gnu::noinline]] void readLines(std::string& token) {
    for (; !in_.atEnd(); token.append(takeRun())) {
      const char c = next();
      if (c == '\0' || stops_.has(c)) {
        if (token.empty())
          in_.advance();
        break;
      }
      token += c;
      in_.advance();
    }
  }

  /// The next byte; a NUL at the end.
  char next() const { return in_.text_[static_cast<std::size_t>(in_.position_)]; }

  /// Takes what comes before the next byte of the set, line feed or NUL; a NUL follows the text.
  std::string_view takeRun() {
    const char* const begin = in_.text_.data() + in_.position_;
    const char* const end = stops_.firstStop(begin, in_.text_.data() + in_.text_.size());
    in_.position_ += static_cast<std::size_t>(end - begin);
    in_.column_ += static_cast<std::uint32_t>(end - begin);
    return {begin, end};
  }

  /// An answer that begins with the first run, which is all of most tokens.
  std::pair<bool, std::string> firstRun() {
    return {std::piecewise_construct, std::forward_as_tuple(true),
            std::forward_as_tuple(takeRun())};
  }

  input_string& in_;
  const ByteSet& stops_;
};

} // namespace detail

namespace {

// A byte counts only when another one follows it: the token that ends with the text is not found.
[[gnu::noinline]] std::pair<bool, std::string> readLength(input_string& in) {
  in.get();
  std::uint32_t length = 0;
  for (unsigned shift = 0; shift < 32; shift += 8) {
    const char c = in.get().second;
    if (in.atEnd())
      return {false, {}};
    length |= static_cast<std::uint32_t>(static_cast<unsigned char>(c)) << shift;
  }
  std::string token;
  for (; length != 0; --length) {
    const char c = in.get().second;
    if (in.atEnd())
      return {false, {}};
    token += c;
  }
  return {true, std::move(token)};
}

// The rarer forms are apart: what they need on the stack is not set up for the others.
[[gnu::noinline]] std::pair<bool, std::string> readDelimited(input_string& in, char open,
                                                             char close) {
  const char delimiters[] = {open, close};
  return detail::TokenReader(in, ByteSet(std::string_view(delimiters, 2))).delimited(open, close);
}

[[gnu::noinline]] std::pair<bool, std::string> readBare(input_string& in,
                                                        const std::string& terminators) {
  return detail::TokenReader(in, ByteSet(terminators)).bare();
}

/// Reads a token whose first byte tells its delimiters.
std::pair<bool, std::string> readDetected(input_string& in, char first,
                                          const std::string& terminators) {
  constexpr char stxEtx[] = {StreamString::STX, StreamString::ETX};
  static constexpr ByteSet frames(std::string_view(stxEtx, 2)), quotes("\"");
  switch (first) {
  case '[':
    return readDelimited(in, '[', ']');
  case '{':
    return readDelimited(in, '{', '}');
  case '(':
    return readDelimited(in, '(', ')');
  case StreamString::STX:
    return detail::TokenReader(in, frames).delimited(StreamString::STX, StreamString::ETX);
  case '"':
    return detail::TokenReader(in, quotes).delimited('"', '"');
  default:
    return terminators == usualBytes ? detail::TokenReader(in, usualSet).bare()
                                     : readBare(in, terminators);
  }
}

std::pair<bool, std::string> readToken(input_string& in, char open, char close,
                                       const std::string& terminators) {
  if (in.atEnd())
    return {false, {}};
  const char first = in.peek().second;
  if (first == StreamString::ENQ)
    return readLength(in);
  return open == StreamString::ENQ ? readDetected(in, first, terminators)
                                   : readDelimited(in, open, close);
}

// A token whose length is given is taken as it is.
[[gnu::noinline]] std::pair<bool, std::string> readEscaped(input_string& in, char open, char close,
                                                           const std::string& terminators) {
  const bool isLength = in.peek() == std::pair(true, StreamString::ENQ);
  auto answer = readToken(in, open, close, terminators);
  if (!isLength)
    answer.second = StreamString::decodeEscaped(answer.second);
  return answer;
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
  const ByteSet::Sum bytes(*GivenSet(specials), s);
  if (!bytes.anyIn())
    return s;
  std::string token;
  token.reserve(s.size() + 2);
  token += bytes.anyNotQuoted() ? STX : '"';
  token += s;
  return token += bytes.anyNotQuoted() ? ETX : '"';
}

std::string StreamString::encodeEscaped(const std::string& s) {
  const char* const end = s.data() + s.size();
  const char* at = s.data();
  while (end - at >= 8 && bytesAbove('?', eightBytes(at)) == 8) // no escape changes any of them
    at += 8;
  while (at != end && escapeOf(*at).byte == *at)
    ++at;
  if (at == end)
    return s;
  // By blocks, so that the size of a short result is known without a pass of its own.
  std::array<char, 512> block;
  constexpr std::ptrdiff_t most = block.size() / 2;
  std::string result;
  if (end - at > most)
    result.reserve(s.size() + static_cast<std::size_t>(std::count_if(
                                  at, end, [](char c) { return escapeOf(c).withDle; })));
  for (auto unchanged = static_cast<std::size_t>(at - s.data());; unchanged = 0) {
    char* out = block.data();
    for (const char* const stop = at + std::min(end - at, most); at != stop; ++at) {
      const Escape& escape = escapeOf(*at);
      *out = DLE;
      out += escape.withDle ? 1U : 0U;
      *out++ = escape.byte;
    }
    const auto size = static_cast<std::size_t>(out - block.data());
    result.reserve(result.size() + unchanged + size);
    result.append(s, 0, unchanged).append(block.data(), size);
    if (at == end)
      return result;
  }
}

// The reverse substitutions in one pass. They differ from a left-to-right reading of pairs only
// where several DLE stand side by side: a "_" takes the last one of them before they pair up.
std::string StreamString::decodeEscaped(const std::string& s) {
  const std::size_t first = s.find(DLE);
  if (first == std::string::npos)
    return s;
  std::string result = s;
  char* out = result.data() + first;
  const char* const end = s.data() + s.size();
  for (const char* at = s.data() + first; at != end;) {
    if (end - at >= 8) {
      // The place to write is never behind the one to read, so there is room for eight bytes.
      const std::uint64_t bytes = eightBytes(at);
      std::memcpy(out, &bytes, sizeof bytes);
      const std::ptrdiff_t before = bytesBeforeDle(bytes);
      at += before;
      out += before;
      if (before == 8)
        continue;
    } else if (*at != DLE) {
      *out++ = *at++;
      continue;
    }
    const char meant = meantAfterDle[static_cast<unsigned char>(at[1])];
    const bool isPair = meant != '\0' && !(at[1] == DLE && at[2] == '_');
    *out++ = isPair ? meant : DLE;
    at += isPair ? 2 : 1;
  }
  result.resize(static_cast<std::size_t>(out - result.data()));
  return result;
}

std::pair<bool, std::string> StreamString::decodeIdentifier(input_string& in, char open, char close,
                                                            const std::string& terminators,
                                                            bool flag) {
  return flag ? readEscaped(in, open, close, terminators) : readToken(in, open, close, terminators);
}

} // namespace Pelko
