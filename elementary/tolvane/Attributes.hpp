#pragma once

#include <tolvane/Api.hpp>
#include <tolvane/ChunkBase.hpp>

#include <cstddef>
#include <map>
#include <string>

/// @file
/// A small set of named properties. Loaders and load parameters describe themselves with one.
///
/// @code
/// #include <tolvane/Attributes.hpp>
/// #include <tolvane/Chunk.hpp>
///
/// Tolvane::Attributes attributes;
/// attributes.setAttribute("unit", Tolvane::makeChunk("mm"));
/// attributes.setAttribute("slices", Tolvane::makeChunk(316));
/// assert(std::to_string(attributes) == "( slices unit )");
/// @endcode

namespace Tolvane {

/// Chunks by name, in the byte order of the names. An entry is never removed.
///
/// A copy shares the chunks.
///
/// Thread safety: none; users of one set serialise, unless all of them only read. Only the counts
/// of the chunks are atomic.
class TOLVANE_API Attributes {
public:
  /// Visits the entries of a set.
  class TOLVANE_API Iterator {
  public:
    virtual ~Iterator();

    /// Called with each name and its value, which may be empty. The value is the entry itself: what
    /// is assigned to it is stored. Entries may be added meanwhile, or the whole set replaced;
    /// those whose names come later are visited. True goes on, false ends the walk. The set itself
    /// must outlive the walk.
    virtual bool visitAttribute(const std::string& name, StrongPtr<ChunkBase>& value) = 0;
  };

  /// An empty set, stamped with the logical clock (Ageable::GlobalTime) as it stands.
  Attributes();
  /// The entries of `other`, with a stamp of its own.
  Attributes(const Attributes& other);
  /// Takes the entries of `other` in place of its own; the stamp stays.
  Attributes& operator=(const Attributes& other);
  /// Releases the chunks.
  ~Attributes();

  /// Adds an entry, or replaces the value of the one that is there. An empty pointer is stored as
  /// it is. @throws std::bad_alloc when there is no memory for the entry.
  void setAttribute(const std::string& name, const StrongPtr<ChunkBase>& value);

  /// The value of that name; an empty pointer when there is no such entry.
  StrongPtr<ChunkBase> getAttribute(const std::string& name) const;

  /// Whether there is an entry of that name, be it with an empty pointer.
  bool hasAttribute(const std::string& name) const;

  /// Calls `iterator` for each entry in the order of the names, until it answers false. Returns how
  /// often it answered true.
  int iterate(Iterator& iterator) const;

  /// "( ", each name with a blank behind it, and ")".
  std::string toString() const;

  /// The number of entries.
  std::size_t size() const noexcept { return entries_.size(); }

  /// The time on the logical clock when the set was made.
  long long stamp() const noexcept { return stamp_; }

private:
  // Visitors of a const set may change its values.
  mutable std::map<std::string, StrongPtr<ChunkBase>> entries_;
  long long stamp_;
};

} // namespace Tolvane

namespace std {

/// The same as `attributes.toString()`.
TOLVANE_API string to_string(const Tolvane::Attributes& attributes);

} // namespace std
