#pragma once

/// @file
/// Export control of the Tolvane library: which names a module sees.
///
/// Everything is hidden unless it carries `TOLVANE_API`. A host that links the library statically
/// defines `TOLVANE_STATIC`; the CMake package and the pkg-config file do that by themselves.
///
/// @code
/// class TOLVANE_API Thing { ... };   // in the library's own headers only
/// @endcode

/// @def TOLVANE_API
/// Marks what the library exports; a module that uses the library imports it.

/// @def TOLVANE_LOCAL
/// Hides a function whose local static would otherwise become a process-wide unique symbol and
/// keep the module that instantiated it mapped for ever.

#if defined(TOLVANE_STATIC)
#define TOLVANE_API
#elif defined(_WIN32)
#if defined(TOLVANE_BUILDING)
#define TOLVANE_API __declspec(dllexport)
#else
#define TOLVANE_API __declspec(dllimport)
#endif
#else
#define TOLVANE_API __attribute__((visibility("default")))
#endif

#if defined(_WIN32)
#define TOLVANE_LOCAL
#else
#define TOLVANE_LOCAL __attribute__((visibility("hidden")))
#endif
