#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <zlib.h>

/// @file
/// A file that is inflated while it is read.

namespace fields {

/// Reads a file from its beginning to its end, inflated where it is compressed. Every operation
/// throws FileError.
class Inflated {
public:
  explicit Inflated(const std::string& path);
  ~Inflated() { gzclose(file_); }
  Inflated(const Inflated&) = delete;
  Inflated& operator=(const Inflated&) = delete;

  /// Reads as many bytes as there are, up to the size of `bytes`. Returns their number.
  std::size_t readSome(std::span<std::uint8_t> bytes);
  /// Reads exactly so many.
  void read(std::span<std::uint8_t> bytes);
  void skip(std::uint64_t bytes);
  /// Nothing may follow. This also has the checksum of a compressed file looked at.
  void expectEnd();

private:
  gzFile file_;
  std::uint64_t read_ = 0;
};

} // namespace fields
