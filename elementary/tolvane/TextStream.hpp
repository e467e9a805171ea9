#pragma once

/// @file
/// What can be appended to the diagnostic streams of the library, the same for all of them:
/// `VerboseStream`, `Console` and `Irregularity` derive from `TextStream`.
///
/// @code
/// #include <tolvane/Verbose.hpp>
///
/// void greet(int bricks, const void* where) {
///   Tolvane::Console() << bricks << " bricks of " << typeid(float) << " at " << where;
/// }
/// @endcode

#include <tolvane/Api.hpp>

#include <string>
#include <string_view>
#include <typeinfo>

namespace Tolvane {

namespace detail {

/// A number or an address as text, without touching the heap.
class TOLVANE_API NumberText {
public:
  explicit NumberText(long long value) noexcept;
  explicit NumberText(unsigned long long value) noexcept;
  explicit NumberText(double value) noexcept;
  explicit NumberText(const void* value) noexcept;

  /// Valid as long as this object.
  std::string_view view() const noexcept { return {buffer_, size_}; }

private:
  char buffer_[32];
  std::size_t size_;
};

/// `Typename`, kept out of this header.
TOLVANE_API std::string typeText(const std::type_info& type);

} // namespace detail

/// The insertion operators of the stream class @p Stream, which derives from this class and has a
/// member `void append(std::string_view)`. Each operator returns the stream.
///
/// @par Thread safety
/// As the stream: an object belongs to one thread.
template <typename Stream>
class TextStream {
public:
  /// The text as it is.
  Stream& operator<<(const std::string& text) { return put(text); }
  /// The text as it is.
  Stream& operator<<(std::string_view text) { return put(text); }
  /// The text as it is; a null pointer appends nothing.
  Stream& operator<<(const char* text) { return put(text ? std::string_view(text) : ""); }
  /// The text as it is; a null pointer appends nothing.
  Stream& operator<<(char* text) { return *this << static_cast<const char*>(text); }
  /// The one character.
  Stream& operator<<(char character) { return put({&character, 1}); }

  /// The number in decimal. A truth value is a number here: 1 or 0.
  Stream& operator<<(int number) { return *this << static_cast<long long>(number); }
  Stream& operator<<(long number) { return *this << static_cast<long long>(number); }
  Stream& operator<<(long long number) { return put(detail::NumberText(number).view()); }
  Stream& operator<<(unsigned number) { return *this << static_cast<unsigned long long>(number); }
  Stream& operator<<(unsigned long number) {
    return *this << static_cast<unsigned long long>(number);
  }
  Stream& operator<<(unsigned long long number) { return put(detail::NumberText(number).view()); }

  /// The shortest decimal form that reads back as the same number.
  Stream& operator<<(double number) { return put(detail::NumberText(number).view()); }

  /// The readable name of the type, from `Typename`.
  Stream& operator<<(const std::type_info& type) { return put(detail::typeText(type)); }

  /// The address, as `printf` writes it.
  Stream& operator<<(const void* address) { return put(detail::NumberText(address).view()); }
  /// The address, as `printf` writes it.
  Stream& operator<<(void* address) { return *this << static_cast<const void*>(address); }

protected:
  TextStream() = default;
  TextStream(const TextStream&) = delete;
  TextStream& operator=(const TextStream&) = delete;
  ~TextStream() = default;

private:
  Stream& put(std::string_view text) {
    auto& stream = static_cast<Stream&>(*this);
    stream.append(text);
    return stream;
  }
};

} // namespace Tolvane
