#pragma once

#include "ColourMap.hpp"

#include <map>
#include <string>

/// @file
/// All frames of a play at a glance.

namespace fields {

/// Small copies of frames, evenly chosen, in rows, each with its time or place.
class ContactSheet {
public:
  /// For the frames between two.
  ContactSheet(std::size_t first, std::size_t last);

  /// Takes a frame in, if it is one of those and not there yet.
  void add(std::size_t frame, const std::string& label, const Picture& picture);

  Pixels draw(const ColourMap& map) const;

private:
  struct Thumb {
    std::string label;
    Pixels pixels;
  };

  const std::size_t first_, step_;
  std::map<std::size_t, Thumb> thumbs_;
  std::string title_, unit_;
};

} // namespace fields
