#include "DeepReleaseInternal.hpp"

#include <tolvane/Lexicon.hpp>

#include <vector>

namespace Tolvane {

Lexicon::Iterator::~Iterator() = default;

Lexicon::Lexicon() = default;

Lexicon::~Lexicon() {
  for (StrongPtr<Lexicon>& child : children_) {
    if (child) {
      detail::releaseDeep(child);
    }
  }
}

Lexicon& Lexicon::operator[](char c) {
  StrongPtr<Lexicon>& child = children_[static_cast<unsigned char>(c)];
  if (!child) {
    child = new Lexicon;
  }
  return *child;
}

bool Lexicon::iterate(std::string& word, unsigned depth, Iterator& iterator) const {
  constexpr unsigned End = 255;
  /// A node on the path to the current word. The visitor may cut it off, so the walk holds it.
  struct Step {
    StrongPtr<Lexicon> hold;
    const Lexicon* node;
    unsigned next = 0;
  };
  std::vector<Step> path;
  path.push_back({StrongPtr<Lexicon>::holdIfHeld(self()), this});
  while (!path.empty()) {
    Step& step = path.back();
    auto& children = step.node->children_;
    unsigned c = step.next;
    while (c < End && !children[c]) {
      ++c;
    }
    if (c == End) {
      path.pop_back();
      continue;
    }
    step.next = c + 1;
    word.resize(depth + path.size());
    word.back() = static_cast<char>(c);
    if (!iterator.visitWord(word, children[c])) {
      return false;
    }
    if (children[c]) {
      path.push_back({children[c], children[c].get()});
    }
  }
  return true;
}

bool Lexicon::traverse(Iterator& iterator) const {
  std::string word;
  return iterate(word, 0, iterator);
}

} // namespace Tolvane
