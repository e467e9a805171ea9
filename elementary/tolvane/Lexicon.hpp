#pragma once

#include <tolvane/Api.hpp>
#include <tolvane/Intercube.hpp>

#include <array>
#include <string>

/// @file
/// A trie of bytes: each node has a child for every byte value, and the path from the root spells a
/// word. What belongs to a word is attached to its node as an interface.
///
/// @code
/// #include <tolvane/Lexicon.hpp>
///
/// struct Meaning : Tolvane::Interface<Meaning> { std::string text; };
///
/// Tolvane::Lexicon lexicon;
/// lexicon['a']['b'].addInterface(new Meaning);
///
/// struct Print : Tolvane::Lexicon::Iterator {
///   bool visitWord(std::string& word, Tolvane::StrongPtr<Tolvane::Lexicon>& node) override {
///     if (node->hasInterface<Meaning>()) {
///       std::cout << word << '\n';
///     }
///     return true;
///   }
/// } print;
/// lexicon.traverse(print); // visits "a" and "ab", prints "ab"
/// @endcode

namespace Tolvane {

/// A node of the trie, and by its children the trie below it.
///
/// A node takes 4152 bytes on 64-bit platforms, most of it for the 256 pointers to its children,
/// and two small allocations beside it; see docs/lexicon.md for measured figures. Words may be as
/// long as memory lasts: neither a walk nor the release of a trie needs a stack that grows with
/// them.
///
/// Thread safety: none; one thread at a time builds or walks a trie. Only the counts are atomic.
class TOLVANE_API Lexicon : public ReferenceBase<Lexicon>, public Intercube {
public:
  /// Visits the words of a trie, that is, its nodes.
  class TOLVANE_API Iterator {
  public:
    virtual ~Iterator();

    /// Called with each word and its node, before the words that extend it. The node is the slot of
    /// its parent: the visitor may replace or empty it, and what then stands there is walked. The
    /// visitor may change the text as well; the walk goes on with the characters that it leaves.
    /// True goes on, false ends the walk.
    virtual bool visitWord(std::string& word, StrongPtr<Lexicon>& node) = 0;
  };

  /// A node without children and interfaces.
  Lexicon();
  /// Releases the children that nobody else holds, and all that is below them.
  ~Lexicon() override;

  /// The child for a byte, made when there is none. To hold it, make a pointer of its address:
  /// `StrongPtr<Lexicon>(&lexicon['a'])`. @throws std::bad_alloc when there is no memory for it.
  Lexicon& operator[](char c);

  /// The slot for a byte; empty when there is no child.
  StrongPtr<Lexicon>& operator()(char c) const { return children_[static_cast<unsigned char>(c)]; }

  /// Walks over all nodes below this one, a word before its extensions and bytes in ascending
  /// unsigned order. The words begin with the first `depth` characters of `word`, which is filled
  /// up with NULs if it is shorter; it serves as the buffer and has any value afterwards. Returns
  /// false if the visitor ended the walk, else true.
  ///
  /// Children for the byte 255 are never visited, nor what is below them; only `[]` and `()` reach
  /// them.
  bool iterate(std::string& word, unsigned depth, Iterator& iterator) const;

  /// The same with a buffer of its own, from an empty word on.
  bool traverse(Iterator& iterator) const;

private:
  // The slots of a const node can be changed: a node is a place, not a value.
  mutable std::array<StrongPtr<Lexicon>, 256> children_;
};

} // namespace Tolvane
