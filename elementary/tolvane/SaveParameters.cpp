#include <tolvane/SaveParameters.hpp>

#include <utility>

namespace Tolvane {

SaveParameters::SaveParameters(std::string destination) : destination_(std::move(destination)) {}

SaveParameters::SaveParameters(const SaveParameters& other)
    : ReferenceBase<SaveParameters>(), Intercube(), destination_(other.destination_) {}

SaveParameters::~SaveParameters() = default;

} // namespace Tolvane
