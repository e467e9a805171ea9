#pragma once

/// @file
/// Diagnostic output of the library and of the programs built on it: messages that are shown or
/// not by their level, their domain and the place they come from. A message is one statement, and
/// becomes one coloured line on the standard error stream.
///
/// @code
/// #include <tolvane/Verbose.hpp>
///
/// void load(const char* path, int bricks) {
///   TOLVANE_SECTION(5);                       // indents what follows
///   TOLVANE_VERBOSE(3) << "loading " << path; // shown with TOLVANE_VERBOSITY=3
///   TOLVANE_VERBOSE_DOMAIN(20, "Bricks") << bricks << " bricks";
/// }
/// @endcode
///
/// @par Levels
/// A smaller level is more important; 0 and below are errors. Messages up to the absolute value of
/// the variable `TOLVANE_VERBOSITY` are shown; a negative value shows the same messages, each with
/// its source location in front.
///
/// @par Filters
/// `TOLVANE_VERBOSITY_DOMAINS` lists, separated by commas, the domains to show, each optionally
/// with ":" and the highest level shown of it ("cache:20"); "-net" shows all domains except net. A
/// domain that is written with a leading "+" is shown only when it is listed, with or without the
/// "+". `TOLVANE_VERBOSITY_CONSTRAINTS` lists, separated by semicolons, parts of file or function
/// names: only messages whose location has one of them are shown. `TOLVANE_VERBOSITY_FILE_READ`
/// names a file that switches off the messages of source files: of its lines, those that begin
/// with "#" count, with the name behind it. Such a list, without "#", is written at unload to the
/// file that `TOLVANE_VERBOSITY_FILE_WRITE` names.
///
/// @par Malformed filters
/// A number that is missing or out of range behind the ":" of a domain surfaces as
/// `std::invalid_argument` or `std::out_of_range` from the end of the message's statement, from
/// the test whether it is shown, and from the end of a section. While another exception is
/// passing, and from the library's unloading on, the message is dropped instead. A message that a
/// host issues from the destructor of a static object before that ends the process.
///
/// @par Thread safety
/// Messages may come from any thread, also from static objects before `main` and after its end.
/// Each object belongs to one thread. The indentation is kept per thread. A message is written
/// with one call, behind what stands in the buffer of the standard error stream; lines of two
/// threads, or of the host, may still interleave where the system or the host splits theirs.

#include <tolvane/Api.hpp>
#include <tolvane/MemorySize.hpp>
#include <tolvane/ReferenceBase.hpp>
#include <tolvane/SourceLocation.hpp>
#include <tolvane/StrongPtr.hpp>
#include <tolvane/TextStream.hpp>
#include <tolvane/WeakPtr.hpp>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace Tolvane {

class Cache;
class CacheBase;

namespace detail {
class VerboseGate;
}

/// One message. It is made for one statement, filled with `operator<<`, and shown, or not, when
/// it is destroyed at the end of that statement. The macros `TOLVANE_VERBOSE` and
/// `TOLVANE_VERBOSE_DOMAIN` make one and leave out the work when it would not be shown.
class TOLVANE_API VerboseStream : public TextStream<VerboseStream> {
public:
  class Indentator;

  /// Starts a message and notes its file in the used-files list.
  /// @param suppressed  true for a message that is not shown in any case.
  /// @param breakpoint  true for a message that is shown whatever its level and domain, and then
  ///                    opens the editor named by `EDITOR` at its line and calls `breakpoint`.
  /// @param level       smaller is more important.
  /// @param file,line,func  where the message comes from; null counts as empty. The texts are not
  ///                        copied, so they must outlive the message.
  /// @param initialText the begin of the message.
  /// @param domain      a name to filter by; may be empty.
  VerboseStream(bool suppressed, bool breakpoint, int level, const char* file, int line,
                const char* func, const std::string& initialText, const std::string& domain);

  /// The same; a null @p initialText counts as empty.
  VerboseStream(bool suppressed, bool breakpoint, int level, const char* file, int line,
                const char* func, const char* initialText, const std::string& domain);

  /// Hands the message to the catcher when one is installed, whatever its level, and otherwise
  /// writes it when it is to be shown.
  /// @throws what a malformed filter or the catcher throws, and std::bad_alloc; nothing while
  ///         another exception is passing.
  ~VerboseStream() noexcept(false);

  using TextStream::operator<<;

  /// What the cache holds and how much of it could be released.
  VerboseStream& operator<<(const Cache& cache);
  /// The same; " - NO CACHE!" when the pointer is empty or its cache is gone.
  VerboseStream& operator<<(const WeakPtr<Cache, CacheBase>& cache);

  /// This stream, for insertion operators of one's own that take a `VerboseStream&`.
  VerboseStream& stream() noexcept { return *this; }

  /// Whether the message would be shown by its level, domain and file. Constraints and the
  /// catcher are not looked at.
  /// @throws what a malformed filter throws; the answer is false while another exception is
  ///         passing.
  explicit operator bool() const;

  /// Whether messages of @p level are shown, as far as the verbosity alone decides.
  static bool show(int level);

  /// A number of bytes in whole GiB or MiB, whichever gives at least 1, otherwise in whole KiB;
  /// what is left over is cut off. Negative numbers are always given in KiB.
  static std::string MemString(long long bytes);

  /// Writes the used-files list now, in place of the time of unload. It is written once: later
  /// calls do nothing, and a file that cannot be opened is given up.
  static void writeUsedFiles();

private:
  friend class TextStream<VerboseStream>;
  friend class detail::VerboseGate;

  /// Tells that the file of a message is noted already, and not switched off.
  struct Noted {};
  VerboseStream(Noted, bool breakpoint, int level, const char* file, int line, const char* func,
                std::string_view domain);

  void append(std::string_view piece) { text_ += piece; }
  void finish() const;
  void print() const;

  int level_;
  const char* file_;
  int line_;
  const char* function_;
  std::string text_;
  std::string editorCommand_;
  std::string domain_;
  bool suppressed_;
  bool breakpoint_;
};

/// A section of work: indents the messages of its thread while it lives. When the variable
/// `TOLVANE_ENABLE_VERBOSITY_SECTIONS` is not 0, its end reports how long the section lasted and
/// how the memory changed. Sections of one thread must end in the reverse order of their begin,
/// as local variables do. The macro `TOLVANE_SECTION` makes one for the rest of a scope.
class TOLVANE_API VerboseStream::Indentator {
public:
  /// Begins a section.
  /// @param file,line,func  where it is; not copied, so they must outlive the section.
  /// @param level           the level of its report.
  /// @param indentChar      what indents the messages inside.
  /// @param indentAmount    how many characters they are indented further.
  /// @param domain          the domain of its report.
  /// @throws what the catcher throws; the section has not begun then.
  Indentator(const char* file, int line, const char* func, int level, char indentChar,
             int indentAmount, const std::string& domain);
  Indentator(const Indentator&) = delete;
  Indentator& operator=(const Indentator&) = delete;

  /// Ends the section. @throws as the end of a message; the indentation is restored in any case.
  ~Indentator() noexcept(false);

private:
  void restoreIndentation() const noexcept;
  void finish() const;

  int level_;
  const char* file_;
  int line_;
  const char* function_;
  int indentAmount_;
  char savedIndentChar_;
  memsize_t memAtStart_ = 0;
  memsize_t cacheTotalAtStart_ = 0;
  memsize_t cacheFreeableAtStart_ = 0;
  std::chrono::time_point<std::chrono::system_clock, std::chrono::nanoseconds> startTime_;
  std::string domain_;
};

/// Marks one level of recursion in the messages of its thread: indents them by one more character
/// while it lives.
class TOLVANE_API VerboseRecursion {
public:
  /// Indents with @p indentChar until the end of the object.
  explicit VerboseRecursion(char indentChar) noexcept;
  VerboseRecursion(const VerboseRecursion&) = delete;
  VerboseRecursion& operator=(const VerboseRecursion&) = delete;
  ~VerboseRecursion();

private:
  char savedIndentChar_;
};

/// Takes all messages in place of the standard error stream, to show them in a window, say. A host
/// derives its own class and assigns an object of it to `theCatcher`.
///
/// Messages that one of the operations issues itself, on the same thread, go to the standard
/// error stream. What an operation throws goes out of the statement that issued the message, or
/// is dropped while another exception is passing.
///
/// @par Thread safety
/// The operations are called on the thread that issues the message, so on several threads at once.
/// The verbose output holds no lock; the messages of an eviction come while the cache holds the
/// queue that is evicted, so that they must not push an object into that queue (see CacheQueue).
class TOLVANE_API VerboseCatcher : public ReferenceBase<VerboseCatcher> {
public:
  class Slot;

  VerboseCatcher();
  ~VerboseCatcher() override;

  /// A message that passed the domain filter; level and constraints were not looked at. Does
  /// nothing by default, which silences all messages.
  virtual void catchMessage(int level, const std::string& location, const std::string& text,
                            const std::string& domain, int indentDepth, char indentChar);

  /// A section begins on this thread. @p section serves to tell sections apart.
  virtual void enterSection(const VerboseStream::Indentator* section, int level, const char* file,
                            int line, const char* function);

  /// The section ends.
  virtual void leaveSection(const VerboseStream::Indentator* section, int level, const char* file);

  /// The installed catcher; none at first.
  static Slot theCatcher;
};

/// A weak pointer to the installed catcher that threads may use while another one sets it.
///
/// It is assigned to, tested and converted like a `WeakPtr<VerboseCatcher>`. Each call of the
/// catcher holds it by a strong pointer, so the host may drop its own at any time, and a catcher
/// that has died counts as none. One that no strong pointer has ever held, an object on the stack
/// for example, is called without being held: take it out before its end, while no other thread
/// issues messages. A module that is unloaded takes its catcher out first.
///
/// @par Thread safety
/// Every operation may be called from any thread.
class TOLVANE_API VerboseCatcher::Slot {
public:
  constexpr Slot() = default;
  Slot(const Slot&) = delete;
  Slot& operator=(const Slot&) = delete;

  /// Installs the catcher that @p catcher points to, in place of the present one; none when it is
  /// empty. The slot does not own it.
  Slot& operator=(const WeakPtr<VerboseCatcher>& catcher);
  /// Takes the catcher out.
  Slot& operator=(std::nullptr_t);

  /// The catcher; empty when there is none or it has died.
  StrongPtr<VerboseCatcher> lock() const { return weak().lock(); }
  /// The same as a conversion.
  operator StrongPtr<VerboseCatcher>() const { return lock(); }
  /// The catcher, not held.
  operator WeakPtr<VerboseCatcher>() const { return weak(); }
  /// Whether there is a live catcher.
  explicit operator bool() const { return static_cast<bool>(weak()); }
  /// The catcher, not held; null when there is none or it has died.
  VerboseCatcher* get() const { return weak().get(); }
  /// Takes the catcher out.
  void reset() { *this = nullptr; }
  /// Whether there is no live catcher.
  friend bool operator==(const Slot&, std::nullptr_t) { return weak() == nullptr; }

private:
  static WeakPtr<VerboseCatcher> weak();
};

/// Writes one line to the standard error stream when it is destroyed at the end of its statement,
/// without level, colour or filter.
class TOLVANE_API Console : public TextStream<Console> {
public:
  Console();
  /// Writes the text and a line end, and flushes.
  ~Console();

private:
  friend class TextStream<Console>;
  void append(std::string_view piece) { text_ += piece; }

  std::string text_;
};

namespace detail {

/// What is known of one place that issues messages.
struct VerboseSite {
  enum State { Fresh, Open, SwitchedOff };

  const char* file;
  std::atomic<State> state{Fresh};
};

/// Messages above this level are not shown, as far as can be told without a closer look.
extern TOLVANE_API std::atomic<int> verboseThreshold;

/// The closer look: whether a message is shown or caught. Notes the site's file the first time.
TOLVANE_API bool verboseWanted(VerboseSite& site, int line, const char* function, int level,
                               std::string_view domain, bool breakpoint);

/// The quick test in front of a message, made of a few instructions.
class VerboseCall {
public:
  VerboseCall(VerboseSite& site, int level, bool breakpoint)
      : site_(site), level_(level), breakpoint_(breakpoint) {}

  /// Whether it is sure that the message is not shown, and that its site was noted.
  bool isQuiet() const {
    // Expected, so that what makes the message up stays out of the way of the code around it.
    return __builtin_expect(level_ > verboseThreshold.load(std::memory_order_relaxed) &&
                                !breakpoint_ &&
                                site_.state.load(std::memory_order_relaxed) != VerboseSite::Fresh,
                            true);
  }

private:
  friend class VerboseGate;
  VerboseSite& site_;
  int level_;
  bool breakpoint_;
};

/// The whole test: makes the message when it is shown or caught.
class VerboseGate {
public:
  VerboseGate(const VerboseCall& call, int line, const char* function, std::string_view domain)
      : call_(call), line_(line), function_(function), domain_(domain),
        open_(verboseWanted(call.site_, line, function, call.level_, domain_, call.breakpoint_)) {}

  bool isOpen() const { return open_; }
  void close() { open_ = false; }

  VerboseStream message() const {
    return {VerboseStream::Noted{},
            call_.breakpoint_,
            call_.level_,
            call_.site_.file,
            line_,
            function_,
            domain_};
  }

private:
  VerboseCall call_;
  int line_;
  const char* function_;
  std::string domain_;
  bool open_;
};

/// Begins a section with defaults for what is not given.
inline VerboseStream::Indentator verboseSection(const char* file, int line, const char* function,
                                                int level, char indentChar = ' ',
                                                int indentAmount = 2,
                                                const std::string& domain = std::string()) {
  return {file, line, function, level, indentChar, indentAmount, domain};
}

} // namespace detail
} // namespace Tolvane

/// A message without a domain: `TOLVANE_VERBOSE(level) << "text" << number;`
///
/// It knows its file, line and function. What is streamed is not evaluated when the message would
/// neither be shown nor caught; @p level is evaluated once. The file enters the used-files list
/// when the statement is reached, also when the message is not shown. It is one statement, also
/// inside `if` and `else` without braces.
#define TOLVANE_VERBOSE(level) TOLVANE_VERBOSE_MESSAGE_(level, "", false)

/// The same with a domain, a text that is evaluated once.
#define TOLVANE_VERBOSE_DOMAIN(level, domain) TOLVANE_VERBOSE_MESSAGE_(level, domain, false)

/// A message that is shown whatever its level and then stops in the debugger: see the breakpoint
/// flag of `VerboseStream`.
#define TOLVANE_VERBOSE_BREAK(level) TOLVANE_VERBOSE_MESSAGE_(level, "", true)

/// Makes the rest of the surrounding scope a section of the given level. After the level may
/// follow the character (by default a blank) and the amount (by default 2) of the indentation, and
/// the domain (by default none) of the report.
#define TOLVANE_SECTION(...)                                                                       \
  const ::Tolvane::VerboseStream::Indentator TOLVANE_VERBOSE_NAME_(tolvaneSection, __LINE__) =     \
      ::Tolvane::detail::verboseSection(__FILE__, __LINE__, TOLVANE_FUNCTION, __VA_ARGS__)

#define TOLVANE_VERBOSE_MESSAGE_(level, domain, breakpoint)                                        \
  if (const ::Tolvane::detail::VerboseCall TOLVANE_VERBOSE_NAME_(tolvaneCall, __LINE__)(           \
          TOLVANE_VERBOSE_SITE_, level, breakpoint);                                               \
      TOLVANE_VERBOSE_NAME_(tolvaneCall, __LINE__).isQuiet()) {                                    \
  } else                                                                                           \
    for (::Tolvane::detail::VerboseGate TOLVANE_VERBOSE_NAME_(tolvaneGate, __LINE__)(              \
             TOLVANE_VERBOSE_NAME_(tolvaneCall, __LINE__), __LINE__, TOLVANE_FUNCTION, domain);    \
         TOLVANE_VERBOSE_NAME_(tolvaneGate, __LINE__).isOpen();                                    \
         TOLVANE_VERBOSE_NAME_(tolvaneGate, __LINE__).close())                                     \
    TOLVANE_VERBOSE_NAME_(tolvaneGate, __LINE__).message().stream()

// The class hides the static from other modules: in an inline function it would otherwise be one
// symbol for the whole process and keep its module from being unloaded.
#define TOLVANE_VERBOSE_SITE_                                                                      \
  ([]() noexcept -> ::Tolvane::detail::VerboseSite& {                                              \
    struct TOLVANE_LOCAL Local {                                                                   \
      static ::Tolvane::detail::VerboseSite& site() noexcept {                                     \
        static constinit ::Tolvane::detail::VerboseSite site{__FILE__};                            \
        return site;                                                                               \
      }                                                                                            \
    };                                                                                             \
    return Local::site();                                                                          \
  }())

#define TOLVANE_VERBOSE_NAME_(name, line) TOLVANE_VERBOSE_NAME_2_(name, line)
#define TOLVANE_VERBOSE_NAME_2_(name, line) name##line
