#pragma once

/// @file
/// Words of a list in one text.

#include <string>

namespace fields {

/// The words with blanks between them.
template <class List>
std::string joined(const List& words) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : " ") + word;
  }
  return text;
}

} // namespace fields
