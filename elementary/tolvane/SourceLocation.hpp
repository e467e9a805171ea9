#pragma once

/// @file
/// `TOLVANE_FUNCTION`, the text that the message and report macros give for the function they
/// stand in. It tells the whole signature where the compiler can.
///
/// @code
/// #include <tolvane/SourceLocation.hpp>
/// #include <cstdio>
///
/// template <typename T>
/// void load(T) { std::puts(TOLVANE_FUNCTION); } // "void load(T) [with T = int]"
/// @endcode

/// A constant text that names the surrounding function.
#if defined(__GNUC__)
#define TOLVANE_FUNCTION static_cast<const char*>(__PRETTY_FUNCTION__)
#elif defined(_MSC_VER)
#define TOLVANE_FUNCTION static_cast<const char*>(__FUNCSIG__)
#else
#define TOLVANE_FUNCTION static_cast<const char*>(__func__)
#endif
