// The trie beside the standard set and a trie with nothing but pointers.
#include "LexiconBench.hpp"

#include <tolvane/Lexicon.hpp>

#include <array>
#include <set>

namespace {

struct EndOfWord {};

class Ours {
public:
  void insert(const std::string& word) {
    Tolvane::Lexicon* node = root_.get();
    for (const char c : word) {
      node = &(*node)[c];
    }
    node->registerInterface<EndOfWord>();
  }
  bool has(const std::string& word) const {
    const Tolvane::Lexicon* node = root_.get();
    for (const char c : word) {
      node = (*node)(c).get();
      if (node == nullptr) {
        return false;
      }
    }
    return node->hasInterface<EndOfWord>();
  }
  std::size_t walk() const {
    struct Count : Tolvane::Lexicon::Iterator {
      bool visitWord(std::string& word, Tolvane::StrongPtr<Tolvane::Lexicon>& node) override {
        letters += node->hasInterface<EndOfWord>() ? word.size() : 0;
        ++nodes;
        return true;
      }
      std::size_t letters = 0;
      std::size_t nodes = 0;
    } count;
    root_->traverse(count);
    return count.letters;
  }

private:
  Tolvane::StrongPtr<Tolvane::Lexicon> root_ = new Tolvane::Lexicon;
};

class Naive {
public:
  void insert(const std::string& word) {
    Node* node = &root_;
    for (const char c : word) {
      std::unique_ptr<Node>& child = node->children[static_cast<unsigned char>(c)];
      if (child == nullptr) {
        child = std::make_unique<Node>();
      }
      node = child.get();
    }
    node->ends = true;
  }
  bool has(const std::string& word) const {
    const Node* node = &root_;
    for (const char c : word) {
      node = node->children[static_cast<unsigned char>(c)].get();
      if (node == nullptr) {
        return false;
      }
    }
    return node->ends;
  }
  std::size_t walk() const {
    std::string word;
    return walk(root_, word);
  }

private:
  struct Node {
    bool ends = false;
    std::array<std::unique_ptr<Node>, 256> children;
  };
  static std::size_t walk(const Node& node, std::string& word) {
    std::size_t letters = node.ends ? word.size() : 0;
    for (std::size_t c = 0; c < 256; ++c) {
      if (node.children[c] != nullptr) {
        word += static_cast<char>(c);
        letters += walk(*node.children[c], word);
        word.pop_back();
      }
    }
    return letters;
  }
  Node root_;
};

class Set {
public:
  void insert(const std::string& word) { words_.insert(word); }
  bool has(const std::string& word) const { return words_.contains(word); }
  std::size_t walk() const {
    std::size_t letters = 0;
    for (const std::string& word : words_) {
      letters += word.size();
    }
    return letters;
  }

private:
  std::set<std::string> words_;
};

[[maybe_unused]] const bool added = [] {
  bench::addLexicon<Ours>("tolvane");
  bench::addLexicon<Naive>("256 pointers");
  bench::addLexicon<Set>("std::set");
  return true;
}();

} // namespace
