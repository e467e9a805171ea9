#include "FieldReader.hpp"

#include "Refusal.hpp"
#include "data/FileError.hpp"

#include <tolvane/Verbose.hpp>

#include <utility>

namespace fields {

FieldReader::FieldReader(Workshop& workshop, DatasetPtr dataset, const Variable& variable,
                         const Piece& piece, const Origin& file)
    : Maker(workshop,
            variable.name +
                (variable.t ? " at " + variable.t->label(variable.t->values[piece.time]) : ""),
            file),
      dataset_(std::move(dataset)), variable_(variable), piece_(piece) {}

FieldReader::Pointer FieldReader::make() {
  TOLVANE_VERBOSE_DOMAIN(5, "Fields")
      << "reading " << variable_.name << ", time " << piece_.time + 1 << ", level "
      << piece_.level + 1 << " and " << piece_.levels - 1 << " more";
  try {
    return new Field(variable_, piece_,
                     dataset_->read(variable_, piece_, findInterface<Tolvane::LoaderProgress>()));
  } catch (const FileError& error) {
    throw Refusal(dataset_->path() + ": " + error.what());
  }
}

} // namespace fields
