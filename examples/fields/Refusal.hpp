#pragma once

#include <stdexcept>
#include <string>

/// @file
/// Why a command cannot be carried out.

namespace fields {

/// Carries one line that says what is wrong and what to do.
class Refusal : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

} // namespace fields
