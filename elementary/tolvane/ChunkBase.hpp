#pragma once

#include <tolvane/Api.hpp>
#include <tolvane/MemorySize.hpp>
#include <tolvane/StrongPtr.hpp>

#include <atomic>
#include <typeinfo>

/// @file
/// The common base of the data that named attributes refer to. `Chunk<T>` is ready for plain values
/// and strings; other data derive from the base themselves.
///
/// @code
/// #include <tolvane/ChunkBase.hpp>
///
/// struct Histogram : Tolvane::ChunkBase {
///   Histogram() { TotalMemsize += sizeof(bins); }
///   ~Histogram() override { TotalMemsize -= sizeof(bins); }
///   int bins[256] = {};
/// };
/// @endcode

namespace Tolvane {

/// A reference-counted piece of data.
///
/// Thread safety: the counts and the total are atomic; the data is the deriving class's matter.
class TOLVANE_API ChunkBase : public ReferenceBase<ChunkBase> {
public:
  ChunkBase();
  ~ChunkBase() override;

  /// The bytes that all chunks of the process hold, as far as their classes account for them here.
  /// The library itself never changes it.
  static std::atomic<memsize_t> TotalMemsize;

  /// A place for a debugger to stop at when a chunk goes: destructors may call it with the size and
  /// the type of what they drop. Does nothing.
  static void destructor_debug_info(long size, const std::type_info& type) noexcept;
};

} // namespace Tolvane
