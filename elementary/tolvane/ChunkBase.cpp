#include <tolvane/ChunkBase.hpp>

namespace Tolvane {

constinit std::atomic<memsize_t> ChunkBase::TotalMemsize{0};

ChunkBase::ChunkBase() = default;

ChunkBase::~ChunkBase() = default;

void ChunkBase::destructor_debug_info(long, const std::type_info&) noexcept {}

} // namespace Tolvane
