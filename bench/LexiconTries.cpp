// The static trie of marisa and the double array of libdatrie.
#include "LexiconBench.hpp"

#include <datrie/trie.h>
#include <marisa.h>

namespace {

/// It is built at once, so its insertion is not among the figures.
class Marisa {
public:
  void insert(const std::string& word) { keys_.push_back(word.c_str()); }
  bool has(const std::string& word) const {
    marisa::Agent agent;
    agent.set_query(word.c_str());
    return trie().lookup(agent);
  }
  std::size_t walk() const {
    marisa::Agent agent;
    agent.set_query("");
    std::size_t letters = 0;
    while (trie().predictive_search(agent)) {
      letters += agent.key().length();
    }
    return letters;
  }

private:
  const marisa::Trie& trie() const {
    if (keys_.size() > 0) {
      trie_.build(keys_);
      keys_.reset();
    }
    return trie_;
  }
  mutable marisa::Keyset keys_;
  mutable marisa::Trie trie_;
};

class Datrie {
public:
  Datrie() {
    AlphaMap* all = ::alpha_map_new();
    ::alpha_map_add_range(all, 1, 255);
    trie_ = ::trie_new(all);
    ::alpha_map_free(all);
  }
  ~Datrie() { ::trie_free(trie_); }
  void insert(const std::string& word) {
    AlphaChar letters[256];
    ::trie_store(trie_, spell(word, letters), 1);
  }
  bool has(const std::string& word) const {
    AlphaChar letters[256];
    return ::trie_retrieve(trie_, spell(word, letters), nullptr) != 0;
  }
  std::size_t walk() const {
    std::size_t letters = 0;
    ::trie_enumerate(
        trie_,
        [](const AlphaChar* word, TrieData, void* sum) -> Bool {
          while (*word++ != 0) {
            ++*static_cast<std::size_t*>(sum);
          }
          return TRUE;
        },
        &letters);
    return letters;
  }

private:
  static const AlphaChar* spell(const std::string& word, AlphaChar* letters) {
    AlphaChar* end = letters;
    for (const char c : word) {
      *end++ = static_cast<unsigned char>(c);
    }
    *end = 0;
    return letters;
  }
  Trie* trie_;
};

[[maybe_unused]] const bool added = [] {
  bench::addLexicon<Marisa>("marisa", false);
  bench::addLexicon<Datrie>("libdatrie");
  return true;
}();

} // namespace
