#include "Picture.hpp"

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <new>
#include <numeric>
#include <span>
#include <string_view>
#include <system_error>
#include <zlib.h>

namespace bricks {

namespace {

using Bytes = std::vector<std::uint8_t>;

void appendNumber(Bytes& bytes, std::uint32_t number) {
  for (int shift = 24; shift >= 0; shift -= 8) {
    bytes.push_back(static_cast<std::uint8_t>(number >> shift));
  }
}

void appendChunk(Bytes& png, std::string_view type, std::span<const std::uint8_t> content) {
  appendNumber(png, static_cast<std::uint32_t>(content.size()));
  const std::size_t checked = png.size();
  png.insert(png.end(), type.begin(), type.end());
  png.insert(png.end(), content.begin(), content.end());
  appendNumber(png, static_cast<std::uint32_t>(
                        crc32(0, &png[checked], static_cast<uInt>(png.size() - checked))));
}

Bytes deflated(const Bytes& bytes) {
  uLongf size = compressBound(static_cast<uLong>(bytes.size()));
  Bytes result(size);
  if (compress2(result.data(), &size, bytes.data(), static_cast<uLong>(bytes.size()), 9) != Z_OK) {
    throw std::bad_alloc();
  }
  result.resize(size);
  return result;
}

} // namespace

void Picture::spreadShades() {
  std::array<std::size_t, 256> upTo{}; // the number of pixels that are not black, up to each shade
  for (const std::uint8_t pixel : pixels_) {
    upTo[pixel] += pixel != 0 ? 1 : 0;
  }
  std::partial_sum(upTo.begin(), upTo.end(), upTo.begin());
  for (std::uint8_t& pixel : pixels_) {
    if (pixel != 0) {
      pixel = static_cast<std::uint8_t>(255 * upTo[pixel] / upTo.back());
    }
  }
}

void Picture::write(const std::string& path) const {
  Bytes header;
  appendNumber(header, static_cast<std::uint32_t>(width_));
  appendNumber(header, static_cast<std::uint32_t>(height_));
  header.insert(header.end(), {8, 0, 0, 0, 0}); // 8 bits of grey, nothing special
  Bytes rows;
  for (std::size_t y = 0; y < height_; ++y) {
    const auto row = std::span(pixels_).subspan(y * width_, width_);
    rows.push_back(0); // no filter
    rows.insert(rows.end(), row.begin(), row.end());
  }
  Bytes png{0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
  appendChunk(png, "IHDR", header);
  appendChunk(png, "IDAT", deflated(rows));
  appendChunk(png, "IEND", {});

  const std::string part = path + ".part";
  const auto fail = [&] {
    const int code = errno != 0 ? errno : EIO;
    std::error_code ignored;
    std::filesystem::remove(part, ignored);
    throw std::system_error(code, std::generic_category(), path + ": cannot be written");
  };
  errno = 0;
  std::ofstream file(part, std::ios::binary);
  if (!file) {
    throw std::system_error(errno, std::generic_category(), path + ": cannot be written");
  }
  file.write(reinterpret_cast<const char*>(png.data()), static_cast<std::streamsize>(png.size()));
  file.close();
  if (!file) {
    fail();
  }
  std::error_code error;
  std::filesystem::rename(part, path, error);
  if (error) {
    errno = error.value();
    fail();
  }
}

} // namespace bricks
