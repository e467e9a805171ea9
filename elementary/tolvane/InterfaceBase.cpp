#include <tolvane/InterfaceBase.hpp>

namespace Tolvane {

InterfaceIterationParameter::~InterfaceIterationParameter() = default;

InterfaceBase::~InterfaceBase() = default;

bool InterfaceBase::apply_const(const Intercube&, const StrongPtr<InterfaceIterationParameter>&) {
  return true;
}

bool InterfaceBase::apply(Intercube&, const StrongPtr<InterfaceIterationParameter>&) {
  return true;
}

} // namespace Tolvane
