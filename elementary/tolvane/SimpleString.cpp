#include <tolvane/SimpleString.hpp>

#include <cstring>
#include <utility>

namespace Tolvane {

simplestring::simplestring(const char* text, std::size_t length) {
  if (!text || length == 0)
    return;
  text_ = std::make_unique<char[]>(length + 1);
  std::memcpy(text_.get(), text, length);
  length_ = length;
}

simplestring::simplestring(const std::string& text) : simplestring(text.data(), text.size()) {}

simplestring::simplestring(const simplestring& other)
    : simplestring(other.text_.get(), other.length_) {}

simplestring::simplestring(simplestring&& other) noexcept
    : text_(std::move(other.text_)), length_(std::exchange(other.length_, 0)) {}

simplestring& simplestring::operator=(const simplestring& other) {
  return *this = simplestring(other);
}

simplestring& simplestring::operator=(simplestring&& other) noexcept {
  // Through a temporary, so that assigning a string to itself keeps its characters.
  simplestring taken(std::move(other));
  std::swap(text_, taken.text_);
  std::swap(length_, taken.length_);
  return *this;
}

simplestring::~simplestring() = default;

} // namespace Tolvane
