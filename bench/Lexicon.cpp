// The trie beside the standard set and a trie with nothing but pointers.
#include "LexiconBench.hpp"

#include <tolvane/Lexicon.hpp>

#include <array>
#include <set>
#include <unordered_map>

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

/// A trie of 256 plain pointers a node; or, with records, of the means that ours has to use: slots
/// of pointer and serial, the way over a record beside the child, and a map by type beside each
/// node for what a word has.
template <bool Records>
class Naive {
public:
  void insert(const std::string& word) {
    Node* node = &root_;
    for (const char c : word) {
      Slot& slot = node->children[static_cast<unsigned char>(c)];
      if (slot.empty()) {
        slot.fill();
      }
      node = slot.get();
    }
    node->end.set();
  }
  bool has(const std::string& word) const {
    const Node* node = &root_;
    for (const char c : word) {
      const Slot& slot = node->children[static_cast<unsigned char>(c)];
      if (slot.empty()) {
        return false;
      }
      node = slot.get();
      if (node == nullptr) {
        return false;
      }
    }
    return node->end.get();
  }
  std::size_t walk() const {
    std::string word;
    return walk(root_, word);
  }

private:
  struct Node;
  struct Plain {
    bool empty() const { return node == nullptr; }
    void fill() { node = std::make_unique<Node>(); }
    Node* get() const { return node.get(); }
    std::unique_ptr<Node> node;
  };
  struct Record {
    std::uint64_t counts;
    std::unique_ptr<Node> node;
  };
  struct Recorded {
    bool empty() const { return record == nullptr; }
    void fill() {
      auto node = std::make_unique<Node>();
      record.reset(new Record{1, std::move(node)});
    }
    /// Empty where the object is marked as dead or gone, as of every pointer of the library.
    Node* get() const {
      return static_cast<std::int32_t>(record->counts) >= 0 ? record->node.get() : nullptr;
    }
    std::uint64_t serial = 0;
    std::unique_ptr<Record> record;
  };
  struct Flag {
    void set() { is = true; }
    bool get() const { return is; }
    bool is = false;
  };
  struct ByType {
    using Map = std::unordered_map<Tolvane::TypeInfo, std::unique_ptr<Node>>;
    void set() { map->try_emplace(typeid(EndOfWord)); }
    bool get() const { return map->find(typeid(EndOfWord)) != map->end(); }
    std::unique_ptr<Map> map = std::make_unique<Map>();
    // Two virtual tables, a pointer of its own with its serial, the number of the instance.
    std::array<std::uint64_t, 5> object{};
  };
  using Slot = std::conditional_t<Records, Recorded, Plain>;
  using End = std::conditional_t<Records, ByType, Flag>;
  struct Node {
    End end;
    std::array<Slot, 256> children;
  };
  static std::size_t walk(const Node& node, std::string& word) {
    std::size_t letters = node.end.get() ? word.size() : 0;
    for (std::size_t c = 0; c < 256; ++c) {
      if (!node.children[c].empty()) {
        word += static_cast<char>(c);
        letters += walk(*node.children[c].get(), word);
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
  bench::addLexicon<Naive<false>>("256 pointers");
  bench::addLexicon<Naive<true>>("floor, the same means");
  bench::note("Lexicon node", 1000, [] {
    auto made = std::make_shared<Ours>();
    made->insert(std::string(999, 'x'));
    return made;
  });
  bench::addLexicon<Set>("std::set");
  return true;
}();

} // namespace
