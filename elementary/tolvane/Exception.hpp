#pragma once

/// @file
/// The exceptions of the library and its terminate handler, which announces an uncaught exception
/// before the process aborts. All of them derive from `std::exception`, and `what()` is a constant
/// text of the class.
///
/// @code
/// #include <tolvane/Exception.hpp>
///
/// int main() {
///   Tolvane::Exception::setTerminateHandler();
///   try {
///     throw Tolvane::Exception("no bricks left", __FILE__, __LINE__);
///   } catch (const Tolvane::Exception& e) {
///     return e.description().empty(); // what() does not tell the description
///   }
/// }
/// @endcode

#include <tolvane/Api.hpp>
#include <tolvane/SimpleString.hpp>

#include <exception>
#include <string>
#include <typeinfo>

namespace Tolvane {

/// The general exception: a description and the place in the source it was thrown from.
///
/// @par Thread safety
/// Concurrent reads are safe. The three `last_known_` members are plain storage for header code,
/// without a lock; the library itself never writes them.
class TOLVANE_API Exception : public std::exception {
public:
  /// Both texts empty; the line is 0 and means nothing.
  Exception() noexcept;

  /// Copies the texts; a null pointer counts as an empty text. `__FILE__` and `__LINE__` are the
  /// usual second and third argument.
  /// @throws std::bad_alloc when there is no memory for the copies.
  Exception(const char* description, const char* sourcefile, int line);

  /// As above; the description may hold NUL characters.
  Exception(const std::string& description, const char* sourcefile, int line);

  /// Copies both texts and the line. @throws std::bad_alloc when there is no memory for them.
  Exception(const Exception& other);
  Exception& operator=(const Exception&) = delete;

  ~Exception() override;

  /// "Unspecified Tolvane Exception", whatever the description says.
  const char* what() const noexcept override;

  /// What went wrong.
  const simplestring& description() const noexcept { return description_; }

  /// The source file it was thrown from.
  const simplestring& sourceFile() const noexcept { return sourceFile_; }

  /// The line in that file.
  int sourceLine() const noexcept { return sourceLine_; }

  /// Writes "Tolvane:: C++ terminate handler called - uncaught exception!" and a line end to
  /// standard output, flushes it, and calls `abort()`.
  [[noreturn]] static void terminateHandler();

  /// Installs `terminateHandler` for the process. @return the handler that was installed before.
  static std::terminate_handler setTerminateHandler();

  /// Storage for header code that notes where it is before it does something risky: a text that
  /// ends with NUL, initially empty.
  static char last_known_description[4096];
  /// The source file that goes with `last_known_description`; ends with NUL, initially empty.
  static char last_known_sourcefilename[2048];
  /// The line that goes with `last_known_sourcefilename`, initially 0.
  static int last_known_sourcefilenumber;

private:
  simplestring description_;
  simplestring sourceFile_;
  int sourceLine_ = 0;
};

/// Thrown when an empty or dead pointer is used to reach its object.
class TOLVANE_API NullPtrException : public std::exception {
public:
  /// Reports the two types on standard output, first by their mangled and then by their readable
  /// names, and reads the variable `TOLVANE_NO_ASSERT`, so that it is listed with the others; its
  /// value has no effect. Both types must live as long as the exception.
  NullPtrException(const std::type_info& type, const std::type_info& base) noexcept;
  ~NullPtrException() override;

  /// "Null Ptr Exception - invalid pointer detected!"
  const char* what() const noexcept override;

  /// The type that the pointer points to.
  const std::type_info& type() const noexcept { return *type_; }

  /// The class that carries the reference count.
  const std::type_info& base() const noexcept { return *base_; }

private:
  const std::type_info* type_;
  const std::type_info* base_;
};

/// Thrown when memory that the library cannot do without is not to be had.
class TOLVANE_API MemoryException : public std::exception {
public:
  ~MemoryException() override;

  /// "Tolvane::Out Of Memory"
  const char* what() const noexcept override;
};

/// Thrown when one more reference to an object would exceed the largest count.
class TOLVANE_API MaxExceptionCount : public std::exception {
public:
  /// Both types must live as long as the exception.
  MaxExceptionCount(int count, const std::type_info& type, const std::type_info& base) noexcept;
  ~MaxExceptionCount() override;

  /// "Maximal reference count reached, cannot increment further"
  const char* what() const noexcept override;

  /// The count that was reached.
  int count() const noexcept { return count_; }

  /// The type that the pointer points to.
  const std::type_info& type() const noexcept { return *type_; }

  /// The class that carries the reference count.
  const std::type_info& base() const noexcept { return *base_; }

  /// Throws a `MaxExceptionCount` made of the arguments, for header code.
  [[noreturn]] static void throwMaxExceptionCount(int count, const std::type_info& type,
                                                  const std::type_info& base);

private:
  int count_;
  const std::type_info* type_;
  const std::type_info* base_;
};

} // namespace Tolvane
