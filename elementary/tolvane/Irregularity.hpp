#pragma once

/// @file
/// Reports of conditions that the program survives but that point at a fault in the code around
/// it. They do not appear on the terminal: each goes, with time, source location and call stack,
/// to the file "Irregularities.log" in the working directory, to be looked at after the run.
///
/// @code
/// #include <tolvane/Irregularity.hpp>
///
/// void release(int holders) {
///   TOLVANE_IRREGULARITY_IF(holders != 0) << ", " << holders << " holders are left";
/// }
/// @endcode

#include <tolvane/Api.hpp>
#include <tolvane/SourceLocation.hpp>
#include <tolvane/TextStream.hpp>

#include <string>
#include <string_view>

namespace Tolvane {

/// One report. It is made for one statement, filled with `operator<<`, and written when it is
/// destroyed at the end of that statement.
///
/// The first report of a process starts the log afresh; a process without reports leaves no file
/// and touches none. A library that is unloaded and loaded again begins anew: its first report
/// starts the log afresh once more. A report that cannot be written, because the file cannot be
/// created or the disk is full, is dropped. Nothing here throws: what does not fit into memory is
/// left out.
///
/// @par Thread safety
/// Reports may come from any thread, also from static objects after the end of `main`, when the
/// log is opened once more for them. Each object belongs to one thread. Reports of two threads do
/// not mix in the log.
class TOLVANE_API Irregularity : public TextStream<Irregularity> {
public:
  /// Starts a report at @p line of @p file, in the function @p func, because of @p reason. The
  /// texts are copied; null counts as empty.
  Irregularity(const char* file, int line, const char* func, const char* reason) noexcept;

  /// Writes the report and the call stack of the calling thread, and flushes the log. Finding the
  /// names of the stack may take from milliseconds to the better part of a second. Reports that
  /// come while Windows ends the process, when the other threads are gone, go without the stack.
  ~Irregularity();

  using TextStream::operator<<;
  /// The readable name of the type, from `Typename`.
  Irregularity& operator<<(const std::type_info& type) noexcept;

private:
  friend class TextStream<Irregularity>;
  void append(std::string_view piece) noexcept;

  std::string report_;
};

} // namespace Tolvane

/// A report with the file, line and function it stands in: `TOLVANE_IRREGULARITY("reason") << ...;`
#define TOLVANE_IRREGULARITY(reason)                                                               \
  ::Tolvane::Irregularity(__FILE__, __LINE__, TOLVANE_FUNCTION, reason)

/// A report when @p condition holds, with the condition's text for its reason. What is streamed is
/// evaluated only then. It is one statement, also inside `if` and `else` without braces.
#define TOLVANE_IRREGULARITY_IF(condition)                                                         \
  for (bool tolvaneIrregular = static_cast<bool>(condition); tolvaneIrregular;                     \
       tolvaneIrregular = false)                                                                   \
  TOLVANE_IRREGULARITY(#condition)
