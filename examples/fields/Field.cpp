#include "Field.hpp"

#include <tolvane/Chunk.hpp>

#include <utility>

namespace fields {

using Tolvane::makeChunk;

Field::Field(const Variable& variable, const Piece& piece, Samples samples)
    : width_(variable.x->size()), height_(variable.y->size()), samples_(std::move(samples)) {
  attributes_.setAttribute("title",
                           makeChunk(variable.title.empty() ? variable.name : variable.title));
  attributes_.setAttribute("unit", makeChunk(variable.unit));
  if (variable.t) {
    attributes_.setAttribute("time", makeChunk(variable.t->label(variable.t->values[piece.time])));
  }
}

Field::~Field() = default;

Tolvane::memsize_t Field::bytesFor(const Variable& variable, std::size_t levels) {
  return sizeof(Field) + Tolvane::memsize_t{variable.x->size()} * variable.y->size() * levels *
                             variable.elementBytes;
}

} // namespace fields
