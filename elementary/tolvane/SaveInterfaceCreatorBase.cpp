#include <tolvane/SaveInterfaceCreatorBase.hpp>

#include <utility>

namespace Tolvane {

SaveInterfaceCreatorBase::SaveInterfaceCreatorBase(std::string name, std::string description)
    : name_(std::move(name)), description_(std::move(description)) {}

SaveInterfaceCreatorBase::~SaveInterfaceCreatorBase() = default;

} // namespace Tolvane
