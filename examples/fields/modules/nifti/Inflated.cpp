#include "Inflated.hpp"

#include "../../data/FileError.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace fields {

Inflated::Inflated(const std::string& path) {
  errno = 0;
  file_ = gzopen(path.c_str(), "rb");
  if (file_ == nullptr) {
    throw FileError(std::string("cannot be opened: ") + std::strerror(errno));
  }
  gzbuffer(file_, 1U << 17);
}

std::size_t Inflated::readSome(std::span<std::uint8_t> bytes) {
  errno = 0;
  const int count = gzread(file_, bytes.data(), static_cast<unsigned>(bytes.size()));
  int state = Z_OK;
  const char* text = gzerror(file_, &state);
  if (state == Z_BUF_ERROR) {
    throw FileError("is cut off, after " +
                    std::to_string(read_ + static_cast<std::uint64_t>(std::max(count, 0))) +
                    " bytes of its content; get the file anew");
  }
  if (count < 0) {
    throw FileError(state == Z_ERRNO ? std::string("cannot be read: ") + std::strerror(errno)
                                     : std::string("is damaged (") + text + "); get the file anew");
  }
  read_ += static_cast<std::uint64_t>(count);
  return static_cast<std::size_t>(count);
}

void Inflated::read(std::span<std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const std::size_t count = readSome(bytes.first(std::min<std::size_t>(bytes.size(), 1U << 30)));
    if (count == 0) {
      throw FileError("is cut off: it ends after " + std::to_string(read_) + " of at least " +
                      std::to_string(read_ + bytes.size()) + " bytes; get the file anew");
    }
    bytes = bytes.subspan(count);
  }
}

void Inflated::skip(std::uint64_t bytes) {
  std::array<std::uint8_t, 4096> passed{};
  while (bytes > 0) {
    const std::size_t count = std::min<std::uint64_t>(bytes, passed.size());
    read(std::span(passed).first(count));
    bytes -= count;
  }
}

void Inflated::expectEnd() {
  std::array<std::uint8_t, 1> more{};
  if (readSome(more) != 0) {
    throw FileError("is damaged: it has more voxels than its header says");
  }
}

} // namespace fields
