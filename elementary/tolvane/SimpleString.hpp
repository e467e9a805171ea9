#pragma once

/// @file
/// A small owning string: a heap copy of a character sequence together with its length.
/// Exception records keep their texts in it, because its layout is the library's own and does not
/// change with the standard library of the module that catches the exception.
///
/// @code
/// #include <tolvane/SimpleString.hpp>
///
/// Tolvane::simplestring name("brick\0one", 9); // may hold NUL characters
/// std::string text = name.str();
/// @endcode

#include <tolvane/Api.hpp>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace Tolvane {

/// An owning character sequence with its length. An empty one owns no memory.
///
/// @par Thread safety
/// As for a standard string: concurrent reads are safe, a write needs exclusive access.
class TOLVANE_API simplestring {
public:
  /// An empty string.
  simplestring() noexcept = default;

  /// Copies @p length characters from @p text, NUL characters included.
  /// @param text  not owned; a null pointer gives an empty string, whatever the length.
  /// @throws std::bad_alloc when there is no memory for the copy.
  simplestring(const char* text, std::size_t length);

  /// Copies @p text with all its characters.
  /// @throws std::bad_alloc when there is no memory for the copy.
  simplestring(const std::string& text);

  /// Copies @p other. @throws std::bad_alloc when there is no memory for the copy.
  simplestring(const simplestring& other);

  /// Takes the characters over and leaves @p other empty.
  simplestring(simplestring&& other) noexcept;

  /// Copies @p other; when that throws `std::bad_alloc`, this string is unchanged.
  simplestring& operator=(const simplestring& other);

  /// Takes the characters over and leaves @p other empty.
  simplestring& operator=(simplestring&& other) noexcept;

  ~simplestring();

  /// The number of characters.
  std::size_t size() const noexcept { return length_; }

  /// Whether there are no characters.
  bool empty() const noexcept { return length_ == 0; }

  /// The characters, followed by one NUL; never null. Owned by this string and valid until it is
  /// assigned to or destroyed.
  const char* c_str() const noexcept { return text_ ? text_.get() : ""; }

  /// The characters as a view, valid as long as the result of `c_str()`.
  std::string_view view() const noexcept { return {c_str(), length_}; }

  /// A copy of the characters.
  std::string str() const { return {c_str(), length_}; }

  /// Whether both hold the same characters.
  friend bool operator==(const simplestring& a, const simplestring& b) noexcept {
    return a.view() == b.view();
  }

private:
  std::unique_ptr<char[]> text_;
  std::size_t length_ = 0;
};

} // namespace Tolvane
