#include <tolvane/PointerID.hpp>

namespace Tolvane {

// On a cache line of its own: every thread writes it, so that whatever stands beside it would
// travel between the cores as well.
alignas(64) constinit std::atomic<std::uint64_t> PointerID{0};

alignas(64) constinit std::atomic<std::int32_t> RefererObjectCount{0};

} // namespace Tolvane
