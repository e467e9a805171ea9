#pragma once

#include <tolvane/Api.hpp>

#include <atomic>
#include <cstdint>
#include <typeinfo>

/// @file
/// One instance counter per type and process, whichever modules make instances of the type.

namespace Tolvane::detail {

/// The counter of the instances of `type`; it starts at 0 and lives until the process ends.
///
/// It is found by the name of the type, so that modules which each have their own copy of a
/// template share it; types of unnamed namespaces, and those local to static functions where the
/// compiler marks them, have one each, whatever their names are. Thread safety: any thread may
/// call; the result is kept by the caller.
TOLVANE_API std::atomic<std::uint64_t>& instanceCounter(const std::type_info& type);

} // namespace Tolvane::detail
