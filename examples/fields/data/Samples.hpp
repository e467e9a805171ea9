#pragma once

#include <cstddef>
#include <cstdint>
#include <variant>
#include <vector>

/// @file
/// The values of a field in the type that the file has them in.

namespace fields {

/// Numbers with a common factor and offset. A value that is missing is NaN.
struct Samples {
  using Bytes = std::vector<std::uint8_t>;
  using Shorts = std::vector<std::int16_t>;
  using Floats = std::vector<float>;

  std::variant<Bytes, Shorts, Floats> raw;
  float factor = 1;
  float offset = 0;

  float at(std::size_t index) const {
    const float value =
        std::visit([index](const auto& values) { return static_cast<float>(values[index]); }, raw);
    return value * factor + offset;
  }

  std::size_t size() const {
    return std::visit([](const auto& values) { return values.size(); }, raw);
  }

  std::size_t bytes() const {
    return std::visit([](const auto& values) { return values.size() * sizeof values[0]; }, raw);
  }
};

} // namespace fields
