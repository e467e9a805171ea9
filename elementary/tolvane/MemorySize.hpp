#pragma once

/// @file
/// The unit in which the library counts memory: bytes, unsigned, 64 bits on every platform.
/// Object sizes, queue totals, cache limits and the figures of the operating system are all told
/// in it.
///
/// @code
/// #include <tolvane/MemorySize.hpp>
///
/// constexpr Tolvane::memsize_t limit = 512ULL << 20; // 512 MiB
/// @endcode

namespace Tolvane {

/// A count of bytes. It is the same type on every platform, so that it prints with `%llu`.
using memsize_t = unsigned long long;

} // namespace Tolvane
