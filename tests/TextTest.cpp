// The cursor over a text, the codec of tokens in it, and the tree of words.

#include <tolvane/InputString.hpp>
#include <tolvane/Interface.hpp>
#include <tolvane/Lexicon.hpp>
#include <tolvane/StreamString.hpp>

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <iostream>
#include <random>
#include <set>
#include <stdexcept>
#include <string_view>

namespace {

using Pelko::input_string;
using Pelko::StreamString;
using namespace Tolvane;
using namespace std::string_literals;

constexpr char ENQ = StreamString::ENQ;
const std::string specials = StreamString::non_identifier_characters;

using Read = std::pair<bool, std::string>;
using Positions = std::vector<unsigned long long>;

// A cursor that remembers its line feeds, and can check its own books against the text.
class Recorder : public input_string {
public:
  using input_string::input_string;

  void expectBooks() const {
    ASSERT_LE(position(), text().size());
    const std::string_view read = std::string_view(text()).substr(0, position());
    Positions expected;
    for (std::size_t i = 0; i < read.size(); ++i)
      if (read[i] == '\n')
        expected.push_back(i + 1);
    EXPECT_EQ(lineFeeds, expected);
    EXPECT_EQ(line(), expected.size());
    EXPECT_EQ(column(), read.size() - (expected.empty() ? 0 : expected.back()));
  }
  Positions lineFeeds;

private:
  void newline(unsigned long long position) override { lineFeeds.push_back(position); }
};

// Position, line and column.
std::string place(const input_string& in) {
  return std::to_string(in.position()) + " " + std::to_string(in.line()) + ":" +
         std::to_string(in.column());
}

// A line, and where it leaves the cursor.
std::string lineOf(input_string& in) {
  const std::string line = in.getline();
  return line + place(in);
}

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
  for (const char c : s)
    if ((c == close && --depth < 0) || ((depth += c == open), false))
      return false;
  return depth == 0;
}

// Strings over all bytes in which those that mean something to the codec are frequent.
class Strings {
public:
  Strings() {
    const char* const chosen = std::getenv("TOLVANE_TEST_SEED");
    const auto seed =
        chosen ? static_cast<unsigned>(std::strtoul(chosen, nullptr, 10)) : std::random_device{}();
    std::cout << "TOLVANE_TEST_SEED=" << seed << '\n';
    engine_.seed(seed);
  }
  unsigned below(unsigned n) { return std::uniform_int_distribution<unsigned>(0, n - 1)(engine_); }
  char byte() {
    static const std::string meant = specials + "\x02\x03\x05\x10\x11\x12_-.()[]{}ab\0"s;
    return below(4) == 0 ? static_cast<char>(below(256))
                         : meant[below(static_cast<unsigned>(meant.size()))];
  }
  std::string string() {
    std::string s(below(8) == 0 ? below(400) : below(12), 0);
    std::generate(s.begin(), s.end(), [this] { return byte(); });
    return s;
  }

private:
  std::mt19937 engine_;
};

TEST(StreamString, Encoders) {
  static_assert(sizeof(StreamString::non_identifier_characters) == 14);
  EXPECT_EQ(specials, "=#<>@?, !\r\t\n\"");
  const std::string bytes300(300, 'x'), many(0x12345, '\n');
  const std::pair<std::string, std::string> framed[] = {
      {StreamString::encodeLength(""), "\5\0\0\0\0"s},
      {StreamString::encodeLength(bytes300), "\5\x2c\1\0\0"s + bytes300},
      {StreamString::encodeLength("a\0\n"s), "\5\3\0\0\0a\0\n"s},
      {StreamString::encodeLength(many), "\5\x45\x23\1\0"s + many},
      {StreamString::encodeCtrlChar(""), "\2\3"},
      {StreamString::encodeCtrlChar("a\3\0b"s), "\2a\3\0b\3"s}};
  for (const auto& [got, expected] : framed)
    EXPECT_EQ(got, expected);
  // Text, special characters, identifier; a tab frames the text whatever else is special.
  for (const auto& [text, special, expected] :
       {std::tuple(""s, ""s, "\"\""s), std::tuple("abc"s, specials, "abc"s),
        std::tuple("a \n\"b"s, ""s, "a \n\"b"s), std::tuple("a b"s, specials, "\"a b\""s),
        std::tuple("a b"s, "b"s, "\"a b\""s), std::tuple("a b"s, "c"s, "a b"s),
        std::tuple("a\0b"s, "\0"s, "\"a\0b\""s), std::tuple("a\nb"s, specials, "\2a\nb\3"s),
        std::tuple("a\rb"s, specials, "\2a\rb\3"s), std::tuple("\""s, specials, "\2\"\3"s),
        std::tuple("a\tb"s, "b"s, "\2a\tb\3"s), std::tuple("a\tb"s, "c"s, "a\tb"s)})
    EXPECT_EQ(StreamString::encodeIdentifier(text, special), expected);
}

TEST(StreamString, Escapes) {
  const struct {
    std::string plain, escaped, back;
  } cases[] = {
      {"a-b c,d.e", "a\x10_b\x10\x10"s + "c\x10\x11"s + "d\x10\x12"s + "e", "a-b c,d.e"},
      {"x\0y"s, "x\0y"s, "x\0y"s},
      {" - , .", "\x10\x10\x10_\x10\x10\x10\x11\x10\x10\x10\x12", " - , ."},
      // Lost on purpose.
      {"x>(=)", "x____", "x____"},
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
  for (const auto& c : cases) {
    EXPECT_EQ(StreamString::encodeEscaped(c.plain), c.escaped) << testing::PrintToString(c.plain);
    EXPECT_EQ(StreamString::decodeEscaped(c.escaped), c.back) << testing::PrintToString(c.plain);
  }
  // Found from the left, without overlap, going on after what was put in.
  EXPECT_EQ(StreamString::decodeEscaped("\x10\x10\x10\x10\x10\x11"), "  ,");
  EXPECT_EQ(StreamString::decodeEscaped("\x10\x10\x10\x11"), " ,");
  EXPECT_EQ(StreamString::decodeEscaped("\x10\x10\x11\x10\x12"), " \x11.");

  Strings strings;
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

TEST(StreamString, Tokens) {
  struct Row {
    std::string text;
    Read expected;
    std::size_t position;
    bool flag;
    char open, close;
  };
  // Text, token, position after it; whether escapes are decoded, and delimiters of the caller.
  const auto is = [](std::string text, std::string token, std::size_t position, bool flag = false,
                     char open = ENQ, char close = ENQ) {
    return Row{std::move(text), {true, std::move(token)}, position, flag, open, close};
  };
  const auto no = [](std::string text, std::size_t position, char open = ENQ, char close = ENQ) {
    return Row{std::move(text), {false, ""}, position, false, open, close};
  };
  constexpr char lt = '<', gt = '>';
  const std::string dash = "\x10_", y200(200, 'y');
  const std::vector<Row> tables[] = {
      // Bare.
      {no("", 0), no("", 0, lt, gt), is("abc", "abc", 3), is("abc=d", "abc", 3),
       is("a\0b"s, "a", 1), is("\0b"s, "", 1), is("\nb", "", 1), is("a[b]\3;", "a[b]\3;", 6),
       is("]", "]", 1), is("a" + dash + " ", "a-", 3, true), is("a" + dash + " ", "a" + dash, 3)},
      // Quoted: nothing nests, nothing escapes the quote.
      {is("\"\"x", "", 2), is("\"a=\n\0[\"x"s, "a=\n\0["s, 7), is("\"a\\\"b", "a\\", 4),
       is("\"ab", "ab", 3), is("\"" + dash + "\"", "-", 4, true)},
      // Framed.
      {is("\2\3x", "", 2), is("\2a\t\"\n\0b\3x"s, "a\t\"\n\0b"s, 8),
       is("\2a\2b\3c\3\3", "a\2b\3c", 7), is("\2a\2b\3c", "a\2b\3c", 6),
       is("\2" + dash + "\3", "-", 4, true)},
      // Delimited, by the bracket that is found.
      {is("[]", "", 2), is("[a[b]c]d", "a[b]c", 7), is("{a{{}}}}", "a{{}}", 7),
       is("(a])b)", "a]", 4), is("[a\0=\n\"]"s, "a\0=\n\""s, 7), is("[[a]", "[a]", 4),
       is("(" + dash + ")", "-", 4, true)},
      // Delimited as the caller says; the first byte goes, whatever it is.
      {is("<a<b>>c", "a<b>", 6, false, lt, gt), is("xa<b>>c", "a<b>", 6, false, lt, gt),
       is("\"a>\"", "a", 3, false, lt, gt), is(">a>", "a", 3, false, lt, gt),
       is("\na>", "a", 3, false, lt, gt), is("\2a\3>", "a\3", 4, false, lt, gt),
       is("|a|b|", "a", 3, false, '|', '|'), is("<a", "a", 2, false, lt, gt),
       is("<" + dash + ">", "-", 4, true, lt, gt), is("\0a\0"s, "a", 3, false, '\0', '\0')},
      // Length: the same whatever the caller says, and never decoded.
      {is(length(3) + "a\0\nx"s, "a\0\n"s, 8), is(length(3) + "abcx", "abc", 8, false, lt, gt),
       is(length(2) + dash + "x", dash, 7, true), is(length(0) + "x", "", 5),
       is(length(10) + "0123456789\n", "0123456789", 15), is(length(200) + y200 + "y", y200, 205),
       no(length(0), 5), no(length(3) + "abc", 8), no(length(3) + "ab", 7), no("\5", 1),
       no("\5\0\0\0"s, 4, lt, gt), no(length(0xffffffff) + "0123456789", 15),
       no(length(0x80000000) + "0123456789", 15, lt, gt)},
  };
  for (const auto& table : tables)
    for (const Row& c : table) {
      SCOPED_TRACE(testing::PrintToString(c.text));
      Recorder in(c.text);
      EXPECT_EQ(read(in, c.flag, c.open, c.close), c.expected);
      EXPECT_EQ(in.position(), c.position);
      in.expectBooks();
    }
  const Read none(false, "");
  const auto found = [](std::string text) { return Read(true, std::move(text)); };
  const struct {
    std::string text, terminators;
    Read first, second;
  } terminated[] = {{"a b;c", ";", found("a b"), found("")},
                    {"a b;c", "", found("a b;c"), none},
                    {"a\0b"s, "", found("a"), found("")},
                    {"a\xff\x80", "\xff", found("a"), found("")}};
  for (const auto& c : terminated) {
    Recorder in(c.text);
    for (const Read& expected : {c.first, c.second})
      EXPECT_EQ(StreamString::decodeIdentifier(in, ENQ, 0, c.terminators, false), expected);
  }
  Recorder in(length(10) + "a\n\n3456789;");
  EXPECT_EQ(read(in), found("a\n\n3456789"));
  EXPECT_EQ(in.lineFeeds, (Positions{2, 7, 8})) << "the length field counts its line feed";
}

TEST(StreamString, TokensComeBack) {
  Strings strings;
  int bare = 0;
  for (int round = 0; round < 20000 && !testing::Test::HasFailure(); ++round) {
    const std::string s = strings.string(), before(strings.below(3), '\n');
    const char after = strings.byte();
    const bool flag = strings.below(2) != 0, frames = nests(s, '\2', '\3');
    const auto expect = [&](const std::string& token, char following, bool escapes) {
      Recorder in(before + token + following);
      for (std::size_t i = 0; i < before.size(); ++i)
        in.get();
      EXPECT_EQ(read(in, flag), Read(true, escapes && flag ? StreamString::decodeEscaped(s) : s))
          << testing::PrintToString(token);
      EXPECT_EQ(in.position(), before.size() + token.size());
      in.expectBooks();
    };
    expect(StreamString::encodeLength(s), after, false);
    if (frames)
      expect(StreamString::encodeCtrlChar(s), after, true);
    if (nests(s, '{', '}'))
      expect('{' + s + '}', after, true);
    if (s.find('"') == std::string::npos)
      expect('"' + s + '"', after, true);
    const std::string token = StreamString::encodeIdentifier(s, specials);
    if (token != s && (token[0] == '"' || frames))
      expect(token, after, true);
    if (token == s && "\"\x02\x05[{("s.find(s[0]) == s.npos && s.find('\0') == s.npos) {
      expect(token, specials[strings.below(13)], true);
      ++bare;
    }
    // A loop of reads over any text ends, and advances with each.
    Recorder in(s);
    const char open = strings.below(3) != 0 ? ENQ : strings.byte(), close = strings.byte();
    auto last = in.position();
    for (; read(in, true, open, close).first; last = in.position()) {
      ASSERT_GT(in.position(), last);
      in.expectBooks();
    }
    EXPECT_TRUE(in.atEnd());
  }
  EXPECT_GT(bare, 100);

  input_string in("ab=\"c d\"=\2e\tf\3=[g]=" + StreamString::encodeLength("h=") + "=\"\"=");
  std::string all;
  for (Read token = read(in); token.first; token = read(in)) {
    all += token.second + '|';
    EXPECT_EQ(in.get(), std::make_pair(true, '=')) << "every form leaves what follows";
  }
  EXPECT_EQ(all, "ab|c d|e\tf|g|h=||");
}

// Every text, cut anywhere: the result is a prefix of the whole one or nothing, nothing beyond the
// cut is looked at.
TEST(StreamString, CutAnywhere) {
  const std::string content = "a\2\n\3(b)[c]{d}\x10_\r\xff";
  for (const std::string& token :
       {StreamString::encodeLength(content), StreamString::encodeCtrlChar(content), "\"quo ted\""s,
        "bare-token"s, "[" + content + "]", "{" + content + "}", "(" + content + ")"}) {
    input_string entire(token + ',');
    const std::string whole = read(entire).second;
    for (std::size_t cut = 1; cut <= token.size(); ++cut) {
      SCOPED_TRACE(testing::PrintToString(token.substr(0, cut)));
      // Fresh memory of exactly this size, so that a sanitizer sees a step beyond it.
      Recorder in(token.substr(0, cut));
      const Read got = read(in);
      EXPECT_EQ(got.first, token[0] != ENQ);
      EXPECT_TRUE(whole.starts_with(got.second));
      EXPECT_EQ(got.second.empty(), token[0] == ENQ || (cut == 1 && token != "bare-token"));
      EXPECT_EQ(in.position(), cut);
      in.expectBooks();
      EXPECT_EQ(read(in), Read(false, ""));
    }
  }
  const std::size_t depth = 1000000; // needs no stack
  input_string deep(std::string(depth, '[') + std::string(depth - 1, ']'));
  EXPECT_EQ(read(deep).second.size(), 2 * depth - 2);
}

TEST(StreamString, ExceptionOfTheHookLeavesTheLineFeedRead) {
  struct Throwing : input_string {
    using input_string::input_string;
    void newline(unsigned long long) override { throw std::runtime_error("line feed"); }
  };
  Throwing in("[a\nb]c");
  EXPECT_THROW(read(in), std::runtime_error);
  EXPECT_EQ(place(in), "3 1:0");
  EXPECT_EQ(read(in), Read(true, "b]c"));
}

TEST(InputString, ReadsBytesLinesAndBlanks) {
  input_string in("a\n\0"s);
  const std::pair<std::pair<bool, char>, const char*> steps[] = {{{true, 'a'}, "1 0:1"},
                                                                 {{true, '\n'}, "2 1:0"},
                                                                 {{true, '\0'}, "3 1:1"},
                                                                 {{false, '\0'}, "3 1:1"}};
  for (const auto& [expected, after] : steps) {
    EXPECT_EQ(in.atEnd(), !expected.first);
    EXPECT_EQ(in.peek(), expected);
    EXPECT_EQ(in.get(), expected);
    EXPECT_EQ(place(in), after);
  }
  // A line is read up to its line feed, without the carriage returns in it.
  input_string lines("ab\r\nc\rd");
  for (const std::string line : {"ab", "", ""})
    EXPECT_EQ(lineOf(lines), line + "3 0:3");
  lines.get();
  EXPECT_EQ(lineOf(lines), "cd7 1:3");
  input_string odd("\ra\0\rb\r"s);
  EXPECT_EQ(lineOf(odd), "a\0b6 0:6"s);

  const struct {
    std::string text;
    unsigned long long skipped;
    const char* after;
  } blanks[] = {{"", 0, "0 0:0"},     {"a b", 0, "0 0:0"},  {" \t\v\f\r\n \n\ra", 9, "9 2:1"},
                {"\r\n", 2, "2 1:0"}, {"\0 "s, 0, "0 0:0"}, {" \x80", 1, "1 0:1"},
                {"  a", 2, "2 0:2"},  {"\xff", 0, "0 0:0"}};
  for (const auto& c : blanks) {
    input_string text(c.text);
    EXPECT_EQ(text.skipspace(), c.skipped) << testing::PrintToString(c.text);
    EXPECT_EQ(place(text), c.after) << testing::PrintToString(c.text);
  }
}

// What the three views answer at every position of a text, the end included.
TEST(InputString, LinesAroundThePosition) {
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      // previous|current|peeked
      {"", {"||"}},
      {"ab", {"|ab|ab", "|ab|b", "|ab|"}},
      {"\n", {"||", "||"}},
      {"a\n", {"|a|a", "|a|", "a||"}},
      {"\n\nb", {"||", "||", "|b|b", "|b|"}},
      {"a\r\nb\nc", {"|a\r|a\r", "|a\r|\r", "|a\r|", "a\r|b|b", "a\r|b|", "b|c|c", "b|c|"}},
      // A NUL ends what is peeked, not the line.
      {"a\0b\nc"s, {"|a\0b|a"s, "|a\0b|"s, "|a\0b|b"s, "|a\0b|"s, "a\0b|c|c"s, "a\0b|c|"s}}};
  for (const auto& c : cases) {
    input_string in(c.first);
    for (std::size_t i = 0; i < c.second.size(); ++i, in.get()) {
      const std::string before = place(in);
      EXPECT_EQ(in.previousline() + '|' + in.currentline() + '|' + in.peekline(), c.second[i])
          << testing::PrintToString(c.first) << " at " << i;
      EXPECT_EQ(place(in), before);
    }
  }
}

TEST(InputString, HookSeesEveryLineFeedAndMayReadOn) {
  // Takes the indentation of a line together with the line feed before it.
  struct Indented : input_string {
    using input_string::input_string;
    Positions lineFeeds;
    void newline(unsigned long long position) override {
      EXPECT_TRUE(position == this->position() && column() == 0);
      lineFeeds.push_back(position);
      while (peek().second == ' ')
        get();
    }
  };
  Indented in("a\n  b\n\n c");
  EXPECT_EQ(in.getline(), "a");
  EXPECT_EQ(in.skipspace(), 1u);
  EXPECT_EQ(place(in), "4 1:2");
  EXPECT_EQ(in.getline(), "b");
  EXPECT_EQ(in.skipspace(), 2u);
  EXPECT_EQ(place(in), "8 3:1");
  EXPECT_EQ(in.lineFeeds, (Positions{2, 6, 7}));
}

using Node = StrongPtr<Lexicon>;
using Words = std::vector<std::string>;

Lexicon& insert(Lexicon& root, const std::string& word) {
  Lexicon* node = &root;
  for (const char c : word)
    node = &(*node)[c];
  return *node;
}

struct Visitor : Lexicon::Iterator {
  bool visitWord(std::string& word, Node& node) override {
    words.push_back(word);
    return !onVisit || onVisit(word, node);
  }
  Words words;
  std::function<bool(std::string&, Node&)> onVisit;
};

Words wordsOf(const Lexicon& root) {
  Visitor visitor;
  EXPECT_TRUE(root.traverse(visitor));
  return visitor.words;
}

TEST(Lexicon, VisitsWordsInByteOrder) {
  const std::pair<Words, Words> cases[] = {
      {{}, {}},
      {{"ac", "ab"}, {"a", "ab", "ac"}},
      {{"b", "a", "b"}, {"a", "b"}},
      {{"z\xc3\xa4", "\xfe", "\x7f"}, {"z", "z\xc3", "z\xc3\xa4", "\x7f", "\xfe"}},
      {{"\0a"s, "a"}, {"\0"s, "\0a"s, "a"}},
      {{"\xff", "a\xff", "a\xff\x62"}, {"a"}}, // the last byte value is left out of walks
  };
  for (const auto& [inserted, visited] : cases) {
    Lexicon root;
    for (const std::string& word : inserted)
      insert(root, word);
    EXPECT_EQ(wordsOf(root), visited);
  }
  EXPECT_EQ(sizeof(Lexicon), 4144u) << "a node takes what the documentation says";
}

TEST(Lexicon, SlotsAndChildren) {
  Lexicon root;
  EXPECT_FALSE(root('a'));
  EXPECT_TRUE(wordsOf(root).empty());
  Lexicon& ab = root['a']['b'];
  EXPECT_EQ(&root['a']['b'], &ab);
  root['\xff']['x'];
  EXPECT_TRUE((*root('\xff'))('x'));
  const Node held(&ab);
  root('a') = nullptr;
  EXPECT_EQ(held.strongCount(), 1) << "a node lives as long as somebody holds it";
  EXPECT_TRUE(wordsOf(root).empty());
  root('c') = held;
  Node dead = new Lexicon;
  root('d') = dead;
  delete dead.get();
  EXPECT_EQ(wordsOf(root), Words{"c"});
  root['d'];
  EXPECT_EQ(wordsOf(root), (Words{"c", "d"}));
}

TEST(Lexicon, WalksFromAPrefixAndStops) {
  Lexicon root;
  insert(root, "bc");
  const struct {
    std::string buffer;
    unsigned depth;
    Words words;
  } cases[] = {{"longer", 0, {"b", "bc"}},
               {"a", 1, {"ab", "abc"}},
               {"axyz", 1, {"ab", "abc"}},
               {"a", 2, {"a\0b"s, "a\0bc"s}}};
  for (auto c : cases) {
    Visitor visitor;
    EXPECT_TRUE(root.iterate(c.buffer, c.depth, visitor));
    EXPECT_EQ(visitor.words, c.words);
  }
  Visitor scribbler;
  scribbler.onVisit = [](std::string& word, Node&) { return word = "Xyz", true; };
  EXPECT_TRUE(root.traverse(scribbler));
  EXPECT_EQ(scribbler.words, (Words{"b", "Xc"})) << "the walk goes on with what is left there";
  insert(root, "bd");
  for (const Words& seen : {Words{"b"}, Words{"b", "bc"}, Words{"b", "bc", "bd"}}) {
    Visitor visitor;
    visitor.onVisit = [&](const std::string& word, Node&) { return word != seen.back(); };
    EXPECT_FALSE(root.traverse(visitor));
    EXPECT_EQ(visitor.words, seen);
  }
}

TEST(Lexicon, SurvivesVisitorsThatCutTheBranch) {
  for (const bool rootOnHeap : {true, false}) {
    Node heap = rootOnHeap ? new Lexicon : nullptr;
    Lexicon stack;
    Lexicon& root = rootOnHeap ? *heap : stack;
    for (const char* word : {"abcd", "abd", "b"})
      insert(root, word);
    Visitor visitor;
    visitor.onVisit = [&](const std::string& word, Node& node) {
      if (word == "abc")
        root('a') = heap = nullptr; // all above the current word, which the walk still holds
      else if (word == "abd")
        node = nullptr;
      return true;
    };
    EXPECT_TRUE(root.traverse(visitor));
    EXPECT_EQ(visitor.words, (Words{"a", "ab", "abc", "abcd", "abd", "b"}));
  }
  Lexicon root;
  insert(root, "ab");
  Visitor replacing;
  replacing.onVisit = [](const std::string& word, Node& node) {
    if (word == "a")
      (*(node = new Lexicon))['x'];
    return true;
  };
  EXPECT_TRUE(root.traverse(replacing));
  EXPECT_EQ(replacing.words, (Words{"a", "ax"}));
}

TEST(Lexicon, LongWordsCostNoStack) {
  constexpr std::size_t Length = 100000;
  static int ended;
  struct Mark : Interface<Mark> {
    ~Mark() override { ++ended; }
  };
  ended = 0;
  Node root = new Lexicon;
  insert(*root, std::string(Length, 'a')).addInterface(new Mark);
  insert(*root, std::string(Length / 2, 'a') + std::string(10, 'b')).addInterface(new Mark);
  struct : Lexicon::Iterator {
    bool visitWord(std::string& word, Node&) override {
      longest = std::max(longest, word.size());
      return ++count > 0;
    }
    std::size_t longest = 0, count = 0;
  } measuring;
  EXPECT_TRUE(root->traverse(measuring));
  EXPECT_TRUE(measuring.longest == Length && measuring.count == Length + 10);
  root = nullptr;
  EXPECT_EQ(ended, 2);
}

// A gigabyte of nodes is too much beside a sanitizer's own memory.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
/// A real dictionary goes in and comes out again: about a quarter of a million nodes, 1 GB.
TEST(Lexicon, TakesAWordList) {
  std::ifstream file("/usr/share/dict/american-english", std::ios::binary);
  if (!file)
    file.open("Z:\\usr\\share\\dict\\american-english", std::ios::binary);
  ASSERT_TRUE(file.is_open()) << "install the word list (Debian: wamerican)";
  struct Word : Interface<Word> {};
  const StrongPtr<InterfaceBase> isWord = new Word;
  std::set<std::string> words, prefixes;
  Node root = new Lexicon;
  for (std::string line; std::getline(file, line);) {
    words.insert(line);
    insert(*root, line).addInterface(isWord);
    for (; !line.empty(); line.pop_back())
      prefixes.insert(line);
  }
  EXPECT_GT(words.size(), 50000u);
  Visitor visitor;
  Words found;
  visitor.onVisit = [&](const std::string& word, Node& node) {
    if (node->hasInterface<Word>())
      found.push_back(word);
    return true;
  };
  EXPECT_TRUE(root->traverse(visitor));
  EXPECT_TRUE(std::ranges::equal(found, words));
  EXPECT_TRUE(std::ranges::equal(visitor.words, prefixes)) << "each node once";
  root = nullptr;
  EXPECT_EQ(isWord.strongCount(), 1);
}
#endif

} // namespace
