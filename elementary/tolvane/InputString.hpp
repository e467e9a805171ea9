#pragma once

/// @file
/// A cursor over a text that keeps count of lines and columns.
///
/// Readers take characters, lines or whole tokens (see `Pelko::StreamString`) from it and can say
/// at any time where they stand.
///
/// @code
/// #include <iostream>
/// #include <tolvane/InputString.hpp>
///
/// void numberLines(const std::string& text) {
///   Pelko::input_string in(text);
///   while (!in.atEnd()) {
///     const auto number = in.line() + 1;
///     std::cout << number << ": " << in.getline() << '\n';
///     in.get(); // the line feed, which getline() leaves
///   }
/// }
/// @endcode

#include <tolvane/Api.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace Pelko {

namespace detail {
class TokenReader;
}

/// Reads a text from front to back and counts the lines and columns it passes.
///
/// The text may hold any byte, NUL included. Whatever operation consumes a character, a line feed
/// adds one to the line, sets the column to 0 and calls `newline()`; every other byte adds one to
/// the column. Lines and columns count from 0 and start again at 0 after 2^32 - 1.
///
/// @par Thread safety
/// None: an object belongs to one thread at a time. Different objects are independent.
class TOLVANE_API input_string {
public:
  /// A cursor at the start of `text`, of which it keeps its own copy.
  explicit input_string(std::string text);
  input_string(const input_string&) = delete;
  input_string& operator=(const input_string&) = delete;
  virtual ~input_string();

  /// The whole text, read or not.
  const std::string& text() const noexcept { return text_; }
  /// Index into `text()` of the next character to read; its size at the end.
  unsigned long long position() const noexcept { return position_; }
  /// Number of line feeds consumed so far.
  std::uint32_t line() const noexcept { return line_; }
  /// Number of bytes consumed since the last line feed.
  std::uint32_t column() const noexcept { return column_; }
  /// Whether everything has been read.
  bool atEnd() const noexcept { return position_ >= text_.size(); }

  /// Consumes one character: (true, the character), or (false, 0) at the end of the text.
  std::pair<bool, char> get() {
    return atEnd() ? std::pair(false, '\0') : std::pair(true, advance());
  }
  /// What `get()` would answer, without consuming it.
  std::pair<bool, char> peek() const noexcept {
    return atEnd() ? std::pair(false, '\0')
                   : std::pair(true, text_[static_cast<std::size_t>(position_)]);
  }

  /// Consumes the rest of the line and returns it without its carriage returns. The line feed is
  /// left for the next read, so a loop over lines takes it with `get()` or `skipspace()`.
  std::string getline();
  /// Consumes white space: whatever the C library's `isspace` says is one, line feeds and carriage
  /// returns included.
  /// @return the number of bytes consumed
  unsigned long long skipspace();

  /// The rest of the line up to a line feed, a NUL or the end; the position does not move.
  std::string peekline() const;
  /// The whole line the position is in, without its line feed; the position does not move. A line
  /// feed belongs to the line that it ends.
  std::string currentline() const;
  /// The line before `currentline()`, empty in the first one; the position does not move.
  std::string previousline() const;

protected:
  /// Called each time a line feed has been consumed, whichever operation consumed it. Does nothing
  /// here. It may read on from this object; an exception it throws leaves the operation with the
  /// line feed consumed, and the token, the byte or the count that it was to return is lost.
  /// @param position index of the character after the line feed
  virtual void newline(unsigned long long position);

private:
  friend class detail::TokenReader;

  // The only place that moves the cursor by a character, so that every operation counts alike. The
  // hook comes last: when it throws or reads on, the line feed has been counted.
  char advance() {
    const char c = text_[static_cast<std::size_t>(position_)];
    ++position_;
    if (c == '\n') {
      ++line_;
      column_ = 0;
      newline(position_);
    } else {
      ++column_;
    }
    return c;
  }
  std::string::size_type lineStart() const noexcept;

  std::string text_;
  unsigned long long position_ = 0;
  std::uint32_t line_ = 0;
  std::uint32_t column_ = 0;
};

} // namespace Pelko
