#pragma once

#include "Field.hpp"
#include "Maker.hpp"

/// @file
/// Reads fields.

namespace fields {

using DatasetPtr = Tolvane::StrongPtr<Dataset>;

/// Reads one time step of a variable from its file. A progress reporter among its interfaces hears
/// how far that is.
class FieldReader : public Maker<Field> {
public:
  FieldReader(Workshop& workshop, DatasetPtr dataset, const Variable& variable, const Piece& piece,
              const Origin& file);

protected:
  Pointer make() override;

private:
  const DatasetPtr dataset_;
  const Variable variable_;
  const Piece piece_;
};

using FieldReaderPtr = Tolvane::StrongPtr<FieldReader, Tolvane::Creature>;

} // namespace fields
