#pragma once

#include <cstdint>
#include <istream>
#include <string>

/// @file
/// How long a classic NetCDF file has to be.

namespace fields {

/// The number of bytes that a classic file needs for all that its header announces; 0 when it is
/// of another kind. The library takes a file that was cut off for one that ends in zeros, so this
/// is looked at beforehand. Throws FileError where the header is not in order.
std::uint64_t classicFileLength(std::istream& file);

} // namespace fields
