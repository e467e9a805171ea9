#include "FileError.hpp"

namespace fields {

FileError::~FileError() = default;

} // namespace fields
