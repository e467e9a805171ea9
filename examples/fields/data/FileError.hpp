#pragma once

#include "Api.hpp"

#include <stdexcept>
#include <string>

/// @file
/// What is wrong with a file.

namespace fields {

/// Says what is wrong with a file and what to do, without the file's name.
class FIELDS_API FileError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
  FileError(const FileError& other) = default;
  ~FileError() override;
};

} // namespace fields
