// A module that gives one of its types a name for as long as it is loaded.

#include <tolvane/Typename.hpp>

namespace {

struct TypeOfTheModule {};

const Tolvane::DefineTypename<TypeOfTheModule> name("the module's type");

} // namespace
