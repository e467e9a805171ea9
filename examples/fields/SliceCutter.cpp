#include "SliceCutter.hpp"

#include <tolvane/Chunk.hpp>

#include <utility>

namespace fields {
namespace {

std::string placeOf(const Variable& variable, const Cut& cut) {
  const AxisPtr axis = cut.through(variable);
  if (!axis) {
    return {};
  }
  return axis->name + ' ' + axis->label(axis->values[cut.index]) + axis->unitBehind();
}

} // namespace

AxisPtr Cut::horizontal(const Variable& variable) const {
  return across == Across::X ? variable.y : variable.x;
}

AxisPtr Cut::vertical(const Variable& variable) const {
  return across == Across::Z ? variable.y : variable.z;
}

AxisPtr Cut::through(const Variable& variable) const {
  return across == Across::X ? variable.x : across == Across::Y ? variable.y : variable.z;
}

SliceCutter::SliceCutter(Workshop& workshop, FieldReaderPtr source, const Variable& variable,
                         const Cut& cut, std::size_t firstLevel)
    : Maker(workshop, placeOf(variable, cut).empty() ? "slice" : "slice " + placeOf(variable, cut),
            source->origin()),
      source_(std::move(source)), variable_(variable), cut_(cut), firstLevel_(firstLevel) {}

SliceCutter::Pointer SliceCutter::make() {
  const FieldReader::Pointer source = workshop().obtain(*source_);
  const Field& field = *source;
  const AxisPtr x = cut_.horizontal(variable_), y = cut_.vertical(variable_);
  std::vector<float> values;
  values.reserve(x->size() * y->size());
  for (std::size_t j = 0; j < y->size(); ++j) {
    for (std::size_t i = 0; i < x->size(); ++i) {
      values.push_back(cut_.across == Across::X   ? field.at(cut_.index, i, j)
                       : cut_.across == Across::Y ? field.at(i, cut_.index, j)
                                                  : field.at(i, j, cut_.index - firstLevel_));
    }
  }
  Tolvane::Attributes attributes(field.attributes());
  attributes.setAttribute("place", Tolvane::makeChunk(placeOf(variable_, cut_)));
  return new Plane(x, y, std::move(values), attributes);
}

} // namespace fields
