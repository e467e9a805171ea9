#include <tolvane/Lexicon.hpp>

#include <algorithm>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Tolvane;
using Node = StrongPtr<Lexicon>;

Lexicon& insert(Lexicon& root, const std::string& word) {
  Lexicon* node = &root;
  for (const char c : word) {
    node = &(*node)[c];
  }
  return *node;
}

struct Visitor : Lexicon::Iterator {
  bool visitWord(std::string& word, Node& node) override {
    words.push_back(word);
    return !onVisit || onVisit(word, node);
  }
  std::vector<std::string> words;
  std::function<bool(std::string&, Node&)> onVisit;
};

using Words = std::vector<std::string>;

Words wordsOf(const Lexicon& root) {
  Visitor visitor;
  EXPECT_TRUE(root.traverse(visitor));
  return visitor.words;
}

TEST(Lexicon, VisitsWordsInByteOrder) {
  const struct {
    Words inserted;
    Words visited;
  } cases[] = {
      {{}, {}},
      {{"ac", "ab"}, {"a", "ab", "ac"}},
      {{"b", "a", "b"}, {"a", "b"}},
      {{"z\xc3\xa4", "\xfe", "\x7f"}, {"\x7f", "z", "z\xc3", "z\xc3\xa4", "\xfe"}},
      {{std::string("\0a", 2), "a"}, {std::string(1, '\0'), std::string("\0a", 2), "a"}},
      {{"\xff", "a\xff", "a\xff\x62"}, {"a"}}, // the last byte value is left out of walks
  };
  for (auto c : cases) {
    Lexicon root;
    for (const std::string& word : c.inserted) {
      insert(root, word);
    }
    std::ranges::sort(c.visited);
    EXPECT_EQ(wordsOf(root), c.visited);
  }
}

TEST(Lexicon, SlotsAndChildren) {
  Lexicon root;
  EXPECT_FALSE(root('a'));
  EXPECT_TRUE(wordsOf(root).empty());
  Lexicon& ab = root['a']['b'];
  EXPECT_EQ(&root['a']['b'], &ab);
  EXPECT_EQ(wordsOf(root), (Words{"a", "ab"}));
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
  EXPECT_EQ(wordsOf(root), (Words{"c"}));
  root['d'];
  EXPECT_EQ(wordsOf(root), (Words{"c", "d"}));
}

TEST(Lexicon, VisitorStopsTheWalk) {
  Lexicon root;
  insert(root, "ab");
  insert(root, "ac");
  for (const Words& seen : {Words{"a"}, Words{"a", "ab"}, Words{"a", "ab", "ac"}}) {
    Visitor visitor;
    visitor.onVisit = [&](const std::string& word, Node&) { return word != seen.back(); };
    EXPECT_FALSE(root.traverse(visitor));
    EXPECT_EQ(visitor.words, seen);
  }
}

TEST(Lexicon, WalksFromAPrefix) {
  Lexicon root;
  insert(root, "bc");
  const struct {
    std::string buffer;
    unsigned depth;
    Words words;
  } cases[] = {
      {"", 0, {"b", "bc"}},
      {"longer", 0, {"b", "bc"}},
      {"a", 1, {"ab", "abc"}},
      {"axyz", 1, {"ab", "abc"}},
      {"a", 2, {std::string("a\0b", 3), std::string("a\0bc", 4)}},
  };
  for (auto c : cases) {
    Visitor visitor;
    EXPECT_TRUE(root.iterate(c.buffer, c.depth, visitor));
    EXPECT_EQ(visitor.words, c.words);
  }
  Visitor scribbler;
  scribbler.onVisit = [](std::string& word, Node&) {
    word = "Xyz";
    return true;
  };
  EXPECT_TRUE(root.traverse(scribbler));
  EXPECT_EQ(scribbler.words, (Words{"b", "Xc"})) << "the walk goes on with what is left there";
}

TEST(Lexicon, SurvivesVisitorsThatCutTheBranch) {
  for (const bool rootOnHeap : {true, false}) {
    Node heap = rootOnHeap ? new Lexicon : nullptr;
    Lexicon stack;
    Lexicon& root = rootOnHeap ? *heap : stack;
    insert(root, "abcd");
    insert(root, "abd");
    insert(root, "b");
    Visitor visitor;
    visitor.onVisit = [&](const std::string& word, Node& node) {
      if (word == "abc") {
        root('a') = nullptr; // all above the current word, which the walk still holds
        heap = nullptr;
      } else if (word == "abd") {
        node = nullptr;
      }
      return true;
    };
    EXPECT_TRUE(root.traverse(visitor));
    EXPECT_EQ(visitor.words, (Words{"a", "ab", "abc", "abcd", "abd", "b"}));
  }
  Lexicon root;
  insert(root, "ab");
  Visitor replacing;
  replacing.onVisit = [](const std::string& word, Node& node) {
    if (word == "a") {
      node = new Lexicon;
      (*node)['x'];
    }
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
      ++count;
      return true;
    }
    std::size_t longest = 0;
    std::size_t count = 0;
  } measuring;
  EXPECT_TRUE(root->traverse(measuring));
  EXPECT_EQ(measuring.longest, Length);
  EXPECT_EQ(measuring.count, Length + 10);
  root = nullptr;
  EXPECT_EQ(ended, 2);
}

TEST(Lexicon, NodeTakesWhatTheDocumentationSays) {
  EXPECT_EQ(sizeof(Lexicon), 4144u);
}

// A gigabyte of nodes is too much beside a sanitizer's own memory.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
/// A real dictionary goes in and comes out again: about a quarter of a million nodes, 1 GB.
TEST(Lexicon, TakesAWordList) {
  std::ifstream file;
  for (const char* path :
       {"/usr/share/dict/american-english", "Z:\\usr\\share\\dict\\american-english"}) {
    if (file.open(path, std::ios::binary); file) {
      break;
    }
    file.clear();
  }
  if (!file.is_open()) {
    GTEST_SKIP() << "the word list is not installed (Debian: wamerican)";
  }
  struct Word : Interface<Word> {};
  const StrongPtr<InterfaceBase> isWord = new Word;
  std::set<std::string> words;
  Node root = new Lexicon;
  for (std::string line; std::getline(file, line);) {
    words.insert(line);
    insert(*root, line).addInterface(isWord);
  }
  EXPECT_GT(words.size(), 50000u);
  Visitor visitor;
  Words found;
  visitor.onVisit = [&](const std::string& word, Node& node) {
    if (node->hasInterface<Word>()) {
      found.push_back(word);
    }
    return true;
  };
  EXPECT_TRUE(root->traverse(visitor));
  EXPECT_TRUE(std::ranges::equal(found, words));
  EXPECT_TRUE(std::ranges::is_sorted(visitor.words, std::less_equal())) << "each node once";
  std::size_t nodes = 0;
  std::string before;
  for (const std::string& word : words) {
    nodes += static_cast<std::size_t>(word.end() - std::ranges::mismatch(word, before).in1);
    before = word;
  }
  EXPECT_EQ(visitor.words.size(), nodes);
  root = nullptr;
  EXPECT_EQ(isWord.strongCount(), 1);
}
#endif

} // namespace
