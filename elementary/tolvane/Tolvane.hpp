#pragma once

/// @file
/// Everything that is public, for hosts that would rather not choose.
///
/// @code
/// #include <tolvane/Tolvane.hpp>
/// @endcode

#include <tolvane/Ageable.hpp>
#include <tolvane/Api.hpp>
#include <tolvane/AssertionCallback.hpp>
#include <tolvane/Breakpoint.hpp>
#include <tolvane/Cache.hpp>
#include <tolvane/CacheBase.hpp>
#include <tolvane/CacheMap.hpp>
#include <tolvane/CacheMultiQueue.hpp>
#include <tolvane/CacheQueue.hpp>
#include <tolvane/Cacheable.hpp>
#include <tolvane/Counter.hpp>
#include <tolvane/CreatorCacheMap.hpp>
#include <tolvane/Creature.hpp>
#include <tolvane/DynPtr.hpp>
#include <tolvane/Environment.hpp>
#include <tolvane/Exception.hpp>
#include <tolvane/InstanceCounter.hpp>
#include <tolvane/Intercube.hpp>
#include <tolvane/Interface.hpp>
#include <tolvane/InterfaceBase.hpp>
#include <tolvane/Irregularity.hpp>
#include <tolvane/MemorySize.hpp>
#include <tolvane/MutableCacheable.hpp>
#include <tolvane/PointerID.hpp>
#include <tolvane/PosixMutex.hpp>
#include <tolvane/Profiler.hpp>
#include <tolvane/Provenance.hpp>
#include <tolvane/ReferenceBase.hpp>
#include <tolvane/Referer.hpp>
#include <tolvane/Result.hpp>
#include <tolvane/SimpleString.hpp>
#include <tolvane/SourceLocation.hpp>
#include <tolvane/SpeakPtr.hpp>
#include <tolvane/StrongPtr.hpp>
#include <tolvane/SystemMemory.hpp>
#include <tolvane/TextStream.hpp>
#include <tolvane/TypeInfo.hpp>
#include <tolvane/Typename.hpp>
#include <tolvane/Verbose.hpp>
#include <tolvane/WeakPtr.hpp>
