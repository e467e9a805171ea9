#include <tolvane/StreamString.hpp>

#include <cstdlib>
#include <gtest/gtest.h>
#include <iostream>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Pelko::input_string;
using Pelko::StreamString;
using namespace std::string_literals;

constexpr char ENQ = StreamString::ENQ;
const std::string specials = StreamString::non_identifier_characters;

using Read = std::pair<bool, std::string>;

// A cursor that remembers its line feeds, and can check its own books against the text.
class Recorder : public input_string {
public:
  using input_string::input_string;

  std::vector<unsigned long long> lineFeeds;

  void expectBooks() const {
    ASSERT_LE(position(), text().size());
    const std::string_view read = std::string_view(text()).substr(0, position());
    std::vector<unsigned long long> expected;
    for (std::size_t i = 0; i < read.size(); ++i)
      if (read[i] == '\n')
        expected.push_back(i + 1);
    EXPECT_EQ(lineFeeds, expected);
    EXPECT_EQ(line(), expected.size());
    EXPECT_EQ(column(), read.size() - (expected.empty() ? 0 : expected.back()));
  }

private:
  void newline(unsigned long long position) override { lineFeeds.push_back(position); }
};

Read read(input_string& in, bool flag = false, char open = ENQ, char close = ENQ) {
  return StreamString::decodeIdentifier(in, open, close, specials, flag);
}

std::string length(std::uint32_t n) {
  std::string field(1, ENQ);
  for (unsigned shift = 0; shift < 32; shift += 8)
    field += static_cast<char>(static_cast<unsigned char>(n >> shift));
  return field;
}

// Whether every closing byte closes an opening one, and every opening one is closed.
bool nests(const std::string& s, char open, char close) {
  int depth = 0;
  for (const char c : s) {
    if (c == close && --depth < 0)
      return false;
    if (c == open)
      ++depth;
  }
  return depth == 0;
}

bool isBare(const std::string& s, const std::string& terminators) {
  return !s.empty() && "\"\x02\x05[{("s.find(s[0]) == std::string::npos &&
         s.find_first_of(terminators + '\0') == std::string::npos;
}

unsigned seed() {
  const char* const chosen = std::getenv("TOLVANE_TEST_SEED");
  const unsigned value =
      chosen ? static_cast<unsigned>(std::strtoul(chosen, nullptr, 10)) : std::random_device{}();
  std::cout << "TOLVANE_TEST_SEED=" << value << '\n';
  return value;
}

// Strings over all bytes in which those that mean something to the codec are frequent.
class Strings {
public:
  explicit Strings(unsigned seed) : engine_(seed) {}

  unsigned below(unsigned n) { return std::uniform_int_distribution<unsigned>(0, n - 1)(engine_); }
  char byte() {
    static const std::string meant = specials + "\x02\x03\x05\x10\x11\x12_-.()[]{}ab\0"s;
    return below(4) == 0 ? static_cast<char>(below(256))
                         : meant[below(static_cast<unsigned>(meant.size()))];
  }
  std::string string() {
    std::string s(below(8) == 0 ? below(400) : below(12), 0);
    for (char& c : s)
      c = byte();
    return s;
  }

private:
  std::mt19937 engine_;
};

TEST(StreamString, SpecialCharacters) {
  static_assert(sizeof(StreamString::non_identifier_characters) == 14);
  EXPECT_EQ(specials, "=#<>@?, !\r\t\n\"");
}

TEST(StreamString, Encoders) {
  struct Case {
    std::string got;
    std::string expected;
  };
  const std::string bytes300(300, 'x');
  const Case cases[] = {
      {StreamString::encodeLength(""), "\5\0\0\0\0"s},
      {StreamString::encodeLength(bytes300), "\5\x2c\1\0\0"s + bytes300},
      {StreamString::encodeLength("a\0\n"s), "\5\3\0\0\0a\0\n"s},
      {StreamString::encodeLength(std::string(0x12345, '\n')),
       "\5\x45\x23\1\0"s + std::string(0x12345, '\n')},
      {StreamString::encodeCtrlChar(""), "\2\3"},
      {StreamString::encodeCtrlChar("a\3\0b"s), "\2a\3\0b\3"s},
      {StreamString::encodeIdentifier("", specials), "\"\""},
      {StreamString::encodeIdentifier("", ""), "\"\""},
      {StreamString::encodeIdentifier("abc", specials), "abc"},
      {StreamString::encodeIdentifier("a \n\"b", ""), "a \n\"b"},
      {StreamString::encodeIdentifier("a b", specials), "\"a b\""},
      {StreamString::encodeIdentifier("a b", "b"), "\"a b\""},
      {StreamString::encodeIdentifier("a b", "c"), "a b"},
      {StreamString::encodeIdentifier("a\0b"s, "\0"s), "\"a\0b\""s},
      {StreamString::encodeIdentifier("a\tb", specials), "\2a\tb\3"},
      {StreamString::encodeIdentifier("a\nb", specials), "\2a\nb\3"},
      {StreamString::encodeIdentifier("a\rb", specials), "\2a\rb\3"},
      {StreamString::encodeIdentifier("\"", specials), "\2\"\3"},
      // Framed for its tab, although only the "b" was special.
      {StreamString::encodeIdentifier("a\tb", "b"), "\2a\tb\3"},
      {StreamString::encodeIdentifier("a\tb", "c"), "a\tb"},
  };
  for (const Case& c : cases)
    EXPECT_EQ(c.got, c.expected);
}

TEST(StreamString, Escapes) {
  struct Case {
    std::string plain;
    std::string escaped;
    std::string back;
  };
  const Case cases[] = {
      {"", "", ""},
      {"a-b c,d.e", "a\x10_b\x10\x10"s + "c\x10\x11"s + "d\x10\x12"s + "e", "a-b c,d.e"},
      {"x\0y"s, "x\0y"s, "x\0y"s},
      {"--", "\x10_\x10_", "--"},
      {" - , .", "\x10\x10\x10_\x10\x10\x10\x11\x10\x10\x10\x12", " - , ."},
      // Lost on purpose.
      {"x=y", "x_y", "x_y"},
      {">(=)", "____", "____"},
      // A DLE of the string itself pairs with what follows it.
      {"\x10_", "\x10_", "-"},
      {"\x10=", "\x10_", "-"},
      {"\x10-", "\x10\x10_", "\x10-"},
      {"\x10 ", "\x10\x10\x10", " \x10"},
      {"\x10\x11", "\x10\x11", ","},
      {"\x10", "\x10", "\x10"},
      // "-" is put back before the blank and takes the blank's second DLE.
      {" _", "\x10\x10_", "\x10-"},
      {" (", "\x10\x10_", "\x10-"},
      {"  _", "\x10\x10\x10\x10_", " \x10-"},
      // Bytes 17 and 18 are found after the blanks.
      {" \x11", "\x10\x10\x11", " \x11"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.plain));
    EXPECT_EQ(StreamString::encodeEscaped(c.plain), c.escaped);
    EXPECT_EQ(StreamString::decodeEscaped(c.escaped), c.back);
  }
}

// What a string of those bytes becomes must be what the substitutions make of it one after the
// other, each over the whole of what the one before it left.
TEST(StreamString, DecodesAsSubstitutionsInOrder) {
  const std::pair<std::string, std::string> substitutions[] = {
      {"\x10_", "-"}, {"\x10\x10", " "}, {"\x10\x11", ","}, {"\x10\x12", "."}};
  const std::string bytes = "\x10_\x11\x12-";
  for (unsigned number = 0; number < 5u * 5 * 5 * 5 * 5 * 5 * 5; ++number) {
    std::string s;
    for (unsigned rest = number; rest != 0; rest /= 5)
      s += bytes[rest % 5];
    std::string expected = s;
    for (const auto& [from, to] : substitutions)
      for (auto at = expected.find(from); at != s.npos; at = expected.find(from, at + 1))
        expected.replace(at, 2, to);
    ASSERT_EQ(StreamString::decodeEscaped(s), expected) << testing::PrintToString(s);
  }
}

TEST(StreamString, EscapesComeBack) {
  Strings strings(seed());
  for (int round = 0; round < 20000; ++round) {
    std::string s;
    for (const char c : strings.string())
      if ("=>()\x10"s.find(c) == std::string::npos && !(c == '_' && s.ends_with(' ')))
        s += c;
    const std::string escaped = StreamString::encodeEscaped(s);
    ASSERT_EQ(escaped.find_first_of("=>-() ,."), std::string::npos);
    ASSERT_EQ(StreamString::decodeEscaped(escaped), s) << testing::PrintToString(s);
  }
}

struct TokenCase {
  std::string text;
  char open;
  char close;
  bool flag;
  Read expected;
  std::size_t position;
};

TEST(StreamString, Tokens) {
  const std::string dash = "\x10_";
  const TokenCase cases[] = {
      {"", ENQ, ENQ, false, {false, ""}, 0},
      {"", '<', '>', false, {false, ""}, 0},
      // Bare.
      {"abc", ENQ, ENQ, false, {true, "abc"}, 3},
      {"abc=d", ENQ, ENQ, false, {true, "abc"}, 3},
      {"a\0b"s, ENQ, ENQ, false, {true, "a"}, 1},
      {"\0b"s, ENQ, ENQ, false, {true, ""}, 1},
      {"=b", ENQ, ENQ, false, {true, ""}, 1},
      {"\nb", ENQ, ENQ, false, {true, ""}, 1},
      {"a[b]\3;", ENQ, ENQ, false, {true, "a[b]\3;"}, 6},
      {"]", ENQ, ENQ, false, {true, "]"}, 1},
      {"a" + dash + " ", ENQ, ENQ, true, {true, "a-"}, 3},
      {"a" + dash + " ", ENQ, ENQ, false, {true, "a" + dash}, 3},
      // Quoted: nothing nests, nothing escapes the quote.
      {"\"\"x", ENQ, ENQ, false, {true, ""}, 2},
      {"\"a=\n\0[\"x"s, ENQ, ENQ, false, {true, "a=\n\0["s}, 7},
      {"\"a\\\"b", ENQ, ENQ, false, {true, "a\\"}, 4},
      {"\"ab", ENQ, ENQ, false, {true, "ab"}, 3},
      {"\"", ENQ, ENQ, false, {true, ""}, 1},
      {"\"" + dash + "\"", ENQ, ENQ, true, {true, "-"}, 4},
      // Framed.
      {"\2\3x", ENQ, ENQ, false, {true, ""}, 2},
      {"\2a\t\"\n\0b\3x"s, ENQ, ENQ, false, {true, "a\t\"\n\0b"s}, 8},
      {"\2a\2b\3c\3\3", ENQ, ENQ, false, {true, "a\2b\3c"}, 7},
      {"\2a\2b\3c", ENQ, ENQ, false, {true, "a\2b\3c"}, 6},
      {"\2", ENQ, ENQ, false, {true, ""}, 1},
      {"\2" + dash + "\3", ENQ, ENQ, true, {true, "-"}, 4},
      // Delimited, by the bracket that is found.
      {"[]", ENQ, ENQ, false, {true, ""}, 2},
      {"[a[b]c]d", ENQ, ENQ, false, {true, "a[b]c"}, 7},
      {"{a{{}}}}", ENQ, ENQ, false, {true, "a{{}}"}, 7},
      {"(a])b)", ENQ, ENQ, false, {true, "a]"}, 4},
      {"[a\0=\n\"]"s, ENQ, ENQ, false, {true, "a\0=\n\""s}, 7},
      {"[[a]", ENQ, ENQ, false, {true, "[a]"}, 4},
      {"(", ENQ, ENQ, false, {true, ""}, 1},
      {"(" + dash + ")", ENQ, ENQ, true, {true, "-"}, 4},
      // Delimited as the caller says; the first byte goes, whatever it is.
      {"<a<b>>c", '<', '>', false, {true, "a<b>"}, 6},
      {"xa<b>>c", '<', '>', false, {true, "a<b>"}, 6},
      {"\"a>\"", '<', '>', false, {true, "a"}, 3},
      {">a>", '<', '>', false, {true, "a"}, 3},
      {"\na>", '<', '>', false, {true, "a"}, 3},
      {"\2a\3>", '<', '>', false, {true, "a\3"}, 4},
      {"|a|b|", '|', '|', false, {true, "a"}, 3},
      {"<a", '<', '>', false, {true, "a"}, 2},
      {"<" + dash + ">", '<', '>', true, {true, "-"}, 4},
      {"\0a\0"s, '\0', '\0', false, {true, "a"}, 3},
      // Length: the same whatever the caller says, and never decoded.
      {length(3) + "a\0\nx"s, ENQ, ENQ, false, {true, "a\0\n"s}, 8},
      {length(3) + "abcx", '<', '>', false, {true, "abc"}, 8},
      {length(2) + dash + "x", ENQ, ENQ, true, {true, dash}, 7},
      {length(0) + "x", ENQ, ENQ, false, {true, ""}, 5},
      {length(10) + "0123456789\n", ENQ, ENQ, false, {true, "0123456789"}, 15},
      {length(200) + std::string(201, 'y'), ENQ, ENQ, false, {true, std::string(200, 'y')}, 205},
      {length(0), ENQ, ENQ, false, {false, ""}, 5},
      {length(3) + "abc", ENQ, ENQ, false, {false, ""}, 8},
      {length(3) + "ab", ENQ, ENQ, false, {false, ""}, 7},
      {"\5", ENQ, ENQ, false, {false, ""}, 1},
      {"\5\0\0\0"s, '<', '>', false, {false, ""}, 4},
      {length(0xffffffff) + "0123456789", ENQ, ENQ, false, {false, ""}, 15},
      {length(0x80000000) + "0123456789", '<', '>', true, {false, ""}, 15},
  };
  for (const TokenCase& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.text));
    Recorder in(c.text);
    EXPECT_EQ(StreamString::decodeIdentifier(in, c.open, c.close, specials, c.flag), c.expected);
    EXPECT_EQ(in.position(), c.position);
    in.expectBooks();
  }
}

TEST(StreamString, BareTokensWithOtherTerminators) {
  struct Case {
    std::string text;
    std::string terminators;
    Read first;
    Read second;
  };
  const Case cases[] = {
      {"a b;c", ";", {true, "a b"}, {true, ""}},
      {"a b;c", "", {true, "a b;c"}, {false, ""}},
      {"a\0b"s, "", {true, "a"}, {true, ""}},
      {"a\xff\x80", "\xff", {true, "a"}, {true, ""}},
  };
  for (const Case& c : cases) {
    Recorder in(c.text);
    EXPECT_EQ(StreamString::decodeIdentifier(in, ENQ, 0, c.terminators, false), c.first);
    EXPECT_EQ(StreamString::decodeIdentifier(in, ENQ, 0, c.terminators, false), c.second);
  }
}

TEST(StreamString, LengthFieldCountsItsLineFeeds) {
  Recorder in(length(10) + "a\n\n3456789;");
  EXPECT_EQ(read(in), Read(true, "a\n\n3456789"));
  EXPECT_EQ(in.lineFeeds, (std::vector<unsigned long long>{2, 7, 8}));
  EXPECT_EQ(in.line(), 3u);
  EXPECT_EQ(in.column(), 7u);
}

TEST(StreamString, EveryFormLeavesWhatFollows) {
  input_string in("ab=\"c d\"=\2e\tf\3=[g]=" + StreamString::encodeLength("h=") + "=\"\"=");
  std::string all;
  for (Read token = read(in); token.first; token = read(in)) {
    all += token.second + '|';
    EXPECT_EQ(in.get(), std::make_pair(true, '='));
  }
  EXPECT_EQ(all, "ab|c d|e\tf|g|h=||");
}

TEST(StreamString, TokensComeBack) {
  Strings strings(seed());
  int bare = 0;
  for (int round = 0; round < 20000 && !HasFailure(); ++round) {
    const std::string s = strings.string();
    const std::string before(strings.below(3), '\n');
    const char after = strings.byte();
    const bool flag = strings.below(2) != 0;
    const auto expect = [&](const std::string& token, char following, bool escapes) {
      Recorder in(before + token + following);
      for (std::size_t i = 0; i < before.size(); ++i)
        in.get();
      EXPECT_EQ(read(in, flag), Read(true, escapes && flag ? StreamString::decodeEscaped(s) : s))
          << testing::PrintToString(token);
      EXPECT_EQ(in.position(), before.size() + token.size());
      in.expectBooks();
      EXPECT_EQ(in.get(), std::make_pair(true, following));
    };
    expect(StreamString::encodeLength(s), after, false);
    if (nests(s, StreamString::STX, StreamString::ETX))
      expect(StreamString::encodeCtrlChar(s), after, true);
    if (nests(s, '{', '}'))
      expect('{' + s + '}', after, true);
    if (s.find('"') == std::string::npos)
      expect('"' + s + '"', after, true);

    const std::string token = StreamString::encodeIdentifier(s, specials);
    if (token != s && (token[0] == '"' || nests(s, StreamString::STX, StreamString::ETX)))
      expect(token, after, true);
    if (token == s && isBare(s, specials)) {
      expect(token, specials[strings.below(13)], true);
      ++bare;
    }
  }
  EXPECT_GT(bare, 100);
}

// Every text, cut anywhere: the result is a prefix of the whole one or nothing, nothing beyond the
// cut is looked at, and a loop of reads ends.
TEST(StreamString, CutAnywhere) {
  const std::string content = "a\2\n\3(b)[c]{d}\x10_\r\xff";
  const std::string tokens[] = {
      StreamString::encodeLength(content),
      StreamString::encodeCtrlChar(content),
      StreamString::encodeIdentifier("quo ted", specials),
      "bare-token",
      "[" + content + "]",
      "{" + content + "}",
      "(" + content + ")",
  };
  for (const std::string& token : tokens) {
    input_string entire(token + ',');
    const std::string whole = read(entire).second;
    for (std::size_t cut = 1; cut <= token.size(); ++cut) {
      SCOPED_TRACE(testing::PrintToString(token.substr(0, cut)));
      // Fresh memory of exactly this size, so that a sanitizer sees a step beyond it.
      Recorder in(token.substr(0, cut));
      const Read got = read(in);
      EXPECT_EQ(got.first, token[0] != ENQ);
      EXPECT_TRUE(whole.starts_with(got.second));
      EXPECT_EQ(got.second.empty(), token[0] == ENQ || (cut == 1 && token != tokens[3]));
      EXPECT_EQ(in.position(), cut);
      in.expectBooks();
      EXPECT_EQ(read(in), Read(false, ""));
    }
  }
}

TEST(StreamString, LoopOfReadsEnds) {
  Strings strings(seed());
  for (int round = 0; round < 5000 && !HasFailure(); ++round) {
    Recorder in(strings.string());
    const bool detect = strings.below(3) != 0;
    const char open = detect ? ENQ : strings.byte();
    const char close = strings.byte();
    auto last = in.position();
    while (read(in, true, open, close).first) {
      ASSERT_GT(in.position(), last);
      last = in.position();
      in.expectBooks();
    }
    EXPECT_TRUE(in.atEnd());
    in.expectBooks();
  }
}

TEST(StreamString, DeepNestingNeedsNoStack) {
  const std::size_t depth = 1000000;
  input_string in(std::string(depth, '[') + std::string(depth - 1, ']'));
  const Read got = read(in);
  EXPECT_TRUE(got.first);
  EXPECT_EQ(got.second.size(), 2 * depth - 2);
}

TEST(StreamString, ExceptionOfTheHookLeavesTheLineFeedRead) {
  struct Throwing : input_string {
    using input_string::input_string;
    void newline(unsigned long long position) override {
      throw std::runtime_error(std::to_string(position));
    }
  };
  Throwing in("[a\nb]c");
  EXPECT_THROW(read(in), std::runtime_error);
  EXPECT_EQ(in.position(), 3u);
  EXPECT_EQ(in.line(), 1u);
  EXPECT_EQ(read(in), Read(true, "b]c"));
}

} // namespace
