// The cursor over a text, the codec of tokens in it, and the tree of words.

#include "../fuzz/Rules.hpp"

#include <tolvane/Interface.hpp>
#include <tolvane/Lexicon.hpp>

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using Pelko::input_string;
using Pelko::StreamString;
using rules::Kind;
using namespace Tolvane;
using namespace std::string_literals;

constexpr char ENQ = StreamString::ENQ;
const std::string specials = StreamString::non_identifier_characters;

TEST(StreamString, Encoders) {
  EXPECT_EQ(specials, "=#<>@?, !\r\t\n\"");
  const std::string bytes300(300, 'x'), many(0x12345, '\n');
  const std::pair<std::string, std::string> cases[] = {
      {StreamString::encodeLength(""), "\5\0\0\0\0"s},
      {StreamString::encodeLength(bytes300), "\5\x2c\1\0\0"s + bytes300},
      {StreamString::encodeLength("a\0\n"s), "\5\3\0\0\0a\0\n"s},
      {StreamString::encodeLength(many), "\5\x45\x23\1\0"s + many},
      {StreamString::encodeCtrlChar(""), "\2\3"},
      {StreamString::encodeCtrlChar("a\3\0b"s), "\2a\3\0b\3"s},
      {StreamString::encodeIdentifier("", specials), "\"\""},
      {StreamString::encodeIdentifier("ab", specials), "ab"},
      {StreamString::encodeIdentifier("a b", specials), "\"a b\""},
      {StreamString::encodeIdentifier("a\nb", specials), "\2a\nb\3"},
      {StreamString::encodeIdentifier("a\tb", "b"), "\2a\tb\3"},
      {StreamString::encodeEscaped("a-b c,d.e"),
       "a\x10_b\x10\x10"s + "c\x10\x11"s + "d\x10\x12"s + "e"},
      {StreamString::encodeEscaped("x>(=)"), "x____"},
      {StreamString::encodeEscaped("abcdefghijk-"), "abcdefghijk\x10_"},
      {StreamString::decodeEscaped("\x10_\x10\x10\x10\x11\x10\x12\x10\x11_\x10"), "- ,.,_\x10"}};
  for (const auto& [got, expected] : cases)
    EXPECT_EQ(got, expected);
  std::string text = "abcdefghijk"; // longer and longer, over the ends of the blocks
  for (const char* more = "-a, b.c=de"; text.size() < 1100; text += more[text.size() % 10])
    EXPECT_EQ(StreamString::encodeEscaped(text), rules::escaped(text));
  for (const std::size_t size : {255U, 256U, 257U, 513U}) {
    const std::string blanks(size, ' ');
    EXPECT_EQ(StreamString::encodeEscaped(blanks), std::string(2 * size, '\x10'));
    EXPECT_EQ(StreamString::encodeEscaped(bytes300 + blanks),
              bytes300 + std::string(2 * size, '\x10'));
  }
  // Every text of six of these, before and among some that need nothing.
  const std::string most = "\x10_\x11\0x\xff"s;
  for (unsigned number = 0; number < 46656; ++number) {
    std::string escaped = "\x10_";
    for (unsigned rest = number, at = 0; at < 6; ++at, rest /= 6)
      escaped.append(number % 9 == at ? 7 : 0, 'y') += most[rest % 6];
    escaped.append(number % 11, 'y');
    ASSERT_EQ(StreamString::decodeEscaped(escaped), rules::unescaped(escaped));
  }
}

TEST(StreamString, TokensAndLinesAreThoseOfTheRules) {
  // Text, token or nothing, position after it; whether escapes are decoded, the caller's delimiter.
  const struct {
    std::string text;
    std::optional<std::string> token;
    std::size_t position;
    bool flag = false;
    char open = ENQ;
  } cases[] = {{"abc=d", "abc", 3},
               {"=b", "", 1},
               {"a\0b"s, "a", 1},
               {"a\x10_ ", "a-", 3, true},
               {"\"a=\\\"x", "a=\\", 5},
               {"\2a\2b\3c\3\3", "a\2b\3c", 7},
               {"\2\x10_\3", "-", 4, true},
               {"[a[b]c]d", "a[b]c", 7},
               {"(a(b)c)d", "a(b)c", 7},
               {"{a{b}c}d", "a{b}c", 7},
               {"xa<b>>c", "a<b>", 6, false, '<'},
               {"\5\2\0\0\0\x10_x"s, "\x10_", 7, true},
               {"\5\2\0\0\0abx"s, "ab", 7, false, '<'},
               {"\5\0\0\0\0x"s, "", 5},
               {"\5\0\0\0\0"s, std::nullopt, 5},
               {"\5\3\0\0\0abc"s, std::nullopt, 8},
               {"", std::nullopt, 0}};
  for (const auto& c : cases) {
    input_string in(c.text);
    const auto [found, token] =
        StreamString::decodeIdentifier(in, c.open, c.open == ENQ ? '\0' : '>', specials, c.flag);
    EXPECT_EQ(found ? std::optional(token) : std::nullopt, c.token) << c.text;
    EXPECT_EQ(in.position(), c.position) << c.text;
  }
  // Any text, read in any way, as the fuzz targets do more widely.
  const std::string all = "a\r\n\t \x10_b\0[c\n\v]\xff \n"s;
  for (const Kind kind : {Kind::Byte, Kind::Line, Kind::Blanks, Kind::Token})
    for (const std::string& ends : {specials, "b\xff"s, ""s})
      for (rules::Cursor in(all); !in.atEnd();)
        ASSERT_TRUE(rules::reads(in, kind, ENQ, '\0', ends, true) &&
                    rules::reads(in, Kind::Byte, ENQ, '\0', ends, true))
            << in.position();
  // Each byte at each distance, in a bare token and between quotes.
  for (unsigned number = 0; number < 20 * 256; ++number)
    for (const std::string& quote : {""s, "\""s}) {
      const std::string run(number / 256, 'q');
      rules::Cursor in(quote + run + static_cast<char>(number % 256) + "qqqqqqqqq"s + quote);
      ASSERT_TRUE(rules::reads(in, Kind::Token, ENQ, '\0', specials, false)) << number;
    }
  const std::size_t depth = 1000000; // needs no stack
  input_string deep(std::string(depth, '[') + std::string(depth - 1, ']'));
  EXPECT_EQ(StreamString::decodeIdentifier(deep, ENQ, 0, "", false).second.size(), 2 * depth - 2);
}

TEST(InputString, HookSeesEveryLineFeedAndMayReadOnOrThrow) {
  // Takes the indentation of a line together with the line feed before it.
  struct Indented : input_string {
    using input_string::input_string;
    void newline(unsigned long long position) override {
      EXPECT_TRUE(position == this->position() && column() == 0);
      while (peek().second == ' ')
        get();
      if (peek().second == '!')
        throw std::runtime_error("line feed");
    }
    // Position, line and column.
    bool isAt(unsigned bytes, unsigned lines, unsigned columns) const {
      return position() == bytes && line() == lines && column() == columns;
    }
  };
  Indented in("a\n  b\n\n c[d\n!]e");
  EXPECT_EQ(in.getline(), "a");
  EXPECT_TRUE(in.skipspace() == 1 && in.isAt(4, 1, 2));
  EXPECT_EQ(in.getline(), "b");
  EXPECT_TRUE(in.skipspace() == 2 && in.isAt(8, 3, 1));
  in.get();
  EXPECT_THROW(StreamString::decodeIdentifier(in, ENQ, 0, "", false), std::runtime_error);
  EXPECT_TRUE(in.isAt(12, 4, 0)) << "the line feed stays read";
  EXPECT_EQ(in.peekline(), "!]e");
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

Words wordsOf(const Lexicon& root, const decltype(Visitor::onVisit)& onVisit = nullptr) {
  Visitor visitor;
  visitor.onVisit = onVisit;
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
  EXPECT_EQ(sizeof(Lexicon), 4152u) << "a node takes what the documentation says";
}

TEST(Lexicon, SlotsAndChildren) {
  Lexicon root;
  EXPECT_TRUE(!root('a') && wordsOf(root).empty());
  Lexicon& ab = root['a']['b'];
  EXPECT_EQ(&root['a']['b'], &ab);
  root['\xff']['x'];
  EXPECT_TRUE((*root('\xff'))('x'));
  const Node held(&ab);
  root('a') = nullptr;
  EXPECT_EQ(held.strongCount(), 1) << "a node lives as long as somebody holds it";
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
  // The text it begins with, and how much of that counts.
  const std::tuple<std::string, unsigned, Words> cases[] = {
      {"longer", 0, {"b", "bc"}}, {"axyz", 1, {"ab", "abc"}}, {"a", 2, {"a\0b"s, "a\0bc"s}}};
  for (auto [buffer, depth, words] : cases) {
    Visitor visitor;
    EXPECT_TRUE(root.iterate(buffer, depth, visitor));
    EXPECT_EQ(visitor.words, words);
  }
  const auto scribble = [](std::string& word, Node&) { return word = "Xyz", true; };
  EXPECT_EQ(wordsOf(root, scribble), (Words{"b", "Xc"})) << "it goes on with what is left there";
  insert(root, "bd");
  for (const Words& seen : {Words{"b"}, Words{"b", "bc", "bd"}}) {
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
    for (const char* word : {"abcd", "abd", "by"})
      insert(root, word);
    const auto cut = [&](const std::string& word, Node& node) {
      if (word == "abc")
        root('a') = heap = nullptr; // all above the current word, which the walk still holds
      else if (word == "abd")
        node = nullptr;
      else if (word == "b")
        (*(node = new Lexicon))['x'];
      return true;
    };
    EXPECT_EQ(wordsOf(root, cut), (Words{"a", "ab", "abc", "abcd", "abd", "b", "bx"}));
  }
}

TEST(Lexicon, LongWordsCostNoStack) {
  constexpr std::size_t Length = 100000;
  struct Mark : Interface<Mark> {};
  const StrongPtr<InterfaceBase> mark = new Mark;
  Node root = new Lexicon;
  insert(*root, std::string(Length, 'a')).addInterface(mark);
  insert(*root, std::string(Length / 2, 'a') + std::string(10, 'b')).addInterface(mark);
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
  EXPECT_EQ(mark.strongCount(), 1);
}

} // namespace
