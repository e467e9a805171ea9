#include "VolumeFile.hpp"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <span>
#include <sys/types.h>
#include <system_error>
#include <zlib.h>

namespace bricks {

namespace {

constexpr std::size_t HeaderSize = 348;
constexpr std::int32_t UnsignedByte = 2;

[[noreturn]] void systemError(const char* what) {
  throw std::system_error(errno != 0 ? errno : EIO, std::generic_category(), what);
}

/// A file that is read from its beginning to its end, inflated where it is compressed.
class Input {
public:
  explicit Input(const std::string& path) : path_(path) {
    errno = 0;
    file_ = gzopen(path.c_str(), "rb");
    if (file_ == nullptr) {
      fail(std::string("cannot be opened: ") + std::strerror(errno));
    }
    gzbuffer(file_, 1U << 17);
  }
  ~Input() { gzclose(file_); }
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  /// Reads as many bytes as there are, up to the size of `bytes`. Returns their number.
  std::size_t readSome(std::span<std::uint8_t> bytes) {
    errno = 0;
    const int count = gzread(file_, bytes.data(), static_cast<unsigned>(bytes.size()));
    int state = Z_OK;
    const char* text = gzerror(file_, &state);
    if (state == Z_BUF_ERROR) {
      fail("is cut off, after " + std::to_string(read_ + static_cast<std::uint64_t>(count)) +
           " bytes of its content");
    }
    if (count < 0) {
      fail(state == Z_ERRNO ? std::string("cannot be read: ") + std::strerror(errno)
                            : std::string("is damaged: ") + text);
    }
    read_ += static_cast<std::uint64_t>(count);
    return static_cast<std::size_t>(count);
  }

  std::uint64_t read() const { return read_; }
  [[noreturn]] void fail(const std::string& reason) const { throw VolumeError(path_, reason); }

private:
  const std::string path_;
  gzFile file_;
  std::uint64_t read_ = 0;
};

/// What a header says, in the byte order that it is written in.
class Header {
public:
  explicit Header(Input& input) : input_(input) {
    if (input.readSome(bytes_) < HeaderSize) {
      input.fail("is no NIfTI-1 volume: it is shorter than a header");
    }
    bigEndian_ = bytes_[0] == 0;
    if (number(0, 4) != HeaderSize || std::memcmp(&bytes_[344], "n+1", 4) != 0) {
      input.fail("is no NIfTI-1 volume in one file");
    }
  }

  Extent extent() const {
    const auto size = [this](std::size_t index) {
      return static_cast<std::int16_t>(number(40 + 2 * index, 2));
    };
    bool volume = size(0) >= 3 && size(0) <= 7;
    for (std::size_t i = 1; volume && i <= static_cast<std::size_t>(size(0)); ++i) {
      volume = i <= 3 ? size(i) > 0 : size(i) <= 1;
    }
    if (!volume) {
      input_.fail("does not have the three dimensions of a volume");
    }
    return {static_cast<std::size_t>(size(1)), static_cast<std::size_t>(size(2)),
            static_cast<std::size_t>(size(3))};
  }

  /// Where the voxels begin.
  std::uint64_t dataOffset() const {
    if (number(70, 2) != UnsignedByte) {
      input_.fail("has voxels of type " + std::to_string(number(70, 2)) +
                  "; unsigned bytes are wanted (type 2)");
    }
    const auto offset = std::bit_cast<float>(number(108, 4));
    if (!(offset >= float{HeaderSize} && offset < 1e9F)) {
      input_.fail("does not say where its voxels begin");
    }
    return static_cast<std::uint64_t>(offset);
  }

private:
  std::uint32_t number(std::size_t offset, std::size_t size) const {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < size; ++i) {
      value = value << 8 | bytes_[offset + (bigEndian_ ? i : size - 1 - i)];
    }
    return value;
  }

  Input& input_;
  std::array<std::uint8_t, HeaderSize> bytes_{};
  bool bigEndian_ = false;
};

} // namespace

VolumeFile::VolumeFile(const std::string& path) {
  Input input(path);
  const Header header(input);
  extent_ = header.extent();

  std::vector<std::uint8_t> buffer(1U << 20);
  const auto next = [&](std::uint64_t end) {
    const std::size_t wanted = std::min<std::uint64_t>(buffer.size(), end - input.read());
    const std::size_t count = input.readSome(std::span(buffer).first(wanted));
    if (count == 0) {
      input.fail("ends after " + std::to_string(input.read()) + " of " + std::to_string(end) +
                 " bytes");
    }
    return count;
  };
  const std::uint64_t begin = header.dataOffset();
  const std::uint64_t end = begin + voxels(extent_);
  while (input.read() < begin) {
    next(begin);
  }
  errno = 0;
  scratch_.reset(std::tmpfile());
  if (scratch_ == nullptr) {
    systemError("no temporary file for the inflated volume");
  }
  while (input.read() < end) {
    const std::size_t count = next(end);
    if (std::fwrite(buffer.data(), 1, count, scratch_.get()) != count) {
      systemError("the inflated volume cannot be written to a temporary file");
    }
  }
  // The look behind the last voxel also has the checksum of a compressed file checked.
  if (input.readSome(std::span(buffer).first(1)) != 0) {
    input.fail("has more voxels than its header says");
  }
  if (std::fflush(scratch_.get()) != 0) {
    systemError("the inflated volume cannot be written to a temporary file");
  }
}

std::vector<std::uint8_t> VolumeFile::read(const Box& box) const {
  std::vector<std::uint8_t> result;
  result.reserve(voxels(box.size));
  // One piece per plane of the box: from its first row to the end of its last.
  std::vector<std::uint8_t> piece((box.size[1] - 1) * extent_[0] + box.size[0]);
  for (std::size_t z = 0; z < box.size[2]; ++z) {
    const std::uint64_t start =
        (std::uint64_t{box.origin[2] + z} * extent_[1] + box.origin[1]) * extent_[0] +
        box.origin[0];
    {
      const std::lock_guard lock(mutex_);
      errno = 0;
      if (fseeko(scratch_.get(), static_cast<off_t>(start), SEEK_SET) != 0 ||
          std::fread(piece.data(), 1, piece.size(), scratch_.get()) != piece.size()) {
        systemError("the inflated volume cannot be read");
      }
    }
    for (std::size_t y = 0; y < box.size[1]; ++y) {
      const auto row = std::span(piece).subspan(y * extent_[0], box.size[0]);
      result.insert(result.end(), row.begin(), row.end());
    }
  }
  return result;
}

} // namespace bricks
