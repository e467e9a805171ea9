#pragma once

#include "data/Dataset.hpp"

#include <tolvane/Attributes.hpp>
#include <tolvane/Cacheable.hpp>

/// @file
/// The values of a variable at one time.

namespace fields {

/// A time step of a variable, on one level or on all of them, as it was read.
class Field : public Tolvane::Cacheable {
public:
  Field(const Variable& variable, const Piece& piece, Samples samples);
  ~Field() override;

  float at(std::size_t x, std::size_t y, std::size_t z) const {
    return samples_.at((z * height_ + y) * width_ + x);
  }

  /// The title, the unit, and the time that it stands for.
  const Tolvane::Attributes& attributes() const { return attributes_; }

  Tolvane::memsize_t memsize() const override { return sizeof *this + samples_.bytes(); }
  /// The same before there is one.
  static Tolvane::memsize_t bytesFor(const Variable& variable, std::size_t levels);

private:
  const std::size_t width_, height_;
  const Samples samples_;
  Tolvane::Attributes attributes_;
};

} // namespace fields
