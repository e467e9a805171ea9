#pragma once

#include <array>
#include <cstdint>

/// @file
/// The letters on the pictures.

namespace fields {

/// A glyph of 5 by 8 dots, as five columns from the left; the lowest bit is the top. The last row
/// is for what hangs below the line.
using Glyph = std::array<std::uint8_t, 5>;

/// The glyph of a printable ASCII character; a box for any other.
const Glyph& glyphOf(char character);

} // namespace fields
