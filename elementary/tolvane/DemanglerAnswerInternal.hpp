#pragma once

#include <stdexcept>
#include <string>

/// @file
/// What the readable names make of the demangler's answers. Internal to the library, not installed.

namespace Tolvane::detail {

/// What `demangleSymbol` answers for `name` when the demangler gave `text` (or null) and `status`.
/// Throws std::logic_error when there is neither a text nor a name.
inline std::string demanglerAnswer(const char* name, const char* text, int status) {
  if (text && status == 0)
    return text;
  if (!name)
    throw std::logic_error("basic_string: construction from null is not valid");
  const std::string given = name;
  switch (status) {
  case -1:
    return given + " - A memory allocation failure occurred on cxa_demangle.";
  case -2:
    return given + " [C ABI]";
  case -3:
    return given + " - One of the arguments is invalid.";
  default:
    return given + " - Unknown cxa demangle error";
  }
}

} // namespace Tolvane::detail
