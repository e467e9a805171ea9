#pragma once

#include "data/Picture.hpp"

#include <functional>
#include <iosfwd>
#include <string>

/// @file
/// Writes files that are there as a whole or not at all.

namespace fields {

/// Writes a file beside its place and moves it there when it is complete. Throws Refusal.
void writeFile(const std::string& path, const std::function<void(std::ostream&)>& write);

/// Saves a picture in the format of the path's extension. `text` goes with it where the format has
/// a place for that. Throws Refusal.
void savePicture(const std::string& path, const Pixels& pixels, const std::string& text);

/// Throws Refusal when no module saves pictures in such a file.
void requireFormat(const std::string& path);

/// The extension that pictures get: that of PNG where a module saves it.
std::string pictureExtension();

} // namespace fields
