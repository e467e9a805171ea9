#include "ClassicLayout.hpp"

#include "../../data/FileError.hpp"

#include <algorithm>
#include <array>
#include <limits>
#include <vector>

namespace fields {
namespace {

/// The header of a classic file, read in order.
class Header {
public:
  Header(std::istream& file, int version) : file_(file), version_(version) {}

  std::uint64_t number(int bytes) {
    std::uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) {
      const int byte = file_.get();
      if (byte == std::istream::traits_type::eof()) {
        throw FileError("is cut off inside its header; get the file anew");
      }
      value = value << 8 | static_cast<std::uint64_t>(byte);
    }
    return value;
  }

  /// A count or a size; the fifth version has longer ones.
  std::uint64_t count() { return number(version_ == 5 ? 8 : 4); }
  std::uint64_t offset() { return number(version_ == 1 ? 4 : 8); }

  /// The length of a list, which must be sane.
  std::uint64_t listLength() {
    number(4); // what it is a list of
    return checked(count(), 100'000);
  }

  void skip(std::uint64_t bytes) {
    file_.seekg(static_cast<std::streamoff>(padded(checked(bytes, 1U << 30))), std::ios::cur);
  }

  void skipAttributes() {
    for (std::uint64_t left = listLength(); left > 0; --left) {
      skip(count());
      const std::uint64_t size = sizeOfType(number(4));
      skip(size * checked(count(), 1U << 30));
    }
  }

  static std::uint64_t padded(std::uint64_t bytes) { return (bytes + 3) / 4 * 4; }

  static std::uint64_t sizeOfType(std::uint64_t type) {
    static constexpr std::array<std::uint64_t, 12> Sizes = {0, 1, 1, 2, 4, 4, 8, 1, 2, 4, 8, 8};
    return type < Sizes.size() && Sizes[type] != 0 ? Sizes[type] : checked(1, 0);
  }

  static std::uint64_t checked(std::uint64_t value, std::uint64_t limit) {
    if (value > limit) {
      throw FileError("is damaged: its header is not in order; get the file anew");
    }
    return value;
  }

private:
  std::istream& file_;
  const int version_;
};

struct Extent {
  bool record = false;
  std::uint64_t begin = 0;
  std::uint64_t bytes = 0; // of one record, or of it all
};

} // namespace

std::uint64_t classicFileLength(std::istream& file) {
  std::array<char, 4> magic{};
  if (!file.read(magic.data(), magic.size()) || magic[0] != 'C' || magic[1] != 'D' ||
      magic[2] != 'F' || (magic[3] != 1 && magic[3] != 2 && magic[3] != 5)) {
    return 0;
  }
  Header header(file, magic[3]);
  std::uint64_t records = header.count();
  if (records == std::numeric_limits<std::uint32_t>::max()) {
    records = 0; // still being written: nobody knows
  }
  std::vector<std::uint64_t> dimensions;
  for (std::uint64_t left = header.listLength(); left > 0; --left) {
    header.skip(header.count());
    dimensions.push_back(header.count());
  }
  header.skipAttributes();
  std::vector<Extent> variables;
  std::uint64_t recordBytes = 0, recordVariables = 0;
  for (std::uint64_t left = header.listLength(); left > 0; --left) {
    Extent extent;
    header.skip(header.count());
    std::uint64_t cells = 1;
    for (std::uint64_t rank = Header::checked(header.count(), 1024), i = 0; i < rank; ++i) {
      const std::uint64_t index = header.count();
      Header::checked(index + 1, dimensions.size());
      if (i == 0 && dimensions[index] == 0) {
        extent.record = true;
      } else {
        cells = Header::checked(cells * dimensions[index], std::uint64_t{1} << 40);
      }
    }
    header.skipAttributes();
    extent.bytes = cells * Header::sizeOfType(header.number(4));
    header.count(); // the size once more, which is wrong for large variables
    extent.begin = header.offset();
    recordBytes += extent.record ? Header::padded(extent.bytes) : 0;
    recordVariables += extent.record ? 1 : 0;
    variables.push_back(extent);
  }
  std::uint64_t length = 0;
  for (const Extent& extent : variables) {
    const std::uint64_t stride = recordVariables == 1 ? extent.bytes : recordBytes;
    const std::uint64_t before = extent.record && records > 0 ? (records - 1) * stride : 0;
    if (!extent.record || records > 0) {
      length = std::max(length, extent.begin + before + extent.bytes);
    }
  }
  return length;
}

} // namespace fields
