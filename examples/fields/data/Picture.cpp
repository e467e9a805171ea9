#include "Picture.hpp"

namespace fields {

Picture::Picture(Pixels pixels, const Rectangle& plot, const Tolvane::Attributes& attributes)
    : pixels_(std::move(pixels)), plot_(plot), attributes_(attributes) {}

Picture::~Picture() = default;

Tolvane::memsize_t Picture::memsize() const {
  return bytesFor(pixels_.width, pixels_.height);
}

Tolvane::memsize_t Picture::bytesFor(int width, int height) {
  return sizeof(Picture) + sizeof(Colour) * static_cast<Tolvane::memsize_t>(width) *
                               static_cast<Tolvane::memsize_t>(height);
}

} // namespace fields
