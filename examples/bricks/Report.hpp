#pragma once

#include "Figures.hpp"

#include <string>

/// @file
/// What the host prints.

namespace bricks {

/// The volume and what was computed of it: the same text whatever the budget is.
std::string describe(const BrickedVolume& volume, const Figures& figures, const Picture& picture);

/// What the cache did, as a table with a line for its heads and one for this run.
std::string tabulate(const BrickedVolume& volume, Tolvane::memsize_t budget, double seconds);

} // namespace bricks
