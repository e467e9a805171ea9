#include <tolvane/TextStream.hpp>
#include <tolvane/Typename.hpp>

#include <charconv>
#include <cstdio>

namespace Tolvane::detail {
namespace {

// The longest double has 24 characters, the longest integer 20, so there is always room.
template <typename Number>
std::size_t write(char* begin, char* end, Number value) {
  return static_cast<std::size_t>(std::to_chars(begin, end, value).ptr - begin);
}

} // namespace

NumberText::NumberText(long long value) noexcept
    : size_(write(buffer_, buffer_ + sizeof buffer_, value)) {}

NumberText::NumberText(unsigned long long value) noexcept
    : size_(write(buffer_, buffer_ + sizeof buffer_, value)) {}

NumberText::NumberText(double value) noexcept
    : size_(write(buffer_, buffer_ + sizeof buffer_, value)) {}

NumberText::NumberText(const void* value) noexcept
    : size_(static_cast<std::size_t>(std::snprintf(buffer_, sizeof buffer_, "%p", value))) {}

std::string typeText(const std::type_info& type) {
  return Typename(type);
}

} // namespace Tolvane::detail
