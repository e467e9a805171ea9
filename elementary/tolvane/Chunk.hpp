#pragma once

#include <tolvane/ChunkBase.hpp>

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

/// @file
/// Chunks of one plain value or one string, so that a unit, a time or a factor can be attached
/// without writing a class.
///
/// @code
/// #include <tolvane/Attributes.hpp>
/// #include <tolvane/Chunk.hpp>
///
/// Tolvane::Attributes attributes;
/// attributes.setAttribute("unit", Tolvane::makeChunk("mm"));
/// attributes.setAttribute("time", Tolvane::makeChunk(0.25));
/// assert(Tolvane::chunkValue<std::string>(attributes.getAttribute("unit")) == "mm");
/// assert(!Tolvane::chunkValue<int>(attributes.getAttribute("time"))); // it is a double
/// @endcode

namespace Tolvane {

namespace detail {

template <class T>
inline constexpr bool isString = false;
template <class Character, class Traits, class Allocator>
inline constexpr bool isString<std::basic_string<Character, Traits, Allocator>> = true;

/// Types that can be copied byte by byte, but refer to what somebody else owns.
template <class T>
inline constexpr bool isReference = std::is_pointer_v<T>;
template <class Character, class Traits>
inline constexpr bool isReference<std::basic_string_view<Character, Traits>> = true;
template <class T, std::size_t extent>
inline constexpr bool isReference<std::span<T, extent>> = true;

} // namespace detail

/// A chunk that holds one value of type `T`, and counts it in `ChunkBase::TotalMemsize` as long as
/// it lives.
///
/// Thread safety: none; threads that share a chunk, one of them setting it, serialise.
template <class T>
class Chunk : public ChunkBase {
  static_assert((std::is_trivially_copyable_v<T> && !detail::isReference<T>) || detail::isString<T>,
                "Chunk holds plain values and strings: derive a class of your own from ChunkBase "
                "for anything that owns or refers to other data");

public:
  /// Holds `value`.
  explicit Chunk(T value) : value_(std::move(value)) { TotalMemsize += memsize(); }

  /// Takes the value out of the account.
  ~Chunk() override {
    TotalMemsize -= memsize();
    destructor_debug_info(static_cast<long>(memsize()), typeid(T));
  }

  Chunk(const Chunk&) = delete;
  Chunk& operator=(const Chunk&) = delete;

  /// The value, which the chunk owns.
  const T& value() const noexcept { return value_; }

  /// Replaces the value.
  void setValue(T value) {
    const memsize_t before = memsize();
    value_ = std::move(value);
    TotalMemsize += memsize() - before; // a shrink wraps, and so subtracts
  }

  /// What is counted for the value: its size in bytes, and the characters of a string.
  memsize_t memsize() const noexcept {
    if constexpr (detail::isString<T>) {
      return sizeof(T) + value_.size() * sizeof(typename T::value_type);
    } else {
      return sizeof(T);
    }
  }

private:
  T value_;
};

/// A new chunk of `value`.
template <class T>
StrongPtr<Chunk<T>, ChunkBase> makeChunk(T value) {
  return new Chunk<T>(std::move(value));
}

/// A new chunk of a string, copied from `text`, which must not be null.
inline StrongPtr<Chunk<std::string>, ChunkBase> makeChunk(const char* text) {
  return makeChunk(std::string(text));
}

/// A new chunk of a string, copied from what `text` refers to.
template <class Character, class Traits>
StrongPtr<Chunk<std::basic_string<Character, Traits>>, ChunkBase>
makeChunk(std::basic_string_view<Character, Traits> text) {
  return makeChunk(std::basic_string<Character, Traits>(text));
}

/// A copy of the value of a chunk; nothing when the pointer is empty or the chunk holds a value of
/// another type.
template <class T>
std::optional<T> chunkValue(const StrongPtr<ChunkBase>& chunk) {
  if (const StrongPtr<Chunk<T>, ChunkBase> held{chunk}) {
    return held->value();
  }
  return std::nullopt;
}

} // namespace Tolvane
